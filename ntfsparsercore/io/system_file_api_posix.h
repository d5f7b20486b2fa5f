// The POSIX calls that a SystemFile makes, as a seam for tests.
#ifndef TOLVAR_NTFSPARSERCORE_IO_SYSTEM_FILE_API_POSIX_H_
#define TOLVAR_NTFSPARSERCORE_IO_SYSTEM_FILE_API_POSIX_H_

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "ntfsparsercore/io/system_file.h"

namespace ntfsparsercore {
namespace io {

class SystemFile::Api {
 public:
  // The real calls.
  static Api& Default();

  virtual ~Api() = default;
  // open(2) read-only; -1 with errno set on failure.
  virtual int Open(const char* path);
  virtual ssize_t Pread(int fd, void* buffer, std::size_t size, off_t offset);
  virtual int Fstat(int fd, struct stat* status);
  // The BLKGETSIZE64 ioctl of a block device; -1 on failure.
  virtual int BlockDeviceSize(int fd, uint64_t* size);
  virtual int Close(int fd);
};

}  // namespace io
}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_IO_SYSTEM_FILE_API_POSIX_H_
