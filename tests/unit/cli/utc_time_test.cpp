#include "cli/utc_time.h"

#include <gtest/gtest.h>

namespace {

using tolvarcli::UtcTime;

// 1970-01-01T00:00:00Z in FILETIME ticks.
constexpr uint64_t kUnixEpoch = 116444736000000000ull;

TEST(UtcTimeTest, TheFileTimeEpochIs1601) { EXPECT_EQ(UtcTime::Seconds(0), "1601-01-01T00:00:00Z"); }

TEST(UtcTimeTest, TheUnixEpoch) { EXPECT_EQ(UtcTime::Seconds(kUnixEpoch), "1970-01-01T00:00:00Z"); }

TEST(UtcTimeTest, ALeapDay) {
  // 2020-02-29T23:59:59Z is 1583020799 seconds after the Unix epoch.
  EXPECT_EQ(UtcTime::Seconds(kUnixEpoch + 1583020799ull * 10000000), "2020-02-29T23:59:59Z");
}

TEST(UtcTimeTest, TicksKeepEveryHundredNanoseconds) {
  // vshadowinfo: Jul 25, 2020 12:26:04.398924700 UTC
  EXPECT_EQ(UtcTime::Ticks(132401535643989247ull), "2020-07-25T12:26:04.3989247Z");
}

}  // namespace
