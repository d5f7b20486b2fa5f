#include "core/vss/mark_indexed_blocks.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "core/bit_map.h"
#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/vss_store_builder.h"

using tolvarcommon::ErrorRecord;

namespace {

using tolvarcore::BitMap;
using tolvarcore::vss::MarkIndexedBlocks;
using tolvarcore::vss::VssRecord;
using tolvartest::DrainErrors;
using tolvartest::Record;
using namespace tolvartest::vss;

constexpr uint64_t kBlock = 16384;

class MarkIndexedBlocksTest : public tolvartest::QueueTest {
 protected:
  std::shared_ptr<VssRecord> IndexRecord(const std::vector<Descriptor>& descriptors) {
    uint64_t offset = writer_.AddRecord(kTypeBlockList, DescriptorPayload(descriptors));
    return std::make_shared<VssRecord>(writer_.Source(), offset);
  }

  // The set bits of map.
  static std::vector<uint64_t> SetBits(const BitMap& map) {
    std::vector<uint64_t> bits;
    for (uint64_t i = 0; i < map.BitCount(); ++i) {
      if (map.Test(i)) bits.push_back(i);
    }
    return bits;
  }

  static std::vector<ErrorRecord> Closing() { return {Record(1, "Failed to read index record")}; }

  StoreWriter writer_{64 * kMiB};
  BitMap result_{512};  // 4096 blocks: a 64 MiB volume
};

TEST_F(MarkIndexedBlocksTest, EachDescriptorMarksItsBlock) {
  MarkIndexedBlocks(IndexRecord({Block(3 * kBlock), Block(10 * kBlock + 5), Block(4095 * kBlock)}), result_, false);
  EXPECT_EQ(SetBits(result_), (std::vector<uint64_t>{3, 10, 4095}));
  EXPECT_EQ(DrainErrors(), Closing());
}

TEST_F(MarkIndexedBlocksTest, NotUsedDescriptorMarksNothing) {
  MarkIndexedBlocks(IndexRecord({Block(3 * kBlock, 4), Block(5 * kBlock, 4 | 2), Block(6 * kBlock)}), result_, false);
  EXPECT_EQ(SetBits(result_), (std::vector<uint64_t>{6}));
  EXPECT_EQ(DrainErrors(), Closing());
}

TEST_F(MarkIndexedBlocksTest, BlockOffsetZeroWithSecondOffsetMarksBlockZero) {
  MarkIndexedBlocks(IndexRecord({Descriptor{0, 0x1000, 0, 0, 0}}), result_, false);
  EXPECT_EQ(SetBits(result_), (std::vector<uint64_t>{0}));
}

TEST_F(MarkIndexedBlocksTest, BothOffsetsZeroIsSkippedAndTheWalkGoesOn) {
  // An all-zero descriptor (or one with only a store data offset) is skipped;
  // the walk only ends where the record does.
  MarkIndexedBlocks(IndexRecord({Descriptor{0, 0, 0x5000, 0, 0}, Descriptor{}, Block(7 * kBlock)}), result_, false);
  EXPECT_EQ(SetBits(result_), (std::vector<uint64_t>{7}));
  EXPECT_EQ(DrainErrors(), Closing());
}

TEST_F(MarkIndexedBlocksTest, BlocksPastTheBitmapAreIgnored) {
  MarkIndexedBlocks(IndexRecord({Block(4096 * kBlock), Block(~0ull)}), result_, false);
  EXPECT_TRUE(SetBits(result_).empty());
}

TEST_F(MarkIndexedBlocksTest, EmptyIndexRecordMarksNothingWithOneMessage) {
  PageSpec page;
  page.offset = writer_.AllocatePages(1)[0];
  page.identifier = Id(1);
  writer_.WritePage(page);
  auto record = std::make_shared<VssRecord>(writer_.Source(), page.offset);
  DrainErrors();
  MarkIndexedBlocks(record, result_, false);
  EXPECT_TRUE(SetBits(result_).empty());
  EXPECT_EQ(DrainErrors(), Closing());
  MarkIndexedBlocks(nullptr, result_, true);
  EXPECT_EQ(DrainErrors(), Closing());
}

TEST_F(MarkIndexedBlocksTest, DescriptorsAreReadOneAtATime) {
  auto record = IndexRecord({Block(kBlock), Block(2 * kBlock)});
  writer_.Source()->ForgetCalls();
  MarkIndexedBlocks(record, result_, false);
  const auto& calls = writer_.Source()->Calls();
  ASSERT_GE(calls.size(), 3u);
  EXPECT_EQ(calls[0].size, 32u);
  EXPECT_EQ(calls[1].offset, calls[0].offset + 32);
}

TEST_F(MarkIndexedBlocksTest, OverlayOnlyBlockDescribedOnceMarksNothing) {
  MarkIndexedBlocks(IndexRecord({Block(3 * kBlock), Block(4 * kBlock, 2)}), result_, true);
  EXPECT_TRUE(SetBits(result_).empty());
  EXPECT_EQ(DrainErrors(), Closing());
}

TEST_F(MarkIndexedBlocksTest, OverlayOnlyBlockDescribedTwiceWithOverlayOnTheSecondIsMarked) {
  MarkIndexedBlocks(IndexRecord({Block(3 * kBlock), Block(5 * kBlock), Block(3 * kBlock + 512, 2)}), result_, true);
  EXPECT_EQ(SetBits(result_), (std::vector<uint64_t>{3}));
}

TEST_F(MarkIndexedBlocksTest, OverlayOnlyBlockDescribedTwiceWithoutOverlayIsNotMarked) {
  MarkIndexedBlocks(IndexRecord({Block(3 * kBlock, 2), Block(3 * kBlock)}), result_, true);
  EXPECT_TRUE(SetBits(result_).empty());
}

TEST_F(MarkIndexedBlocksTest, OverlayOnlyIgnoresSkippedDescriptors) {
  // A not-used first descriptor does not count as seen.
  MarkIndexedBlocks(IndexRecord({Block(3 * kBlock, 4), Block(3 * kBlock, 2)}), result_, true);
  EXPECT_TRUE(SetBits(result_).empty());
}

TEST_F(MarkIndexedBlocksTest, OverlayOnlyLeavesBitsAlreadySet) {
  result_.Set(9);
  MarkIndexedBlocks(IndexRecord({Block(9 * kBlock), Block(9 * kBlock, 2), Block(1 * kBlock)}), result_, true);
  EXPECT_EQ(SetBits(result_), (std::vector<uint64_t>{9}));
}

TEST_F(MarkIndexedBlocksTest, SeveralPagesOfDescriptorsInBothModes) {
  // 1200 descriptors over three pages (508 a page): blocks 0..999 once, then
  // 200 overlays of blocks 400..599, which straddle the first page boundary
  // in the second pass.
  std::vector<Descriptor> descriptors;
  for (uint64_t b = 0; b < 1000; ++b) descriptors.push_back(Block(b * kBlock + (b == 0 ? 0x200 : 0)));
  for (uint64_t b = 400; b < 600; ++b) descriptors.push_back(Block(b * kBlock, 2));
  auto record = IndexRecord(descriptors);
  ASSERT_EQ(record->PageCount(), 3u);

  MarkIndexedBlocks(record, result_, false);
  std::vector<uint64_t> all;
  for (uint64_t b = 0; b < 1000; ++b) all.push_back(b);
  EXPECT_EQ(SetBits(result_), all);
  EXPECT_EQ(DrainErrors(), Closing());

  BitMap overlays(512);
  MarkIndexedBlocks(record, overlays, true);
  std::vector<uint64_t> twice;
  for (uint64_t b = 400; b < 600; ++b) twice.push_back(b);
  EXPECT_EQ(SetBits(overlays), twice);
  EXPECT_EQ(DrainErrors(), Closing());
}

TEST_F(MarkIndexedBlocksTest, RecordFullToItsLastPageEndsAtTheRecordsEnd) {
  std::vector<Descriptor> descriptors;
  for (uint64_t i = 0; i < 2 * kDescriptorsPerPage; ++i) descriptors.push_back(Block((i % 4000) * kBlock));
  auto record = IndexRecord(descriptors);
  ASSERT_EQ(record->PageCount(), 2u);
  writer_.Source()->ForgetCalls();
  MarkIndexedBlocks(record, result_, false);
  EXPECT_EQ(SetBits(result_).size(), 2 * kDescriptorsPerPage);
  // Every descriptor read, then one more read past the record that fails
  // without a source read.
  EXPECT_EQ(writer_.Source()->ReadCount(), 2 * kDescriptorsPerPage);
  EXPECT_EQ(DrainErrors(), Closing());
}

TEST_F(MarkIndexedBlocksTest, UnreadableDescriptorEndsTheWalkWithBitsSoFar) {
  auto record = IndexRecord({Block(1 * kBlock), Block(2 * kBlock), Block(3 * kBlock)});
  writer_.Source()->FailReadsAt(record->Pages()[0] + 128 + 64);
  MarkIndexedBlocks(record, result_, false);
  EXPECT_EQ(SetBits(result_), (std::vector<uint64_t>{1, 2}));
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(1, "Failed to read page data."),
                                                     Record(1, "Failed to read index record")}));
}

}  // namespace
