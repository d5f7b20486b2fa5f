#include "core/vss/store_stack.h"

#include "common/error_queue.h"
#include "core/vss/records/catalog.h"
#include "core/vss/snapshot_sequence.h"
#include "core/vss/store_format.h"
#include "core/vss/store_snapshot_source.h"
#include "core/vss/vss_record.h"
#include "ntfsparsercore/io/cache_proxy.h"

using tolvarcommon::ScopedErrorQueueSuspension;

namespace tolvarcore {
namespace vss {

namespace {

// The volume without its cache line: every view of the stack sits behind a
// line of its own, so reading the store data and the volume through the
// volume's line as well would copy every block once more.
std::shared_ptr<ntfsparsercore::io::ISource> UncachedVolume(const VssVolume& storage) {
  const std::shared_ptr<ntfsparsercore::io::ISource>& source = storage.GetSource();
  std::shared_ptr<ntfsparsercore::io::ISource> cached = source ? source->GetCachedSource() : nullptr;
  return cached ? cached : source;
}

}  // namespace

std::shared_ptr<const StoreStack> StoreStack::Read(const VssVolume& storage) {
  ScopedErrorQueueSuspension quiet;
  auto stack = std::make_shared<StoreStack>();
  stack->volume_ = UncachedVolume(storage);
  // The stack reads the store through a line of its own, so that its reads,
  // now or when a view first needs a store, never change what the storage's
  // line holds for the reads of the change computation.
  auto store = std::make_shared<ntfsparsercore::io::CacheProxy>(stack->volume_, format::kPageSize);
  std::vector<StoreLayers::Location> locations;
  if (storage.GetCatalogOffset() != 0) {
    records::Catalog catalog(std::make_shared<VssRecord>(store, storage.GetCatalogOffset()));
    for (const auto& snapshot : BuildSnapshotList(catalog)) {
      stack->identifiers_.push_back(snapshot->GetGuid());
      stack->volumeSizes_.push_back(snapshot->GetVolumeSize());
      locations.push_back(StoreLayers::Location{snapshot->GetIndexOffset(), snapshot->GetBitmapOffset(),
                                                snapshot->GetPreviousBitmapOffset()});
    }
  }
  stack->layers_ = std::make_shared<StoreLayers>(store, std::move(locations));
  return stack;
}

std::unique_ptr<StoreSnapshotSource> StoreStack::OpenView(const Guid& store) const {
  for (std::size_t index = 0; index < identifiers_.size(); ++index) {
    if (identifiers_[index] == store) {
      return std::make_unique<StoreSnapshotSource>(volume_, layers_, index, volumeSizes_[index]);
    }
  }
  return nullptr;
}

}  // namespace vss
}  // namespace tolvarcore
