// A byte source over one shadow copy for reading it whole, end to end. On
// POSIX it is the view rebuilt from the store itself, without the line
// cache that Init puts in front of it: a volume whose size is not a whole
// number of cache lines ends in a partial line, which the cache cannot
// deliver. On Windows it is the shadow-copy device as the library opens it.
#ifndef TOLVAR_CLI_SHADOW_COPY_VIEW_H_
#define TOLVAR_CLI_SHADOW_COPY_VIEW_H_

#include <memory>

#include "core/volume_provider.h"
#include "core/vss/snapshot.h"
#include "core/vss/vss_volume.h"
#include "ntfsparsercore/io/i_source.h"

namespace tolvarcli {

// The view of snapshot, whose shadow copies storage holds; null when it
// cannot be opened. shadow_copy_view_posix.cpp and shadow_copy_view_win32.cpp
// hold each platform's way.
std::unique_ptr<ntfsparsercore::io::ISource> OpenShadowCopyView(
    tolvarcore::VolumeProvider& provider, const std::shared_ptr<tolvarcore::vss::Snapshot>& snapshot,
    const std::shared_ptr<tolvarcore::vss::VssVolume>& storage);

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_SHADOW_COPY_VIEW_H_
