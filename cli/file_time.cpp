#include "cli/file_time.h"

#include <cstdio>

namespace tolvarcli {

namespace {

constexpr uint64_t kTicksPerSecond = 10000000;
constexpr int64_t kSecondsPerDay = 86400;
// Seconds from 1601-01-01 to 1970-01-01.
constexpr int64_t kUnixEpochSeconds = 11644473600;

// The civil date of a day count from 1970-01-01 (proleptic Gregorian).
void CivilFromDays(int64_t days, int64_t* year, unsigned* month, unsigned* day) {
  days += 719468;
  const int64_t era = (days >= 0 ? days : days - 146096) / 146097;
  const unsigned dayOfEra = static_cast<unsigned>(days - era * 146097);
  const unsigned yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const unsigned dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const unsigned monthIndex = (5 * dayOfYear + 2) / 153;
  *day = dayOfYear - (153 * monthIndex + 2) / 5 + 1;
  *month = monthIndex < 10 ? monthIndex + 3 : monthIndex - 9;
  *year = static_cast<int64_t>(yearOfEra) + era * 400 + (*month <= 2);
}

}  // namespace

int64_t FileTimeUnix(uint64_t fileTime) { return static_cast<int64_t>(fileTime / kTicksPerSecond) - kUnixEpochSeconds; }

std::string FileTimeIso(uint64_t fileTime) {
  const int64_t seconds = FileTimeUnix(fileTime);
  int64_t days = seconds / kSecondsPerDay;
  int64_t rest = seconds % kSecondsPerDay;
  if (rest < 0) {
    rest += kSecondsPerDay;
    --days;
  }
  int64_t year = 0;
  unsigned month = 0;
  unsigned day = 0;
  CivilFromDays(days, &year, &month, &day);
  char text[48];
  std::snprintf(text, sizeof text, "%04lld-%02u-%02uT%02lld:%02lld:%02lld.%07lluZ", static_cast<long long>(year), month,
                day, static_cast<long long>(rest / 3600), static_cast<long long>(rest / 60 % 60),
                static_cast<long long>(rest % 60), static_cast<unsigned long long>(fileTime % kTicksPerSecond));
  return text;
}

}  // namespace tolvarcli
