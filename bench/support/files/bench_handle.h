// A tracking handle over a benchmark image, made without a store: both
// shadow copies are the image itself, each opened the way the volume
// provider opens a device (a system file behind a 16 KiB cache line), and
// the changed-block bitmap is given rather than computed. The file exports
// then run on it exactly as on a handle made by Init.
#ifndef TOLVAR_BENCH_SUPPORT_FILES_BENCH_HANDLE_H_
#define TOLVAR_BENCH_SUPPORT_FILES_BENCH_HANDLE_H_

#include <cstdint>
#include <memory>
#include <string>

#include "api/tracking_handle.h"
#include "core/bit_map.h"

namespace tolvarbench {

class BenchHandle {
 public:
  static constexpr uint64_t kLineSize = 16384;  // the volume provider's cache line

  // A handle over the image at path of volumeSize bytes with block size
  // blockSize, in whose changed bitmap every changedEvery-th block is set.
  BenchHandle(const std::string& path, uint64_t volumeSize, uint64_t blockSize, uint64_t changedEvery);
  ~BenchHandle();
  BenchHandle(const BenchHandle&) = delete;
  BenchHandle& operator=(const BenchHandle&) = delete;

  TrackingHandle* Get() const { return handle_; }
  const std::shared_ptr<tolvarcore::BitMap>& Changed() const { return changed_; }

 private:
  TrackingHandle* handle_;                       // owned; freed with FreeHandle
  std::shared_ptr<tolvarcore::BitMap> changed_;  // the changed-block bitmap, shared with the handle
};

}  // namespace tolvarbench

#endif  // TOLVAR_BENCH_SUPPORT_FILES_BENCH_HANDLE_H_
