#include "cli/json_text.h"

#include <cstdio>

namespace tolvarcli {

namespace {

constexpr unsigned char kFirstPrintable = 0x20;

}  // namespace

std::string JsonText(const std::string& text) {
  std::string out = "\"";
  for (char c : text) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (static_cast<unsigned char>(c) < kFirstPrintable) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned>(static_cast<unsigned char>(c)));
      out += escaped;
    } else {
      out += c;
    }
  }
  return out + "\"";
}

}  // namespace tolvarcli
