// Whether a standard stream is a terminal (progress goes only there).
#ifndef TOLVAR_CLI_TERMINAL_H_
#define TOLVAR_CLI_TERMINAL_H_

#include <cstdio>

namespace tolvarcli {

// True when stream is an interactive terminal. terminal_posix.cpp and
// terminal_win32.cpp hold the platform's check.
bool IsTerminal(std::FILE* stream);

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_TERMINAL_H_
