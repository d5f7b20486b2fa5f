// The object behind the opaque handle of the exports: ties a volume, its
// two shadow copies and the computed bitmaps together.
#ifndef TOLVAR_API_TRACKING_HANDLE_H_
#define TOLVAR_API_TRACKING_HANDLE_H_

#include <memory>

#include "core/block_processor.h"
#include "core/volume_provider.h"

struct TrackingHandle {
  TrackingHandle() = default;
  TrackingHandle(const TrackingHandle&) = delete;
  TrackingHandle& operator=(const TrackingHandle&) = delete;

  // Releases what it owns in the order the handle was built backwards:
  // the processor before the provider.
  ~TrackingHandle() {
    blockProcessor.reset();
    volumeProvider.reset();
  }

  std::unique_ptr<tolvarcore::VolumeProvider> volumeProvider;  // opens volume, store and shadow copies; null in a handle made by ExcludeFiles
  std::unique_ptr<tolvarcore::BlockProcessor> blockProcessor;  // block size, options, bitmaps and the block cursor
};

#endif  // TOLVAR_API_TRACKING_HANDLE_H_
