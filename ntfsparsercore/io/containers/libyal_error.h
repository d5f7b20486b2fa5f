// The last line of a libyal library's error text: the innermost cause, which
// reads best on its own ("unable to read file header", "missing segment
// file"). Each library has its own error type and sprint function.
#ifndef TOLVAR_NTFSPARSERCORE_IO_CONTAINERS_LIBYAL_ERROR_H_
#define TOLVAR_NTFSPARSERCORE_IO_CONTAINERS_LIBYAL_ERROR_H_

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

}  // namespace io
}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_IO_CONTAINERS_LIBYAL_ERROR_H_
