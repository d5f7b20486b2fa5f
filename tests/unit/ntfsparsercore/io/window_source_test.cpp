#include "ntfsparsercore/io/window_source.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "tests/fixtures/memory_source.h"

namespace {

using ntfsparsercore::io::WindowSource;
using tolvartest::MemorySource;
using tolvartest::PatternBytes;

TEST(WindowSourceTest, OffsetZeroIsTheWindowsStart) {
  const auto bytes = PatternBytes(8192);
  WindowSource window(std::make_shared<MemorySource>(bytes), 1000, 4000);
  std::vector<uint8_t> got(100);
  ASSERT_EQ(window.Read(got.data(), 100, 10), 100u);
  EXPECT_EQ(got, std::vector<uint8_t>(bytes.begin() + 1010, bytes.begin() + 1110));
  EXPECT_EQ(window.GetSize(), 4000u);
}

TEST(WindowSourceTest, ReadsStopAtTheWindowsEnd) {
  WindowSource window(std::make_shared<MemorySource>(PatternBytes(8192)), 1000, 4000);
  std::vector<uint8_t> got(100);
  EXPECT_EQ(window.Read(got.data(), 100, 3950), 50u);
  EXPECT_EQ(window.Read(got.data(), 100, 4000), 0u);
  EXPECT_EQ(window.Read(got.data(), 100, UINT64_MAX), 0u);
}

TEST(WindowSourceTest, AWindowPastTheSourcesEndReadsShort) {
  WindowSource window(std::make_shared<MemorySource>(PatternBytes(4096)), 4000, 4000);
  std::vector<uint8_t> got(200);
  EXPECT_EQ(window.Read(got.data(), 200, 0), 96u);
}

}  // namespace
