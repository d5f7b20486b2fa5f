#include "cli/shadow_copy_view.h"
#include "core/vss/store_stack.h"

namespace tolvarcli {

std::unique_ptr<ntfsparsercore::io::ISource> OpenShadowCopyView(
    tolvarcore::VolumeProvider&, const std::shared_ptr<tolvarcore::vss::Snapshot>& snapshot,
    const std::shared_ptr<tolvarcore::vss::VssVolume>& storage) {
  return std::unique_ptr<ntfsparsercore::io::ISource>(
      tolvarcore::vss::StoreStack::Read(*storage)->OpenView(snapshot->GetGuid()));
}

}  // namespace tolvarcli
