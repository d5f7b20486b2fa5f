// The object behind the opaque handle of the exports: ties a volume, its
// two shadow copies and the computed bitmaps together.
#ifndef TOLVAR_API_TRACKING_HANDLE_H_
#define TOLVAR_API_TRACKING_HANDLE_H_

#include <cstdint>
#include <memory>

#include "core/block_processor.h"
#include "core/volume_provider.h"
#include "ntfsparsercore/ntfs_volume.h"

struct TrackingHandle {
  // MFT page cache of each NTFS view, in bytes.
  static constexpr uint64_t kNtfsCacheBytes = 52428800;

  TrackingHandle() = default;
  TrackingHandle(const TrackingHandle&) = delete;
  TrackingHandle& operator=(const TrackingHandle&) = delete;

  // Releases the NTFS views, newer first, then what it owns in the order
  // the handle was built backwards: the processor before the provider.
  ~TrackingHandle();

  // Opens, over the block processor's shadow-copy sources, each NTFS view
  // that is still empty; a view that cannot be opened stays empty.
  void OpenNtfsViews();

  std::unique_ptr<tolvarcore::VolumeProvider>
      volumeProvider;  // opens volume, store and shadow copies; null in a handle made by ExcludeFiles
  std::unique_ptr<tolvarcore::BlockProcessor> blockProcessor;  // block size, options, bitmaps and the block cursor
  std::shared_ptr<ntfsparsercore::NtfsVolume>
      olderVolume;  // NTFS view of the older shadow copy; empty until first needed
  std::shared_ptr<ntfsparsercore::NtfsVolume>
      newerVolume;  // NTFS view of the newer shadow copy; empty until first needed
};

#endif  // TOLVAR_API_TRACKING_HANDLE_H_
