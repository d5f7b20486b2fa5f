// A read-only file or device of the operating system, read with a bounded
// wait and retried as a whole when a read comes back short.
#ifndef TOLVAR_NTFSPARSERCORE_IO_SYSTEM_FILE_H_
#define TOLVAR_NTFSPARSERCORE_IO_SYSTEM_FILE_H_

#include <cstdint>

#include "ntfsparsercore/io/i_source.h"

namespace ntfsparsercore {
namespace io {

class SystemFile : public ISource {
 public:
  // The operating-system calls that a SystemFile makes. Each platform
  // defines it (system_file_api_win32.h, system_file_api_posix.h); tests
  // replace it to drive time-outs, short reads and device sizes.
  class Api;

  static constexpr uint32_t kFirstWaitMs = 40;       // time given to the first attempt
  static constexpr uint32_t kLongestWaitMs = 20480;  // bound of the doubling wait

  // Opens path for reading. On failure puts "Open file(%s) failed - %d."
  // (code 1, with the platform's last error) on the error queue and
  // returns null.
  static std::unique_ptr<SystemFile> Open(const char* path);
  static std::unique_ptr<SystemFile> Open(const char* path, Api& api);

  // Takes over handle, which api closes on destruction.
  SystemFile(std::intptr_t handle, Api& api);
  ~SystemFile() override;

  SystemFile(const SystemFile&) = delete;
  SystemFile& operator=(const SystemFile&) = delete;

  uint64_t Read(void* buffer, uint64_t size, uint64_t offset) override;
  uint64_t GetSize() override;

  // The operating system's handle of the open file (a descriptor on POSIX),
  // for a caller that has the system copy ranges of it itself (splice).
  std::intptr_t GetHandle() const { return handle_; }

 private:
  // Platform parts: whether the handle is usable, and one attempt of a read
  // that may take at most waitMs.
  bool HandleIsValid() const;
  uint64_t ReadOnce(void* buffer, uint64_t size, uint64_t offset, uint32_t waitMs);

  std::intptr_t handle_;                   // the open file or device; the platform's invalid value means unusable
  uint32_t firstWait_ = kFirstWaitMs;      // milliseconds given to the first attempt
  uint32_t longestWait_ = kLongestWaitMs;  // upper bound of the doubling wait
  Api* api_;                               // the calls it makes
};

}  // namespace io
}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_IO_SYSTEM_FILE_H_
