// Standard streams: whether one is a terminal (progress goes only there),
// and putting one in binary mode for file contents.
#ifndef TOLVAR_CLI_TERMINAL_H_
#define TOLVAR_CLI_TERMINAL_H_

#include <cstdio>

namespace tolvarcli {

// True when stream is an interactive terminal. terminal_posix.cpp and
// terminal_win32.cpp hold the platform's check.
bool IsTerminal(std::FILE* stream);

// Makes stream write bytes as given (on Windows no LF to CRLF translation).
void SetBinary(std::FILE* stream);

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_TERMINAL_H_
