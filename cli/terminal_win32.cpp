#include <io.h>

#include "cli/terminal.h"

namespace tolvarcli {

bool IsTerminal(std::FILE* stream) { return _isatty(_fileno(stream)) != 0; }

}  // namespace tolvarcli
