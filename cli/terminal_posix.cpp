#include <unistd.h>

#include "cli/terminal.h"

namespace tolvarcli {

bool IsTerminal(std::FILE* stream) { return isatty(fileno(stream)) != 0; }

}  // namespace tolvarcli
