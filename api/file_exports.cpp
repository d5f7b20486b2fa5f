// The file exports: ExcludeFiles and GetFileChangesMap. They open the
// handle's NTFS views on first use, hand the work to a FileChangeTracker
// made for the call, and map its result to a status code.
#include <memory>

#include "api/tracking_handle.h"
#include "api/worker_status.h"
#include "core/file_change_tracker.h"
#include "tolvar/tolvar.h"

namespace {

using tolvarapi::FileStatus;
using tolvarcore::FileChangeTracker;
using tolvarcore::WorkerResult;

std::unique_ptr<FileChangeTracker> MakeTracker(TrackingHandle& handle) {
  handle.OpenNtfsViews();
  return std::make_unique<FileChangeTracker>(handle.blockProcessor.get(), handle.olderVolume, handle.newerVolume);
}

}  // namespace

extern "C" int32_t ExcludeFiles(TolvarHandle handle, TolvarHandle* newHandle_out, const char** paths) {
  // Without a handle there are no views to open and no bitmap to reduce.
  if (handle == nullptr) return TOLVAR_E_FAILED;
  TrackingHandle& source = *static_cast<TrackingHandle*>(handle);
  auto tracker = MakeTracker(source);
  std::unique_ptr<tolvarcore::BlockProcessor> processor;
  const WorkerResult result = tracker->ExcludeFiles(paths, newHandle_out == nullptr ? nullptr : &processor);
  tracker.reset();
  if (result == WorkerResult::kOk) {
    auto made = std::make_unique<TrackingHandle>();
    made->blockProcessor = std::move(processor);
    made->olderVolume = source.olderVolume;
    made->newerVolume = source.newerVolume;
    *newHandle_out = made.release();
  }
  return FileStatus(result, false);
}

extern "C" int32_t GetFileChangesMap(TolvarHandle handle, const char* path, unsigned char* buffer, uint64_t* size) {
  if (handle == nullptr) return TOLVAR_E_FAILED;
  auto tracker = MakeTracker(*static_cast<TrackingHandle*>(handle));
  if (path == nullptr || size == nullptr) return TOLVAR_E_FAILED;
  const WorkerResult result = tracker->GetFileChangesMap(path, buffer, size);
  tracker.reset();
  return FileStatus(result, buffer == nullptr);
}
