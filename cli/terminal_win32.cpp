#include <fcntl.h>
#include <io.h>

#include "cli/terminal.h"

namespace tolvarcli {

bool IsTerminal(std::FILE* stream) { return _isatty(_fileno(stream)) != 0; }

void SetBinary(std::FILE* stream) { _setmode(_fileno(stream), _O_BINARY); }

}  // namespace tolvarcli
