// What the four libyal container readers share: the last line of a
// library's error text, and a whole read through its read-at-offset call.
//
// The last line of a libyal library's error text: the innermost cause, which
// reads best on its own ("unable to read file header", "missing segment
// file"). Each library has its own error type and sprint function.
#ifndef TOLVAR_NTFSPARSERCORE_IO_CONTAINERS_LIBYAL_ERROR_H_
#define TOLVAR_NTFSPARSERCORE_IO_CONTAINERS_LIBYAL_ERROR_H_

#include <cstdint>
#include <string>

namespace ntfsparsercore {
namespace io {

template <typename Error, typename Sprint, typename Free>
std::string LibyalErrorText(Error* error, Sprint sprint, Free release) {
  if (error == nullptr) return "unknown error";
  char text[2048] = {};
  sprint(error, text, sizeof(text));
  release(&error);
  std::string all(text);
  while (!all.empty() && (all.back() == '\n' || all.back() == '.' || all.back() == ' ')) all.pop_back();
  const std::size_t newline = all.rfind('\n');
  std::string last = newline == std::string::npos ? all : all.substr(newline + 1);
  // Drop the "function_name: " that each line starts with.
  const std::size_t colon = last.find(": ");
  if (colon != std::string::npos && last.find(' ') > colon) last = last.substr(colon + 2);
  return last.empty() ? "unknown error" : last;
}

// Reads size bytes at offset of a medium of mediaSize bytes, cut at its end,
// through a libyal read call that may deliver less than asked:
// readAt(out, count, at) returns the bytes it read, 0 or less on failure.
// Returns how many bytes were delivered.
template <typename ReadAt>
uint64_t ReadMedium(uint64_t mediaSize, void* buffer, uint64_t size, uint64_t offset, ReadAt readAt) {
  if (offset >= mediaSize) return 0;
  if (size > mediaSize - offset) size = mediaSize - offset;
  uint8_t* out = static_cast<uint8_t*>(buffer);
  uint64_t count = 0;
  while (count < size) {
    const int64_t got = readAt(out + count, size - count, offset + count);
    if (got <= 0) break;
    count += static_cast<uint64_t>(got);
  }
  return count;
}

}  // namespace io
}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_IO_CONTAINERS_LIBYAL_ERROR_H_
