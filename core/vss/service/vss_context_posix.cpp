// POSIX: there is no shadow-copy service. The properties come from the
// storage's own store: for each snapshot of the
// catalog, the snapshot identifier is the first identifier of its store
// header record's head, the set identifier its set identifier, and the
// device object name is empty. The store reads made for it put nothing on
// the error queue, so the queue holds what it would hold on Windows.
#include "core/vss/service/vss_context.h"

#include <utility>

#include "common/error_queue.h"
#include "core/vss/record_head.h"
#include "core/vss/records/catalog.h"
#include "core/vss/snapshot_sequence.h"
#include "core/vss/vss_volume.h"

using tolvarcommon::ScopedErrorQueueSuspension;

namespace tolvarcore {
namespace vss {
namespace service {

namespace {

void CollectFromStore(const VssVolume* storage, SnapshotPropertiesList* list) {
  if (storage == nullptr || storage->GetCatalogOffset() == 0) return;
  ScopedErrorQueueSuspension quiet;
  records::Catalog catalog(storage->OpenRecord(storage->GetCatalogOffset()));
  for (const std::shared_ptr<Snapshot>& snapshot : BuildSnapshotList(catalog)) {
    std::shared_ptr<VssRecord> record = storage->OpenRecord(snapshot->GetHeaderOffset());
    const RecordHead head = RecordHead::Read(record.get());
    list->push_back(SnapshotProperties{head.firstIdentifier, head.setIdentifier, std::string()});
  }
}

}  // namespace

VssContext::Collector PlatformCollector(std::shared_ptr<VssVolume> storage) {
  return [storage = std::move(storage)](SnapshotPropertiesList* list) { CollectFromStore(storage.get(), list); };
}

}  // namespace service
}  // namespace vss
}  // namespace tolvarcore
