// SystemFile over a POSIX file descriptor: pread for reads, fstat or the
// block-device size ioctl for the size. Reads do not wait: a short attempt
// is repeated at once.
#include <errno.h>
#include <stdint.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>

#include "common/error_queue.h"
#include "ntfsparsercore/io/system_file.h"
#include "ntfsparsercore/io/system_file_api_posix.h"

using tolvarcommon::kErrorIo;
using tolvarcommon::ReportError;

namespace ntfsparsercore {
namespace io {

SystemFile::Api& SystemFile::Api::Default() {
  static Api api;
  return api;
}

int SystemFile::Api::Open(const char* path) { return ::open(path, O_RDONLY | O_CLOEXEC); }

ssize_t SystemFile::Api::Pread(int fd, void* buffer, std::size_t size, off_t offset) {
  return ::pread(fd, buffer, size, offset);
}

int SystemFile::Api::Fstat(int fd, struct stat* status) { return ::fstat(fd, status); }

int SystemFile::Api::BlockDeviceSize(int fd, uint64_t* size) { return ::ioctl(fd, BLKGETSIZE64, size); }

int SystemFile::Api::Close(int fd) { return ::close(fd); }

std::unique_ptr<SystemFile> SystemFile::Open(const char* path) { return Open(path, Api::Default()); }

std::unique_ptr<SystemFile> SystemFile::Open(const char* path, Api& api) {
  int fd = api.Open(path);
  if (fd < 0) {
    ReportError(kErrorIo, "Open file(%s) failed - %d.", path, errno);
    return nullptr;
  }
  return std::make_unique<SystemFile>(fd, api);
}

SystemFile::SystemFile(std::intptr_t handle, Api& api) : handle_(handle), api_(&api) {}

SystemFile::~SystemFile() {
  if (HandleIsValid()) api_->Close(static_cast<int>(handle_));
}

bool SystemFile::HandleIsValid() const { return handle_ >= 0; }

// One attempt: pread until size bytes have come, the file ends or a call fails.
uint64_t SystemFile::ReadOnce(void* buffer, uint64_t size, uint64_t offset, uint32_t) {
  uint8_t* out = static_cast<uint8_t*>(buffer);
  uint64_t count = 0;
  while (count < size) {
    // Offsets past what off_t holds cannot be read.
    if (offset + count > static_cast<uint64_t>(INT64_MAX)) break;
    std::size_t chunk = static_cast<std::size_t>(std::min<uint64_t>(size - count, 1u << 30));
    ssize_t got = api_->Pread(static_cast<int>(handle_), out + count, chunk, static_cast<off_t>(offset + count));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    count += static_cast<uint64_t>(got);
  }
  return count;
}

uint64_t SystemFile::GetSize() {
  struct stat status;
  if (api_->Fstat(static_cast<int>(handle_), &status) != 0) return 0;
  if (!S_ISBLK(status.st_mode)) return static_cast<uint64_t>(status.st_size);
  uint64_t size = 0;
  if (api_->BlockDeviceSize(static_cast<int>(handle_), &size) != 0) return 0;
  return size;
}

}  // namespace io
}  // namespace ntfsparsercore
