#include "cli/block_ranges.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace tolvarcli {
namespace {

TEST(BlockRangesTest, EmptyMapHasNoRange) {
  EXPECT_TRUE(SetRuns({}).empty());
  EXPECT_TRUE(SetRuns({0, 0}).empty());
  EXPECT_EQ(RangeText(SetRuns({0})), "");
}

TEST(BlockRangesTest, RunsAndSingleBlocks) {
  // Bits 0-3 and 7 in the first byte.
  const BlockRanges runs = SetRuns({0x8F});
  ASSERT_EQ(runs.size(), 2u);
  EXPECT_EQ(runs[0], (std::pair<uint64_t, uint64_t>(0, 3)));
  EXPECT_EQ(runs[1], (std::pair<uint64_t, uint64_t>(7, 7)));
  EXPECT_EQ(RangeText(runs), "0-3 7");
}

TEST(BlockRangesTest, RunCrossesByteBoundary) {
  // Bits 6 to 9, then bit 23 alone at the end of the map.
  EXPECT_EQ(RangeText(SetRuns({0xC0, 0x03, 0x80})), "6-9 23");
}

TEST(BlockRangesTest, AllSet) { EXPECT_EQ(RangeText(SetRuns({0xFF, 0xFF})), "0-15"); }

}  // namespace
}  // namespace tolvarcli
