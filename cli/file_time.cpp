#include "cli/file_time.h"

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

// Writes value in decimal, zero-padded to at least width digits, at *out
// and moves *out past it. Done by hand: snprintf was a tenth of the time of
// `changes --json`, which prints four times for each version of a file.
void PutDigits(uint64_t value, int width, char** out) {
  char digits[20];
  int count = 0;
  do {
    digits[count++] = static_cast<char>('0' + value % 10);
    value /= 10;
  } while (value != 0);
  while (count < width) digits[count++] = '0';
  while (count > 0) *(*out)++ = digits[--count];
}

void PutChar(char c, char** out) { *(*out)++ = c; }

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
  // A FILETIME's year lies between 1601 and 60056.
  char text[32];
  char* out = text;
  PutDigits(static_cast<uint64_t>(year), 4, &out);
  PutChar('-', &out);
  PutDigits(month, 2, &out);
  PutChar('-', &out);
  PutDigits(day, 2, &out);
  PutChar('T', &out);
  PutDigits(static_cast<uint64_t>(rest / 3600), 2, &out);
  PutChar(':', &out);
  PutDigits(static_cast<uint64_t>(rest / 60 % 60), 2, &out);
  PutChar(':', &out);
  PutDigits(static_cast<uint64_t>(rest % 60), 2, &out);
  PutChar('.', &out);
  PutDigits(fileTime % kTicksPerSecond, 7, &out);
  PutChar('Z', &out);
  return std::string(text, out);
}

}  // namespace tolvarcli
