// Every store of a storage's catalog, for rebuilding shadow copies: the
// stores lie newest over oldest on top of the current volume.
#ifndef TOLVAR_CORE_VSS_STORE_STACK_H_
#define TOLVAR_CORE_VSS_STORE_STACK_H_

#include <cstdint>
#include <memory>
#include <vector>

#include "core/vss/guid.h"
#include "core/vss/store_layers.h"
#include "core/vss/store_snapshot_source.h"
#include "core/vss/vss_volume.h"
#include "ntfsparsercore/io/i_source.h"

namespace tolvarcore {
namespace vss {

class StoreStack {
 public:
  // Reads the catalog of storage; each of its stores, in creation order, is
  // read when a view first reaches it (StoreLayers). The reads report
  // nothing: a shadow copy that cannot be rebuilt is simply not offered.
  static std::shared_ptr<const StoreStack> Read(const VssVolume& storage);

  // A new view of the shadow copy whose store identifier is store, over
  // storage's source, or null when the stack holds no such store.
  std::unique_ptr<StoreSnapshotSource> OpenView(const Guid& store) const;

  std::size_t StoreCount() const { return identifiers_.size(); }

 private:
  std::shared_ptr<ntfsparsercore::io::ISource> volume_;  // the current volume, holding the store data
  std::vector<Guid> identifiers_;                        // store identifiers, oldest first
  std::vector<uint64_t> volumeSizes_;                    // each shadow copy's volume size
  std::shared_ptr<const StoreLayers> layers_;            // each store's block map and bitmaps
};

}  // namespace vss
}  // namespace tolvarcore

#endif  // TOLVAR_CORE_VSS_STORE_STACK_H_
