#include "ntfsparsercore/io/split_raw_source.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "tests/fixtures/memory_source.h"

namespace {

using ntfsparsercore::io::ISource;
using ntfsparsercore::io::SplitRawSource;
using tolvartest::MemorySource;
using tolvartest::PatternBytes;

// The pattern cut into pieces of the given sizes.
SplitRawSource Split(const std::vector<uint8_t>& whole, const std::vector<std::size_t>& sizes) {
  std::vector<std::unique_ptr<ISource>> pieces;
  std::size_t at = 0;
  for (std::size_t size : sizes) {
    pieces.push_back(
        std::make_unique<MemorySource>(std::vector<uint8_t>(whole.begin() + at, whole.begin() + at + size)));
    at += size;
  }
  return SplitRawSource(std::move(pieces));
}

TEST(SplitRawSourceTest, ThePiecesReadAsOneInOrder) {
  const auto whole = PatternBytes(10000);
  SplitRawSource source = Split(whole, {4096, 4096, 1808});
  EXPECT_EQ(source.GetSize(), 10000u);
  std::vector<uint8_t> got(10000);
  ASSERT_EQ(source.Read(got.data(), got.size(), 0), 10000u);
  EXPECT_EQ(got, whole);
}

TEST(SplitRawSourceTest, AReadAcrossTwoBoundariesJoinsThreePieces) {
  const auto whole = PatternBytes(3000);
  SplitRawSource source = Split(whole, {1000, 1000, 1000});
  std::vector<uint8_t> got(1500);
  ASSERT_EQ(source.Read(got.data(), got.size(), 900), 1500u);
  EXPECT_EQ(got, std::vector<uint8_t>(whole.begin() + 900, whole.begin() + 2400));
}

TEST(SplitRawSourceTest, ReadsStopAtTheLastPiecesEnd) {
  SplitRawSource source = Split(PatternBytes(3000), {1000, 2000});
  std::vector<uint8_t> got(100);
  EXPECT_EQ(source.Read(got.data(), 100, 2950), 50u);
  EXPECT_EQ(source.Read(got.data(), 100, 3000), 0u);
}

}  // namespace
