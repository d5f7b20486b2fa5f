#include "cli/error_report.h"

#include <algorithm>
#include <cstdio>

#include "tolvar/tolvar.h"

namespace tolvarcli {

namespace {

// The longest message the queue keeps, plus room for a terminating NUL.
constexpr uint64_t kMessageBufferSize = 10240;

}  // namespace

std::vector<std::pair<uint32_t, std::string>> ErrorReport::DrainQueue() {
  std::vector<std::pair<uint32_t, std::string>> records;
  std::vector<char> buffer(kMessageBufferSize);
  uint32_t code = 0;
  for (;;) {
    std::fill(buffer.begin(), buffer.end(), '\0');
    // One byte less than the buffer: GetNextError writes no terminator.
    if (GetNextError(&code, buffer.data(), buffer.size() - 1) != 1) break;
    records.emplace_back(code, std::string(buffer.data()));
  }
  std::reverse(records.begin(), records.end());
  return records;
}

void ErrorReport::PrintFailure(const std::string& call, int32_t status) {
  PrintFailureText(call + " returned " + std::to_string(status));
}

void ErrorReport::PrintRecords(const std::vector<std::pair<uint32_t, std::string>>& records) {
  for (const auto& record : records) {
    std::fprintf(stderr, "tolvar: error %u: %s\n", static_cast<unsigned>(record.first), record.second.c_str());
  }
}

void ErrorReport::PrintFailureText(const std::string& what) {
  PrintRecords(DrainQueue());
  std::fprintf(stderr, "tolvar: %s\n", what.c_str());
}

}  // namespace tolvarcli
