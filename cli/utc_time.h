// Windows FILETIMEs (100-nanosecond ticks since 1601-01-01 UTC) as ISO 8601
// text in UTC.
#ifndef TOLVAR_CLI_UTC_TIME_H_
#define TOLVAR_CLI_UTC_TIME_H_

#include <cstdint>
#include <string>

namespace tolvarcli {

class UtcTime {
 public:
  // "2020-07-25T12:26:04Z"
  static std::string Seconds(uint64_t fileTime);
  // "2020-07-25T12:26:04.3989247Z": every tick the store recorded.
  static std::string Ticks(uint64_t fileTime);
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_UTC_TIME_H_
