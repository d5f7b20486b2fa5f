#include "cli/utc_time.h"

#include <cstdio>

namespace tolvarcli {

namespace {

constexpr uint64_t kTicksPerSecond = 10000000;
constexpr int64_t kSecondsPerDay = 86400;
// Days from 0000-03-01 (the proleptic calendar's era start used below) to 1601-01-01.
constexpr int64_t kDaysTo1601 = 584694;

// Civil date of a day count from 0000-03-01 (the days-from-civil method, inverted).
void CivilDate(int64_t days, int64_t* year, unsigned* month, unsigned* day) {
  const int64_t era = days / 146097;
  const int64_t dayOfEra = days - era * 146097;
  const int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const int64_t shiftedMonth = (5 * dayOfYear + 2) / 153;
  *day = static_cast<unsigned>(dayOfYear - (153 * shiftedMonth + 2) / 5 + 1);
  *month = static_cast<unsigned>(shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9);
  *year = yearOfEra + era * 400 + (*month <= 2 ? 1 : 0);
}

std::string Format(uint64_t fileTime, bool ticks) {
  const int64_t seconds = static_cast<int64_t>(fileTime / kTicksPerSecond);
  const int64_t days = seconds / kSecondsPerDay;
  const int64_t secondOfDay = seconds % kSecondsPerDay;
  int64_t year = 0;
  unsigned month = 0;
  unsigned day = 0;
  CivilDate(days + kDaysTo1601, &year, &month, &day);
  char text[48];
  const int length = std::snprintf(text, sizeof(text), "%04lld-%02u-%02uT%02d:%02d:%02d", static_cast<long long>(year),
                                   month, day, static_cast<int>(secondOfDay / 3600),
                                   static_cast<int>(secondOfDay / 60 % 60), static_cast<int>(secondOfDay % 60));
  std::string result(text, static_cast<std::size_t>(length));
  if (ticks) {
    std::snprintf(text, sizeof(text), ".%07llu", static_cast<unsigned long long>(fileTime % kTicksPerSecond));
    result += text;
  }
  return result + "Z";
}

}  // namespace

std::string UtcTime::Seconds(uint64_t fileTime) { return Format(fileTime, false); }

std::string UtcTime::Ticks(uint64_t fileTime) { return Format(fileTime, true); }

}  // namespace tolvarcli
