#include "cli/shadow_copy_view.h"

namespace tolvarcli {

std::unique_ptr<ntfsparsercore::io::ISource> OpenShadowCopyView(
    tolvarcore::VolumeProvider& provider, const std::shared_ptr<tolvarcore::vss::Snapshot>& snapshot,
    const std::shared_ptr<tolvarcore::vss::VssVolume>& storage) {
  return std::unique_ptr<ntfsparsercore::io::ISource>(provider.OpenShadowCopy(snapshot, storage));
}

}  // namespace tolvarcli
