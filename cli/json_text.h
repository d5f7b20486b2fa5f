// Text as a JSON string literal, quotes included.
#ifndef TOLVAR_CLI_JSON_TEXT_H_
#define TOLVAR_CLI_JSON_TEXT_H_

#include <string>

namespace tolvarcli {

// Escapes quotes, backslashes and control characters; other bytes pass
// through unchanged.
std::string JsonText(const std::string& text);

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_JSON_TEXT_H_
