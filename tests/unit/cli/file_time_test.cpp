#include "cli/file_time.h"

#include <cstdint>

#include <gtest/gtest.h>

namespace tolvarcli {
namespace {

constexpr uint64_t kUnixEpoch = 116444736000000000ull;  // 1970-01-01 as a FILETIME

TEST(FileTimeTest, TheUnixEpoch) {
  EXPECT_EQ(FileTimeIso(kUnixEpoch), "1970-01-01T00:00:00.0000000Z");
  EXPECT_EQ(FileTimeUnix(kUnixEpoch), 0);
}

TEST(FileTimeTest, SevenFractionDigitsAreKept) {
  // 2024-09-10 11:14:13 UTC is 1725966853 s after 1970.
  const uint64_t time = kUnixEpoch + 1725966853ull * 10000000 + 1234567;
  EXPECT_EQ(FileTimeIso(time), "2024-09-10T11:14:13.1234567Z");
  EXPECT_EQ(FileTimeUnix(time), 1725966853);
}

TEST(FileTimeTest, LeapDaysAndTimesBefore1970) {
  EXPECT_EQ(FileTimeIso(kUnixEpoch + 951782400ull * 10000000), "2000-02-29T00:00:00.0000000Z");
  EXPECT_EQ(FileTimeIso(0), "1601-01-01T00:00:00.0000000Z");
  EXPECT_EQ(FileTimeUnix(0), -11644473600);
}

TEST(FileTimeTest, TheLargestFileTimeHasAFiveDigitYear) {
  EXPECT_EQ(FileTimeIso(UINT64_MAX), "60056-05-28T05:36:10.9551615Z");
}

}  // namespace
}  // namespace tolvarcli
