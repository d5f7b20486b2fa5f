// The snapshots of a store in creation order, and that list cut down to
// the run from a start to an end shadow copy.
#ifndef TOLVAR_CORE_VSS_SNAPSHOT_SEQUENCE_H_
#define TOLVAR_CORE_VSS_SNAPSHOT_SEQUENCE_H_

#include <list>
#include <memory>
#include <string>
#include <utility>

#include "core/vss/service/vss_context.h"
#include "core/vss/records/catalog.h"
#include "core/vss/snapshot.h"
#include "core/vss/vss_volume.h"

namespace tolvarcore {
namespace vss {

// Owned snapshots, in ascending creation order.
using SnapshotList = std::list<std::shared_ptr<Snapshot>>;

// The start and end shadow-copy identifiers, each in the text form of Guid.
using SnapshotSequenceRequest = std::pair<std::string, std::string>;

// One snapshot per definition, in the catalog's (creation) order, each paired
// with the declaration of its store identifier. A snapshot that pairs into an
// all-zero identifier reports "Empty snapshot internal guid" and voids the
// whole list (it comes back empty).
SnapshotList BuildSnapshotList(const records::Catalog& catalog);

// Trims list, built from volume's catalog, in place to the snapshots from
// the start to the end shadow copy, both included, matching each through the
// set identifier of its store header record. The first snapshot gets the
// start's device object name, the last the end's. On failure the list is
// emptied, the reason reported (codes 12, 13, 14), and false returned.
bool BuildSnapshotSequence(const SnapshotSequenceRequest& request, service::VssContext& context,
                           const VssVolume& volume, SnapshotList* list);

}  // namespace vss
}  // namespace tolvarcore

#endif  // TOLVAR_CORE_VSS_SNAPSHOT_SEQUENCE_H_
