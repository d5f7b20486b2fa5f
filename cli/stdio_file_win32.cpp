#include <fcntl.h>
#include <io.h>

#include "cli/stdio_file.h"

namespace tolvarcli {

bool SeekFile(std::FILE* stream, uint64_t offset) {
  return _fseeki64(stream, static_cast<__int64>(offset), SEEK_SET) == 0;
}

void SetBinaryMode(std::FILE* stream) { _setmode(_fileno(stream), _O_BINARY); }

}  // namespace tolvarcli
