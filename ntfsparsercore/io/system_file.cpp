#include "ntfsparsercore/io/system_file.h"

#include "common/error_queue.h"

using tolvarcommon::kErrorInvalid;
using tolvarcommon::ReportError;

namespace ntfsparsercore {
namespace io {

// Repeats the whole read with a doubling wait until it delivers size
// bytes: with 40 and 20480 ms that is at most ten attempts.
uint64_t SystemFile::Read(void* buffer, uint64_t size, uint64_t offset) {
  if (!HandleIsValid()) {
    ReportError(kErrorInvalid, "Invalid handle");
    return 0;
  }
  uint64_t wait = firstWait_;
  if (wait > longestWait_) return 0;
  for (;;) {
    uint64_t count = ReadOnce(buffer, size, offset, static_cast<uint32_t>(wait));
    if (count == size) return count;
    wait *= 2;
    if (wait > longestWait_) return count;
  }
}

}  // namespace io
}  // namespace ntfsparsercore
