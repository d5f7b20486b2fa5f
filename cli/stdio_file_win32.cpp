#include <fcntl.h>
#include <io.h>

#include <algorithm>
#include <climits>

#include "cli/stdio_file.h"

namespace tolvarcli {

bool SeekFile(std::FILE* stream, uint64_t offset) {
  return _fseeki64(stream, static_cast<__int64>(offset), SEEK_SET) == 0;
}

void SetBinaryMode(std::FILE* stream) { _setmode(_fileno(stream), _O_BINARY); }

bool WriteThrough(std::FILE* stream, const void* data, std::size_t size) {
  if (std::fflush(stream) != 0) return false;
  const int descriptor = _fileno(stream);
  const char* bytes = static_cast<const char*>(data);
  while (size > 0) {
    // _write takes an unsigned int count.
    const unsigned int piece = static_cast<unsigned int>(std::min<std::size_t>(size, INT_MAX));
    const int written = _write(descriptor, bytes, piece);
    if (written <= 0) return false;
    bytes += written;
    size -= static_cast<std::size_t>(written);
  }
  return true;
}

}  // namespace tolvarcli
