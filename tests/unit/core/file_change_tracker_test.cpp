// FileChangeTracker: the exclusion arithmetic on extents, and both workers
// over small NTFS volumes held in memory.
#include "core/file_change_tracker.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/file_volume_images.h"
#include "tests/fixtures/memory_source.h"

namespace {

using ntfsparsercore::NtfsVolume;
using ntfsparsercore::attributes::readers::Extent;
using tolvarcore::BitMap;
using tolvarcore::BlockProcessor;
using tolvarcore::FileChangeTracker;
using tolvarcore::WorkerResult;
using tolvartest::FileVolumeImages;
using tolvartest::MemorySource;

constexpr uint64_t kBlock = 4096;

std::vector<uint64_t> ClearedBits(const BitMap& map) {
  std::vector<uint64_t> bits;
  for (uint64_t i = 0; i < map.BitCount(); ++i) {
    if (!map.Test(i)) bits.push_back(i);
  }
  return bits;
}

// A bitmap of 64 blocks, all set, after clearing extents.
std::vector<uint64_t> ClearedBy(std::vector<Extent> extents, uint64_t block = kBlock) {
  BitMap map(8);
  map.Invert();
  FileChangeTracker::ClearExtents(std::move(extents), map, block);
  return ClearedBits(map);
}

TEST(FileExclusion, AnUnalignedExtentClearsUpToOneBlockPastItsEnd) {
  // Start 4,196 is raised to 8,192; end = 8,192 + 8,192 = 16,384.
  EXPECT_EQ(ClearedBy({{8192, 4196, 8192}}), (std::vector<uint64_t>{2, 3}));
}

TEST(FileExclusion, AdjoiningExtentsMergeIntoOneRange) {
  EXPECT_EQ(ClearedBy({{4096, 8192, 4096}, {4096, 4096, 4096}}), (std::vector<uint64_t>{1, 2}));
}

TEST(FileExclusion, AnExtentShorterThanABlockClearsNothing) {
  EXPECT_TRUE(ClearedBy({{4095, 4 * kBlock, 4095}}).empty());
}

TEST(FileExclusion, EqualOffsetsDoNotMergeAndClearTheSameBlocksAgain) {
  // Merged into 8,192 bytes they would clear blocks 1 and 2.
  EXPECT_EQ(ClearedBy({{4096, 4096, 4096}, {4096, 4096, 4096}}), (std::vector<uint64_t>{1}));
}

TEST(FileExclusion, SparseExtentsClearNothing) { EXPECT_TRUE(ClearedBy({{8 * kBlock, 0, 8 * kBlock}}).empty()); }

TEST(FileExclusion, TheStoredSizeNotTheLogicalSizeGivesTheLength) {
  EXPECT_EQ(ClearedBy({{65536, 16 * kBlock, 2 * kBlock}}), (std::vector<uint64_t>{16, 17}));
}

TEST(FileExclusion, RangesPastTheBitmapEndStopThere) {
  EXPECT_EQ(ClearedBy({{8 * kBlock, 62 * kBlock, 8 * kBlock}}), (std::vector<uint64_t>{62, 63}));
}

class ProcessorWithResult : public BlockProcessor {
 public:
  using BlockProcessor::BlockProcessor;
  using BlockProcessor::SetResult;
};

class FileChangeTrackerTest : public tolvartest::QueueTest {
 protected:
  void SetUp() override {
    QueueTest::SetUp();
    changed_ = std::make_shared<BitMap>(FileVolumeImages::kTotalClusters / 8);
    changed_->Invert();
    processor_ = std::make_unique<ProcessorWithResult>(kBlock, 0);
    auto older = std::make_shared<MemorySource>(FileVolumeImages::Build(false));
    auto newer = std::make_shared<MemorySource>(FileVolumeImages::Build(true));
    processor_->SetResult(changed_, std::make_shared<BitMap>(changed_->SizeInBytes()), older, newer);
    olderVolume_ = NtfsVolume::Create(older, 1 << 20);
    newerVolume_ = NtfsVolume::Create(newer, 1 << 20);
    ASSERT_TRUE(olderVolume_ && newerVolume_);
  }

  FileChangeTracker Tracker() { return FileChangeTracker(processor_.get(), olderVolume_, newerVolume_); }

  std::shared_ptr<BitMap> changed_;
  std::unique_ptr<ProcessorWithResult> processor_;
  std::shared_ptr<NtfsVolume> olderVolume_;
  std::shared_ptr<NtfsVolume> newerVolume_;
};

TEST_F(FileChangeTrackerTest, ExclusionClearsTheFilesBlocksInTheSharedBitmap) {
  const char* paths[] = {"/a.bin", "/b.bin", "/small.txt", nullptr};
  std::unique_ptr<BlockProcessor> copy;
  EXPECT_EQ(Tracker().ExcludeFiles(paths, &copy), WorkerResult::kOk);
  ASSERT_TRUE(copy);
  EXPECT_EQ(copy->GetBitmap(), changed_);
  // a.bin's extent holds 12,188 bytes: two whole blocks, so cluster 42 stays.
  EXPECT_EQ(ClearedBits(*changed_), (std::vector<uint64_t>{40, 41, 60, 61, 70}));
}

TEST_F(FileChangeTrackerTest, APathGivenTwiceClearsTheSameBlocks) {
  const char* paths[] = {"/b.bin", "/b.bin", nullptr};
  std::unique_ptr<BlockProcessor> copy;
  EXPECT_EQ(Tracker().ExcludeFiles(paths, &copy), WorkerResult::kOk);
  EXPECT_EQ(ClearedBits(*changed_), (std::vector<uint64_t>{60, 61, 70}));
}

TEST_F(FileChangeTrackerTest, AMissingPathChangesNothingAndMakesNoProcessor) {
  const char* paths[] = {"/a.bin", "/missing.bin", nullptr};
  std::unique_ptr<BlockProcessor> copy;
  EXPECT_EQ(Tracker().ExcludeFiles(paths, &copy), WorkerResult::kNotFound);
  EXPECT_FALSE(copy);
  EXPECT_TRUE(ClearedBits(*changed_).empty());
}

TEST_F(FileChangeTrackerTest, NullArgumentsAndAMissingViewAreRefused) {
  const char* paths[] = {"/a.bin", nullptr};
  std::unique_ptr<BlockProcessor> copy;
  EXPECT_EQ(Tracker().ExcludeFiles(nullptr, &copy), WorkerResult::kBadArgument);
  EXPECT_EQ(Tracker().ExcludeFiles(paths, nullptr), WorkerResult::kBadArgument);
  FileChangeTracker noView(processor_.get(), olderVolume_, nullptr);
  EXPECT_EQ(noView.ExcludeFiles(paths, &copy), WorkerResult::kNoView);
  uint64_t size = 0;
  EXPECT_EQ(noView.GetFileChangesMap("/a.bin", nullptr, &size), WorkerResult::kNoView);
  EXPECT_TRUE(ClearedBits(*changed_).empty());
}

TEST_F(FileChangeTrackerTest, AFileOfZeroBytesHasAMapOfZeroBytes) {
  uint64_t size = 99;
  EXPECT_EQ(Tracker().GetFileChangesMap("/empty.bin", nullptr, &size), WorkerResult::kOk);
  EXPECT_EQ(size, 0u);
  uint8_t guard = 0x5A;
  size = 0;
  EXPECT_EQ(Tracker().GetFileChangesMap("/empty.bin", &guard, &size), WorkerResult::kOk);
  EXPECT_EQ(guard, 0x5A);
}

TEST_F(FileChangeTrackerTest, AFileOf4097BytesHasTwoBitsInOneByte) {
  uint64_t size = 0;
  EXPECT_EQ(Tracker().GetFileChangesMap("/four.bin", nullptr, &size), WorkerResult::kOk);
  EXPECT_EQ(size, 1u);
  EXPECT_EQ(FileChangeTracker::MapLength(4097, 4096), 1u);
  EXPECT_EQ(FileChangeTracker::MapLength(8 * 4096 + 1, 4096), 2u);
}

TEST_F(FileChangeTrackerTest, ABufferTooSmallIsRefused) {
  uint64_t size = 0;
  uint8_t byte = 0;
  EXPECT_EQ(Tracker().GetFileChangesMap("/a.bin", &byte, &size), WorkerResult::kBadArgument);
  EXPECT_EQ(size, 0u);
}

TEST_F(FileChangeTrackerTest, AMissingPathIsNotFound) {
  uint64_t size = 0;
  EXPECT_EQ(Tracker().GetFileChangesMap("/missing.bin", nullptr, &size), WorkerResult::kNotFound);
}

TEST_F(FileChangeTrackerTest, TheMapJoinsMovedBlocksAndChangedBlocks) {
  // b.bin's third cluster moved from 62 to 70; only volume block 60 changed.
  for (uint64_t i = 0; i < changed_->BitCount(); ++i) changed_->Clear(i);
  changed_->Set(60);
  uint8_t map = 0;
  uint64_t size = 1;
  EXPECT_EQ(Tracker().GetFileChangesMap("/b.bin", &map, &size), WorkerResult::kOk);
  EXPECT_EQ(map, 0x05);
  EXPECT_EQ(size, 1u);
}

TEST_F(FileChangeTrackerTest, UnchangedBlocksUnderAnUnmovedFileGiveZero) {
  changed_->Clear(40);
  changed_->Clear(41);
  changed_->Clear(42);
  uint8_t map = 0xAA;
  uint64_t size = 1;
  EXPECT_EQ(Tracker().GetFileChangesMap("/a.bin", &map, &size), WorkerResult::kOk);
  EXPECT_EQ(map, 0x00);
}

TEST_F(FileChangeTrackerTest, AFileMissingInTheOlderVersionOrResidentGetsAllOnes) {
  for (uint64_t i = 0; i < changed_->BitCount(); ++i) changed_->Clear(i);
  uint8_t map = 0;
  uint64_t size = 1;
  EXPECT_EQ(Tracker().GetFileChangesMap("/four.bin", &map, &size), WorkerResult::kOk);
  EXPECT_EQ(map, 0xFF);
  map = 0;
  EXPECT_EQ(Tracker().GetFileChangesMap("/small.txt", &map, &size), WorkerResult::kOk);
  EXPECT_EQ(map, 0xFF);
}

}  // namespace
