#include <sys/types.h>

#include "cli/stdio_file.h"

namespace tolvarcli {

bool SeekFile(std::FILE* stream, uint64_t offset) { return fseeko(stream, static_cast<off_t>(offset), SEEK_SET) == 0; }

void SetBinaryMode(std::FILE*) {}

}  // namespace tolvarcli
