// What C stdio leaves to the platform: seeking past 2 GiB, putting a
// standard stream into binary mode and writing around the buffer. stdio_file_posix.cpp and
// stdio_file_win32.cpp hold each platform's calls.
#ifndef TOLVAR_CLI_STDIO_FILE_H_
#define TOLVAR_CLI_STDIO_FILE_H_

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace tolvarcli {

// Moves stream's position to offset bytes from the start; false when the
// stream cannot seek (a pipe, a FIFO, a terminal).
bool SeekFile(std::FILE* stream, uint64_t offset);

// Makes stream pass bytes unchanged (no newline translation).
void SetBinaryMode(std::FILE* stream);

// Flushes stream's buffer, then writes size bytes straight to its file, so
// that large pieces are not first copied into the buffer. False when any
// byte could not be written.
bool WriteThrough(std::FILE* stream, const void* data, std::size_t size);

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_STDIO_FILE_H_
