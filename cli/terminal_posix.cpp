#include <unistd.h>

#include "cli/terminal.h"

namespace tolvarcli {

bool IsTerminal(std::FILE* stream) { return isatty(fileno(stream)) != 0; }

// POSIX streams never translate.
void SetBinary(std::FILE*) {}

}  // namespace tolvarcli
