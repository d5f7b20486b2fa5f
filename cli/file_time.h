// Windows FILETIMEs (100-nanosecond intervals since 1601-01-01 UTC) as the
// command prints them.
#ifndef TOLVAR_CLI_FILE_TIME_H_
#define TOLVAR_CLI_FILE_TIME_H_

#include <cstdint>
#include <string>

namespace tolvarcli {

// ISO 8601 UTC with the seven fraction digits NTFS keeps:
// "2024-05-06T07:08:09.1234567Z".
std::string FileTimeIso(uint64_t fileTime);
// Whole seconds since 1970-01-01 UTC (negative before it).
int64_t FileTimeUnix(uint64_t fileTime);

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_FILE_TIME_H_
