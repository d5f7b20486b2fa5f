// The block walk of BlockProcessor over bitmaps and sources set directly.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "core/block_processor.h"
#include "tests/fixtures/fault_source.h"

namespace {

using tolvarcore::BitMap;
using tolvarcore::BlockProcessor;
using tolvarcore::WorkerResult;
using tolvartest::FaultSource;
using tolvartest::PatternBytes;

constexpr uint64_t kBlock = 4096;
constexpr int64_t kEnd = static_cast<int64_t>(WorkerResult::kEnd);
constexpr int64_t kBadArgument = static_cast<int64_t>(WorkerResult::kBadArgument);

// One step of the walk as one number: the index of the block served, or the
// (negative) worker result when none was.
int64_t Next(BlockProcessor& processor, std::vector<uint8_t>& buffer, uint64_t* size, bool compare) {
  uint64_t index = 0;
  const WorkerResult result = processor.NextBlock(buffer.data(), size, compare, &index);
  return result == WorkerResult::kOk ? static_cast<int64_t>(index) : static_cast<int64_t>(result);
}

class WalkableProcessor : public BlockProcessor {
 public:
  using BlockProcessor::BlockProcessor;
  using BlockProcessor::SetResult;
};

class BlockWalk : public testing::Test {
 protected:
  void SetUp() override {
    newerBytes_ = PatternBytes(16 * kBlock);
    olderBytes_ = newerBytes_;
    changed_ = std::make_shared<BitMap>(2);
    comparison_ = std::make_shared<BitMap>(2);
  }

  std::unique_ptr<WalkableProcessor> Make() {
    newer_ = std::make_shared<FaultSource>(newerBytes_);
    older_ = std::make_shared<FaultSource>(olderBytes_);
    auto processor = std::make_unique<WalkableProcessor>(kBlock, 0);
    processor->SetResult(changed_, comparison_, older_, newer_);
    return processor;
  }

  std::vector<uint8_t> NewerBlock(uint64_t index) const {
    return std::vector<uint8_t>(newerBytes_.begin() + index * kBlock, newerBytes_.begin() + (index + 1) * kBlock);
  }

  // Walks to the end, returning the indices served.
  std::vector<int64_t> Walk(BlockProcessor& processor, bool compare) {
    std::vector<int64_t> indices;
    std::vector<uint8_t> buffer(kBlock);
    for (;;) {
      uint64_t size = kBlock;
      int64_t index = Next(processor, buffer, &size, compare);
      if (index < 0) break;
      EXPECT_EQ(size, kBlock);
      EXPECT_EQ(buffer, NewerBlock(static_cast<uint64_t>(index))) << index;
      indices.push_back(index);
    }
    return indices;
  }

  std::vector<uint8_t> newerBytes_;
  std::vector<uint8_t> olderBytes_;
  std::shared_ptr<BitMap> changed_;
  std::shared_ptr<BitMap> comparison_;
  std::shared_ptr<FaultSource> newer_;
  std::shared_ptr<FaultSource> older_;
};

TEST_F(BlockWalk, ServesTheSetBitsInAscendingOrderThenEndForever) {
  for (uint64_t i : {1, 2, 9, 15}) changed_->Set(i);
  auto processor = Make();
  EXPECT_EQ(Walk(*processor, false), (std::vector<int64_t>{1, 2, 9, 15}));
  std::vector<uint8_t> buffer(kBlock);
  uint64_t size = kBlock;
  EXPECT_EQ(Next(*processor, buffer, &size, false), kEnd);
  EXPECT_EQ(Next(*processor, buffer, &size, true), kEnd);
  EXPECT_EQ(newer_->Calls(),
            (std::vector<FaultSource::ReadCall>{
                {1 * kBlock, kBlock}, {2 * kBlock, kBlock}, {9 * kBlock, kBlock}, {15 * kBlock, kBlock}}));
}

TEST_F(BlockWalk, ShortBufferReportsTheBlockSizeAndLeavesTheCursor) {
  changed_->Set(3);
  auto processor = Make();
  std::vector<uint8_t> buffer(kBlock);
  uint64_t size = kBlock - 1;
  EXPECT_EQ(Next(*processor, buffer, &size, false), kBadArgument);
  EXPECT_EQ(size, kBlock);
  EXPECT_EQ(newer_->ReadCount(), 0u);
  EXPECT_EQ(Next(*processor, buffer, &size, false), 3);
  EXPECT_EQ(buffer, NewerBlock(3));
}

TEST_F(BlockWalk, LargerBufferGetsOneBlockAndSizeBecomesTheBlockSize) {
  changed_->Set(0);
  auto processor = Make();
  std::vector<uint8_t> buffer(3 * kBlock, 0xEE);
  uint64_t size = buffer.size();
  EXPECT_EQ(Next(*processor, buffer, &size, false), 0);
  EXPECT_EQ(size, kBlock);
  EXPECT_EQ(buffer[kBlock], 0xEE);
}

TEST_F(BlockWalk, ShortReadEndsTheWalkForGood) {
  changed_->Set(2);
  changed_->Set(5);
  auto processor = Make();
  newer_->FailFrom(5 * kBlock);
  std::vector<uint8_t> buffer(kBlock);
  uint64_t size = kBlock;
  EXPECT_EQ(Next(*processor, buffer, &size, false), 2);
  EXPECT_EQ(Next(*processor, buffer, &size, false), kBadArgument);
  newer_->FailFrom(UINT64_MAX);
  EXPECT_EQ(Next(*processor, buffer, &size, false), kEnd);
  EXPECT_EQ(Next(*processor, buffer, &size, false), kEnd);
}

TEST_F(BlockWalk, CompareSkipsOnlyMarkedBlocksThatReadTheSame) {
  for (uint64_t i : {1, 2, 3, 4}) changed_->Set(i);
  comparison_->Set(1);  // same in both: skipped
  comparison_->Set(2);  // differs: served
  // 3 is the same in both but not marked for comparison: served
  comparison_->Set(4);  // older read fails: served
  olderBytes_[2 * kBlock + 100] ^= 0xFF;
  auto processor = Make();
  older_->FailFrom(4 * kBlock);
  EXPECT_EQ(Walk(*processor, true), (std::vector<int64_t>{2, 3, 4}));
  EXPECT_EQ(older_->Calls(),
            (std::vector<FaultSource::ReadCall>{{1 * kBlock, kBlock}, {2 * kBlock, kBlock}, {4 * kBlock, kBlock}}));
}

TEST_F(BlockWalk, WithoutCompareTheOlderCopyIsNeverRead) {
  changed_->Set(1);
  comparison_->Set(1);
  auto processor = Make();
  EXPECT_EQ(Walk(*processor, false), (std::vector<int64_t>{1}));
  EXPECT_EQ(older_->ReadCount(), 0u);
}

TEST_F(BlockWalk, CompareThatSkipsTheLastBlockEndsTheWalk) {
  changed_->Set(7);
  comparison_->Set(7);
  auto processor = Make();
  EXPECT_TRUE(Walk(*processor, true).empty());
}

TEST_F(BlockWalk, CopySharesBitmapsAndSourcesButWalksFromBlockZero) {
  changed_->Set(0);
  changed_->Set(6);
  auto processor = Make();
  EXPECT_EQ(Walk(*processor, false), (std::vector<int64_t>{0, 6}));
  BlockProcessor copy(*processor);
  EXPECT_EQ(copy.GetBitmap(), processor->GetBitmap());
  EXPECT_EQ(copy.GetNewerSource(), processor->GetNewerSource());
  EXPECT_EQ(copy.GetOlderSource(), processor->GetOlderSource());
  EXPECT_EQ(copy.GetBlockSize(), kBlock);
  copy.GetBitmap()->Clear(0);
  EXPECT_FALSE(processor->GetBitmap()->Test(0));
  EXPECT_EQ(Walk(copy, false), (std::vector<int64_t>{6}));
}

TEST_F(BlockWalk, CopyBitmapCopiesTheChangedBytes) {
  changed_->Set(9);
  auto processor = Make();
  std::vector<uint8_t> bytes(2);
  processor->CopyBitmap(bytes.data());
  EXPECT_EQ(bytes, (std::vector<uint8_t>{0x00, 0x02}));
}

TEST(BlockProcessorSizes, ValidBlockSizesAreMultiplesOf4096UpTo131072) {
  EXPECT_TRUE(BlockProcessor::IsValidBlockSize(4096));
  EXPECT_TRUE(BlockProcessor::IsValidBlockSize(8192));
  EXPECT_TRUE(BlockProcessor::IsValidBlockSize(131072));
  EXPECT_FALSE(BlockProcessor::IsValidBlockSize(0));
  EXPECT_FALSE(BlockProcessor::IsValidBlockSize(4095));
  EXPECT_FALSE(BlockProcessor::IsValidBlockSize(6000));
  EXPECT_FALSE(BlockProcessor::IsValidBlockSize(135168));
}

}  // namespace
