// Prints a failure: the library's error queue, oldest record first, then
// the status that the failing call returned.
#ifndef TOLVAR_CLI_ERROR_REPORT_H_
#define TOLVAR_CLI_ERROR_REPORT_H_

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace tolvarcli {

class ErrorReport {
 public:
  // Takes every record off the queue; GetNextError gives the newest first,
  // so the result is reversed into the order of reporting.
  static std::vector<std::pair<uint32_t, std::string>> DrainQueue();

  // On stderr: "tolvar: error CODE: TEXT" per record, oldest first, then
  // "tolvar: CALL returned STATUS". Empties the queue.
  static void PrintFailure(const std::string& call, int32_t status);

  // "tolvar: error CODE: TEXT" for each record, in the order given.
  static void PrintRecords(const std::vector<std::pair<uint32_t, std::string>>& records);

  // The records as above, then "tolvar: WHAT".
  static void PrintFailureText(const std::string& what);
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_ERROR_REPORT_H_
