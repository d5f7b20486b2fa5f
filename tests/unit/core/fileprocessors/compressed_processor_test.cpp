// CompressedProcessor: a compression unit whose stored data lies on a
// changed volume block marks every file block of its logical range.
#include "core/fileprocessors/compressed_processor.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "tests/fixtures/fake_ntfs_file.h"

namespace {

using ntfsparsercore::attributes::readers::Extent;
using tolvarcore::BitMap;
using tolvarcore::fileprocessors::CompressedProcessor;
using tolvartest::FakeNtfsFile;

constexpr uint64_t kBlock = 4096;
constexpr uint64_t kUnit = 16 * kBlock;  // 64 KiB compression unit at 4 KiB clusters

std::vector<uint64_t> SetBits(const BitMap& map) {
  std::vector<uint64_t> bits;
  for (uint64_t i = map.NextSet(0); i < map.BitCount(); i = map.NextSet(i + 1)) bits.push_back(i);
  return bits;
}

std::vector<uint64_t> Range(uint64_t first, uint64_t end) {
  std::vector<uint64_t> v;
  for (uint64_t i = first; i < end; ++i) v.push_back(i);
  return v;
}

TEST(CompressedProcessor, AUnitTouchingOneChangedBlockMarksEveryFileBlockOfItsLogicalRange) {
  // Unit 0: 64 KiB stored in 3 clusters at volume block 20; unit 1: 64 KiB
  // stored in 2 clusters at volume block 40. Only volume block 41 changed.
  auto file = std::make_shared<FakeNtfsFile>(
      std::vector<Extent>{{kUnit, 20 * kBlock, 3 * kBlock}, {kUnit, 40 * kBlock, 2 * kBlock}});
  file->compressed = true;
  BitMap changed(8);
  changed.Set(41);
  auto map = std::make_shared<BitMap>(4);
  CompressedProcessor(file, map, kBlock).Process(changed);
  EXPECT_EQ(SetBits(*map), Range(16, 32));
}

TEST(CompressedProcessor, AnUntouchedUnitMarksNothingButItsLogicalSizeMovesThePosition) {
  auto file = std::make_shared<FakeNtfsFile>(
      std::vector<Extent>{{kUnit, 20 * kBlock, 3 * kBlock}, {kUnit, 40 * kBlock, 2 * kBlock}});
  file->compressed = true;
  BitMap changed(8);
  changed.Set(22);
  auto map = std::make_shared<BitMap>(4);
  CompressedProcessor(file, map, kBlock).Process(changed);
  EXPECT_EQ(SetBits(*map), Range(0, 16));
}

TEST(CompressedProcessor, OnlyTheBlocksWhereTheUnitsStepsBeginAreMarked) {
  // With 64 KiB blocks, a touched 64 KiB unit starting at byte 70 KiB spans
  // blocks 1 and 2 but is one step, which begins in block 1.
  constexpr uint64_t kBig = 65536;
  auto file = std::make_shared<FakeNtfsFile>(
      std::vector<Extent>{{kBig, 2 * kBig, kBig}, {6144, 4 * kBig, 4096}, {kBig, 6 * kBig, 8192}});
  file->compressed = true;
  BitMap changed(1);
  changed.Set(6);
  auto map = std::make_shared<BitMap>(1);
  CompressedProcessor(file, map, kBig).Process(changed);
  EXPECT_EQ(SetBits(*map), (std::vector<uint64_t>{1}));
}

TEST(CompressedProcessor, SparseUnitsMarkNothing) {
  auto file = std::make_shared<FakeNtfsFile>(std::vector<Extent>{{kUnit, 0, kUnit}, {kUnit, 40 * kBlock, kBlock}});
  file->compressed = true;
  file->sparse = true;
  BitMap changed(8);
  changed.Set(0);
  changed.Set(40);
  auto map = std::make_shared<BitMap>(4);
  CompressedProcessor(file, map, kBlock).Process(changed);
  EXPECT_EQ(SetBits(*map), Range(16, 32));
}

}  // namespace
