#include <sys/types.h>
#include <unistd.h>

#include <cerrno>

#include "cli/stdio_file.h"

namespace tolvarcli {

bool SeekFile(std::FILE* stream, uint64_t offset) { return fseeko(stream, static_cast<off_t>(offset), SEEK_SET) == 0; }

void SetBinaryMode(std::FILE*) {}

bool WriteThrough(std::FILE* stream, const void* data, std::size_t size) {
  if (std::fflush(stream) != 0) return false;
  const int descriptor = fileno(stream);
  const char* bytes = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t written = write(descriptor, bytes, size);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes += written;
    size -= static_cast<std::size_t>(written);
  }
  return true;
}

}  // namespace tolvarcli
