// PlainProcessor: file blocks marked from the changed volume blocks under
// the file's extents.
#include "core/fileprocessors/plain_processor.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "tests/fixtures/fake_ntfs_file.h"

namespace {

using ntfsparsercore::attributes::readers::Extent;
using tolvarcore::BitMap;
using tolvarcore::fileprocessors::PlainProcessor;
using tolvartest::FakeNtfsFile;

constexpr uint64_t kBlock = 4096;

std::vector<uint64_t> SetBits(const BitMap& map) {
  std::vector<uint64_t> bits;
  for (uint64_t i = map.NextSet(0); i < map.BitCount(); i = map.NextSet(i + 1)) bits.push_back(i);
  return bits;
}

std::vector<uint64_t> MarkedBlocks(const std::shared_ptr<FakeNtfsFile>& file, const BitMap& changed,
                                   uint64_t block = kBlock) {
  auto map = std::make_shared<BitMap>(4);
  PlainProcessor(file, map, block).Process(changed);
  return SetBits(*map);
}

TEST(PlainProcessor, MarksTheFileBlocksOnChangedVolumeBlocks) {
  // File blocks 0..3 lie on volume blocks 10..13; 11 and 13 changed.
  auto file = std::make_shared<FakeNtfsFile>(std::vector<Extent>{{4 * kBlock, 10 * kBlock, 4 * kBlock}});
  BitMap changed(4);
  changed.Set(11);
  changed.Set(13);
  EXPECT_EQ(MarkedBlocks(file, changed), (std::vector<uint64_t>{1, 3}));
}

TEST(PlainProcessor, NoChangedBlocksUnderTheExtentsMarkNothing) {
  auto file = std::make_shared<FakeNtfsFile>(std::vector<Extent>{{2 * kBlock, 4 * kBlock, 2 * kBlock}});
  BitMap changed(4);
  changed.Set(3);
  changed.Set(6);
  EXPECT_TRUE(MarkedBlocks(file, changed).empty());
}

TEST(PlainProcessor, OnlyTheVolumeBlocksUnderAPieceCount) {
  // File blocks 0..2 lie on volume blocks 5..7 (the last one 100 bytes);
  // block 4 just before them and blocks 8 and 1,000 after them changed.
  auto file = std::make_shared<FakeNtfsFile>(std::vector<Extent>{{2 * kBlock + 100, 5 * kBlock, 2 * kBlock + 100}});
  BitMap changed(128);
  changed.Set(4);
  changed.Set(8);
  changed.Set(1000);
  EXPECT_TRUE(MarkedBlocks(file, changed).empty());
  changed.Set(7);
  EXPECT_EQ(MarkedBlocks(file, changed), (std::vector<uint64_t>{2}));
}

TEST(PlainProcessor, AnUnalignedPieceTouchesEveryVolumeBlockItSpans) {
  // One block of the file at volume offset 2,048 spans volume blocks 0 and 1.
  auto file = std::make_shared<FakeNtfsFile>(std::vector<Extent>{{kBlock, 2048, kBlock}});
  BitMap changed(1);
  changed.Set(1);
  EXPECT_EQ(MarkedBlocks(file, changed), (std::vector<uint64_t>{0}));
}

TEST(PlainProcessor, EachBlockOfAnUnalignedExtentTouchesTheTwoVolumeBlocksItSpans) {
  // File blocks 0, 1 and 2 at volume offset 2,048 span volume blocks 0-1,
  // 1-2 and 2-3; only volume block 2 changed.
  auto file = std::make_shared<FakeNtfsFile>(std::vector<Extent>{{3 * kBlock, 2048, 3 * kBlock}});
  BitMap changed(1);
  changed.Set(2);
  EXPECT_EQ(MarkedBlocks(file, changed), (std::vector<uint64_t>{1, 2}));
  BitMap last(1);
  last.Set(3);
  EXPECT_EQ(MarkedBlocks(file, last), (std::vector<uint64_t>{2}));
}

TEST(PlainProcessor, AnExtentReachingTheTopOfTheOffsetRangeIsTestedUpToTheBitmapEnd) {
  // The extent's end would pass 2^64; nothing past the bitmap is changed.
  const uint64_t top = ~uint64_t{0};
  auto file = std::make_shared<FakeNtfsFile>(std::vector<Extent>{{3 * kBlock, top - kBlock, 3 * kBlock}});
  BitMap changed(4);
  changed.Set(31);
  EXPECT_TRUE(MarkedBlocks(file, changed).empty());
}

TEST(PlainProcessor, AnExtentEndingInsideABlockCarriesThePositionIntoTheNext) {
  // 6,144 bytes at volume block 2, then 6,144 bytes at volume block 8: the
  // second extent's first 2,048 bytes finish file block 1, on volume block 8.
  auto file = std::make_shared<FakeNtfsFile>(std::vector<Extent>{{6144, 2 * kBlock, 6144}, {6144, 8 * kBlock, 6144}});
  BitMap changed(4);
  changed.Set(8);
  EXPECT_EQ(MarkedBlocks(file, changed), (std::vector<uint64_t>{1, 2}));
}

TEST(PlainProcessor, SparseExtentsOnlyMoveThePosition) {
  auto file =
      std::make_shared<FakeNtfsFile>(std::vector<Extent>{{2 * kBlock, 0, 2 * kBlock}, {kBlock, 5 * kBlock, kBlock}});
  file->sparse = true;
  BitMap changed(4);
  changed.Set(0);
  changed.Set(5);
  EXPECT_EQ(MarkedBlocks(file, changed), (std::vector<uint64_t>{2}));
}

TEST(PlainProcessor, AnOffsetOfZeroInAFileNotFlaggedSparseIsTestedAtVolumeOffsetZero) {
  auto file = std::make_shared<FakeNtfsFile>(std::vector<Extent>{{kBlock, 0, kBlock}});
  BitMap changed(1);
  changed.Set(0);
  EXPECT_EQ(MarkedBlocks(file, changed), (std::vector<uint64_t>{0}));
}

TEST(PlainProcessor, AResidentFileMarksNothing) {
  auto file = std::make_shared<FakeNtfsFile>(std::vector<Extent>{{kBlock, kBlock, kBlock}});
  file->resident = true;
  BitMap changed(1);
  changed.Set(1);
  EXPECT_TRUE(MarkedBlocks(file, changed).empty());
}

TEST(PlainProcessor, PiecesBeyondTheChangedBitmapAreUnchanged) {
  auto file = std::make_shared<FakeNtfsFile>(std::vector<Extent>{{kBlock, 4000 * kBlock, kBlock}});
  BitMap changed(1);
  changed.Set(7);
  EXPECT_TRUE(MarkedBlocks(file, changed).empty());
}

}  // namespace
