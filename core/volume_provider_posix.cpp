// POSIX: there are no shadow-copy devices. A snapshot's shadow copy is
// rebuilt from the storage's store: its catalog is read once and kept for
// later calls, its stores when a view is first read (StoreLayers).
#include "core/volume_provider.h"
#include "core/vss/store_stack.h"

namespace tolvarcore {

std::unique_ptr<ntfsparsercore::io::ISource> VolumeProvider::OpenShadowCopy(
    const std::shared_ptr<vss::Snapshot>& snapshot, const std::shared_ptr<vss::VssVolume>& storage) {
  if (!snapshot || !storage) return nullptr;
  if (!stores_ || storesOf_ != storage) {
    stores_ = vss::StoreStack::Read(*storage);
    storesOf_ = storage;
  }
  std::unique_ptr<ntfsparsercore::io::ISource> view = stores_->OpenView(snapshot->GetGuid());
  if (!view) return nullptr;
  return factory_->CreateCacheProxy(std::move(view), lineSize_);
}

}  // namespace tolvarcore
