// FileVersionComparer: file blocks whose placement differs between the two
// versions, or the whole map when they cannot be compared.
#include "core/fileprocessors/file_version_comparer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <vector>

#include "core/fileprocessors/compressed_processor.h"
#include "core/fileprocessors/plain_processor.h"
#include "tests/fixtures/fake_ntfs_file.h"

namespace {

using ntfsparsercore::attributes::readers::Extent;
using tolvarcore::BitMap;
using tolvarcore::fileprocessors::FileVersionComparer;
using tolvarcore::fileprocessors::PlainProcessor;
using tolvartest::FakeNtfsFile;

constexpr uint64_t kBlock = 4096;
constexpr uint64_t kCluster = 4096;

std::vector<uint64_t> SetBits(const BitMap& map) {
  std::vector<uint64_t> bits;
  for (uint64_t i = map.NextSet(0); i < map.BitCount(); i = map.NextSet(i + 1)) bits.push_back(i);
  return bits;
}

std::vector<uint8_t> Bytes(const BitMap& map) {
  return std::vector<uint8_t>(map.Data(), map.Data() + map.SizeInBytes());
}

std::shared_ptr<FakeNtfsFile> File(std::vector<Extent> extents) {
  return std::make_shared<FakeNtfsFile>(std::move(extents), 0);
}

TEST(FileVersionComparer, AFileMissingFromTheOlderShadowCopyGetsAllOnes) {
  auto newer = File({{2 * kBlock, 10 * kBlock, 2 * kBlock}});
  BitMap map(3);
  FileVersionComparer(nullptr, newer, kBlock).Compare(map, kCluster);
  EXPECT_EQ(Bytes(map), (std::vector<uint8_t>{0xFF, 0xFF, 0xFF}));
}

TEST(FileVersionComparer, AResidentNewerVersionGetsAllOnesAndTheProcessorsAddNothing) {
  auto older = File({});
  older->resident = true;
  auto newer = File({{kBlock, 10 * kBlock, kBlock}});
  newer->resident = true;
  auto map = std::make_shared<BitMap>(2);
  FileVersionComparer(older, newer, kBlock).Compare(*map, kCluster);
  EXPECT_EQ(Bytes(*map), (std::vector<uint8_t>{0xFF, 0xFF}));
  // On a fresh map the processors show that they add nothing for it.
  BitMap changed(4);
  changed.Set(10);
  auto fresh = std::make_shared<BitMap>(2);
  PlainProcessor(newer, fresh, kBlock).Process(changed);
  tolvarcore::fileprocessors::CompressedProcessor(newer, fresh, kBlock).Process(changed);
  EXPECT_TRUE(SetBits(*fresh).empty());
}

TEST(FileVersionComparer, AResidencyChangeGetsAllOnes) {
  auto older = File({});
  older->resident = true;
  auto newer = File({{kBlock, 10 * kBlock, kBlock}});
  BitMap map(1);
  FileVersionComparer(older, newer, kBlock).Compare(map, kCluster);
  EXPECT_EQ(Bytes(map), (std::vector<uint8_t>{0xFF}));
}

TEST(FileVersionComparer, ACompressionChangeGetsAllOnes) {
  auto older = File({{kBlock, 10 * kBlock, kBlock}});
  auto newer = File({{kBlock, 10 * kBlock, kBlock}});
  newer->compressed = true;
  BitMap map(2);
  FileVersionComparer(older, newer, kBlock).Compare(map, kCluster);
  EXPECT_EQ(Bytes(map), (std::vector<uint8_t>{0xFF, 0xFF}));
}

TEST(FileVersionComparer, SameExtentsAndNoChangedBlocksGiveAnAllZeroMap) {
  std::vector<Extent> extents{{3 * kBlock, 10 * kBlock, 3 * kBlock}, {2 * kBlock, 30 * kBlock, 2 * kBlock}};
  auto older = File(extents);
  auto newer = File(extents);
  auto map = std::make_shared<BitMap>(1);
  FileVersionComparer(older, newer, kBlock).Compare(*map, kCluster);
  BitMap changed(8);
  changed.Set(13);
  changed.Set(29);
  PlainProcessor(newer, map, kBlock).Process(changed);
  EXPECT_EQ(Bytes(*map), (std::vector<uint8_t>{0}));
}

TEST(FileVersionComparer, DataMovedToOtherClustersMarksEveryBlockOfTheMovedRange) {
  // Blocks 2..4 of the file moved from volume block 12 to volume block 50;
  // the changed-block bitmap does not show it.
  auto older = File({{6 * kBlock, 10 * kBlock, 6 * kBlock}});
  auto newer = File(
      {{2 * kBlock, 10 * kBlock, 2 * kBlock}, {3 * kBlock, 50 * kBlock, 3 * kBlock}, {kBlock, 15 * kBlock, kBlock}});
  auto map = std::make_shared<BitMap>(1);
  FileVersionComparer(older, newer, kBlock).Compare(*map, kCluster);
  PlainProcessor(newer, map, kBlock).Process(BitMap(16));
  EXPECT_EQ(SetBits(*map), (std::vector<uint64_t>{2, 3, 4}));
}

TEST(FileVersionComparer, LargeBlocksAdvanceInClusterStepsAndMarkTheBlockOfEachDifferingStep) {
  // B = 65,536 and 4,096-byte clusters: the file's clusters 20 and 40 moved
  // (file blocks 1 and 2); each differing 4 KiB step marks position / 65,536.
  constexpr uint64_t kBig = 65536;
  auto older = File({{48 * kCluster, 100 * kCluster, 48 * kCluster}});
  auto newer = File({{20 * kCluster, 100 * kCluster, 20 * kCluster},
                     {kCluster, 500 * kCluster, kCluster},
                     {19 * kCluster, 121 * kCluster, 19 * kCluster},
                     {kCluster, 600 * kCluster, kCluster},
                     {7 * kCluster, 141 * kCluster, 7 * kCluster}});
  BitMap map(1);
  FileVersionComparer(older, newer, kBig).Compare(map, kCluster);
  EXPECT_EQ(SetBits(map), (std::vector<uint64_t>{1, 2}));
}

TEST(FileVersionComparer, AStepIsTheSmallerOfBlockAndClusterSize) {
  // 64 KiB clusters with 4 KiB blocks: the moved cluster is compared in
  // 4 KiB steps, each of which marks its own block.
  constexpr uint64_t kBigCluster = 65536;
  auto older = File({{2 * kBigCluster, 10 * kBigCluster, 2 * kBigCluster}});
  auto newer = File({{kBigCluster, 10 * kBigCluster, kBigCluster}, {kBigCluster, 30 * kBigCluster, kBigCluster}});
  BitMap map(8);
  FileVersionComparer(older, newer, kBlock).Compare(map, kBigCluster);
  std::vector<uint64_t> expected;
  for (uint64_t i = 16; i < 32; ++i) expected.push_back(i);
  EXPECT_EQ(SetBits(map), expected);
}

TEST(FileVersionComparer, ANewerVersionLongerThanTheOlderMarksEveryStepPastTheOlderEnd) {
  auto older = File({{2 * kBlock, 10 * kBlock, 2 * kBlock}});
  auto newer = File({{2 * kBlock, 10 * kBlock, 2 * kBlock}, {2 * kBlock, 40 * kBlock, 2 * kBlock}});
  BitMap map(1);
  FileVersionComparer(older, newer, kBlock).Compare(map, kCluster);
  EXPECT_EQ(SetBits(map), (std::vector<uint64_t>{2, 3}));
}

// The comparison one step at a time, as a model for the one under test.
std::vector<uint8_t> CompareStepByStep(std::vector<Extent> older, std::vector<Extent> newer, uint64_t blockSize,
                                       uint64_t step, uint64_t mapBytes) {
  BitMap map(mapBytes);
  std::size_t a = 0;
  std::size_t n = 0;
  uint64_t position = 0;
  auto advance = [step](std::vector<Extent>& list, std::size_t& index, uint64_t* moved) {
    Extent& e = list[index];
    if (step > e.logicalSize) {
      if (moved) *moved += e.logicalSize;
      e.logicalSize = 0;
    } else {
      e.logicalSize -= step;
      if (moved) *moved += step;
      if (e.volumeOffset != 0) e.volumeOffset += step;
    }
    if (e.logicalSize == 0) ++index;
  };
  while (n < newer.size()) {
    if (a >= older.size()) {
      map.Set(position / blockSize);
      advance(newer, n, &position);
      continue;
    }
    older[a].storedSize = newer[n].storedSize;
    if (older[a] == newer[n]) {
      position += newer[n].logicalSize;
      ++n;
      ++a;
      continue;
    }
    if (older[a].volumeOffset != newer[n].volumeOffset) map.Set(position / blockSize);
    advance(newer, n, &position);
    advance(older, a, nullptr);
  }
  return Bytes(map);
}

TEST(FileVersionComparer, StepsTakenTogetherMarkWhatSingleStepsMark) {
  std::mt19937 random(11);
  for (int round = 0; round < 300; ++round) {
    const uint64_t block = 512 * (1 + random() % 8);
    const uint64_t cluster = 1 + random() % 700;
    auto extents = [&random]() {
      std::vector<Extent> list(1 + random() % 5);
      for (Extent& e : list) {
        e.logicalSize = 1 + random() % 9000;
        e.volumeOffset = random() % 3 == 0 ? 0 : 1 + random() % 20000;
        e.storedSize = e.logicalSize;
      }
      return list;
    };
    std::vector<Extent> older = extents();
    std::vector<Extent> newer = random() % 4 == 0 ? older : extents();
    if (random() % 3 == 0 && !newer.empty()) newer[0].volumeOffset += 1;
    const uint64_t mapBytes = 1 + random() % 12;
    BitMap map(mapBytes);
    FileVersionComparer(File(older), File(newer), block).Compare(map, cluster);
    EXPECT_EQ(Bytes(map), CompareStepByStep(older, newer, block, std::min(block, cluster), mapBytes))
        << "round " << round;
  }
}

TEST(FileVersionComparer, ClustersOfOneByteOverSixtyFourGibibytesEndAndMarkEveryBlock) {
  // A damaged boot sector can give one-byte clusters: a moved extent of
  // 64 GiB is 2^36 steps, which are taken together.
  constexpr uint64_t kBig = 131072;
  constexpr uint64_t kLength = uint64_t{64} << 30;
  auto older = File({{kLength, 4096, kLength}});
  auto newer = File({{kLength, 8192, kLength}, {kLength, 1 << 20, kLength}});
  BitMap map(2 * kLength / kBig / 8);
  FileVersionComparer(older, newer, kBig).Compare(map, 1);
  EXPECT_EQ(Bytes(map), std::vector<uint8_t>(map.SizeInBytes(), 0xFF));
}

TEST(FileVersionComparer, StepsTakenTogetherStopWhereAnOffsetWouldWrapRound) {
  // The older extent lies at the very end of the offset range: its offset
  // wraps to 0 after a few steps, and from there it counts as not stored.
  constexpr uint64_t kTop = ~uint64_t{0};
  std::vector<Extent> older = {{40 * 512, kTop - 3 * 512 + 1, 40 * 512}};
  std::vector<Extent> newer = {{40 * 512, 0, 40 * 512}};
  BitMap map(2);
  FileVersionComparer(File(older), File(newer), 512).Compare(map, 512);
  EXPECT_EQ(Bytes(map), CompareStepByStep(older, newer, 512, 512, 2));
}

}  // namespace
