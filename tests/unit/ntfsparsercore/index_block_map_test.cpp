#include "ntfsparsercore/index_block_map.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "ntfsparsercore/attributes/readers/readers_factory.h"
#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/memory_source.h"
#include "tests/fixtures/memory_volume.h"
#include "tests/fixtures/ntfs_builder.h"

using tolvarcommon::ErrorRecord;

namespace {

using ntfsparsercore::Attribute;
using ntfsparsercore::AttributeRecord;
using ntfsparsercore::IndexBlockMap;
using ntfsparsercore::attributes::readers::ReadersFactory;
using tolvartest::AttributeFields;
using tolvartest::Bytes;
using tolvartest::DrainErrors;
using tolvartest::IndexBlockBytes;
using tolvartest::IndexEntryBytes;
using tolvartest::MemorySource;
using tolvartest::MemoryVolume;
using tolvartest::Record;

constexpr uint64_t kBlock = 4096;
constexpr uint64_t kFirstLcn = 2;
constexpr uint32_t kHasSubNode = 0x01;
constexpr uint32_t kLast = 0x02;

class IndexBlockMapTest : public tolvartest::QueueTest {
 protected:
  // An index allocation of the given blocks, stored contiguously from
  // cluster kFirstLcn of the volume.
  std::vector<std::shared_ptr<Attribute>> Allocation(const std::vector<Bytes>& blocks) {
    for (std::size_t i = 0; i < blocks.size(); ++i) volume_.Put((kFirstLcn + i) * kBlock, blocks[i]);
    AttributeFields fields;
    fields.type = 0xA0;
    fields.name = "$I30";
    fields.nonResident = true;
    fields.dataSize = blocks.size() * kBlock;
    fields.allocatedSize = fields.dataSize;
    fields.mappingPairs = tolvartest::MappingPairs({{blocks.size(), static_cast<int64_t>(kFirstLcn), 1, 1}});
    auto record =
        std::make_shared<AttributeRecord>(std::make_shared<MemorySource>(tolvartest::AttributeBytes(fields)), 0);
    return {std::make_shared<Attribute>(factory_, Attribute::RecordList{record})};
  }

  std::vector<uint64_t> WalkFrom(const IndexBlockMap& map, uint64_t vcn) {
    std::vector<uint64_t> numbers;
    map.Walk(map.Find(vcn), &numbers);
    return numbers;
  }

  MemoryVolume volume_{Bytes(), 512, 4096};
  std::shared_ptr<ReadersFactory> factory_ = std::make_shared<ReadersFactory>(&volume_);
};

TEST_F(IndexBlockMapTest, BlocksAreFiledByTheirVcnAndWalkedInIndexOrder) {
  // Block 0 (VCN 0) is the node; block 1 (VCN 8) is the leaf under its second entry.
  const Bytes node = IndexBlockBytes(
      kBlock, 512, 0, {IndexEntryBytes(40, 0), IndexEntryBytes(41, kHasSubNode, 8), IndexEntryBytes(0, kLast)});
  const Bytes leaf =
      IndexBlockBytes(kBlock, 512, 8, {IndexEntryBytes(50, 0), IndexEntryBytes(51, 0), IndexEntryBytes(0, kLast)});
  IndexBlockMap map(&volume_, Allocation({node, leaf}), kBlock);
  EXPECT_EQ(map.GetBlockCount(), 2u);
  EXPECT_EQ(WalkFrom(map, 0), (std::vector<uint64_t>{40, 50, 51, 41}));
  EXPECT_EQ(WalkFrom(map, 8), (std::vector<uint64_t>{50, 51}));
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(IndexBlockMapTest, EntryWithFlagsThreeWalksItsSubNodeThenEndsTheBlockWithoutListingAFile) {
  const Bytes node =
      IndexBlockBytes(kBlock, 512, 0, {IndexEntryBytes(40, 0), IndexEntryBytes(99, kHasSubNode | kLast, 8)});
  const Bytes leaf = IndexBlockBytes(kBlock, 512, 8, {IndexEntryBytes(50, 0), IndexEntryBytes(0, kLast)});
  IndexBlockMap map(&volume_, Allocation({node, leaf}), kBlock);
  EXPECT_EQ(WalkFrom(map, 0), (std::vector<uint64_t>{40, 50}));
}

TEST_F(IndexBlockMapTest, AllZeroBlockIsReportedOnceAndTheOtherBlocksAreListed) {
  const Bytes first =
      IndexBlockBytes(kBlock, 512, 0, {IndexEntryBytes(40, kHasSubNode, 16), IndexEntryBytes(0, kLast)});
  const Bytes third = IndexBlockBytes(kBlock, 512, 16, {IndexEntryBytes(60, 0), IndexEntryBytes(0, kLast)});
  IndexBlockMap map(&volume_, Allocation({first, Bytes(kBlock, 0), third}), kBlock);
  EXPECT_EQ(map.GetBlockCount(), 2u);
  EXPECT_EQ(DrainErrors(),
            (std::vector<ErrorRecord>{Record(3, "Unexpected record type. Was expected(1480871497), actual(0)")}));
  EXPECT_EQ(WalkFrom(map, 0), (std::vector<uint64_t>{60, 40}));
}

TEST_F(IndexBlockMapTest, SubNodeEntriesAcrossASectorBoundaryAreReadFixedUp) {
  // Enough entries to cross the first sector end, whose bytes the fix-up restores.
  std::vector<Bytes> entries;
  for (uint64_t i = 0; i < 40; ++i) entries.push_back(IndexEntryBytes(100 + i, 0));
  entries.push_back(IndexEntryBytes(0, kLast));
  IndexBlockMap map(&volume_, Allocation({IndexBlockBytes(kBlock, 512, 0, entries)}), kBlock);
  std::vector<uint64_t> expected;
  for (uint64_t i = 0; i < 40; ++i) expected.push_back(100 + i);
  EXPECT_EQ(WalkFrom(map, 0), expected);
}

TEST_F(IndexBlockMapTest, VcnMetTwiceKeepsTheLaterBlock) {
  const Bytes a = IndexBlockBytes(kBlock, 512, 4, {IndexEntryBytes(1, 0), IndexEntryBytes(0, kLast)});
  const Bytes b = IndexBlockBytes(kBlock, 512, 4, {IndexEntryBytes(2, 0), IndexEntryBytes(0, kLast)});
  IndexBlockMap map(&volume_, Allocation({a, b}), kBlock);
  EXPECT_EQ(map.GetBlockCount(), 1u);
  EXPECT_EQ(WalkFrom(map, 4), (std::vector<uint64_t>{2}));
}

TEST_F(IndexBlockMapTest, UnknownSubNodeVcnWalksNothing) {
  const Bytes node = IndexBlockBytes(kBlock, 512, 0, {IndexEntryBytes(40, kHasSubNode, 77), IndexEntryBytes(0, kLast)});
  IndexBlockMap map(&volume_, Allocation({node}), kBlock);
  EXPECT_EQ(WalkFrom(map, 0), (std::vector<uint64_t>{40}));
  std::vector<uint64_t> none;
  map.Walk(nullptr, &none);
  EXPECT_TRUE(none.empty());
}

TEST_F(IndexBlockMapTest, BlockPointingAtItselfIsNotWalkedAgain) {
  const Bytes node = IndexBlockBytes(
      kBlock, 512, 0, {IndexEntryBytes(40, kHasSubNode, 0), IndexEntryBytes(41, 0), IndexEntryBytes(0, kLast)});
  IndexBlockMap map(&volume_, Allocation({node}), kBlock);
  EXPECT_EQ(WalkFrom(map, 0), (std::vector<uint64_t>{40, 41}));
}

TEST_F(IndexBlockMapTest, TwoBlocksPointingAtEachOtherEndTheWalk) {
  const Bytes a = IndexBlockBytes(kBlock, 512, 0, {IndexEntryBytes(1, kHasSubNode, 8), IndexEntryBytes(0, kLast)});
  const Bytes b = IndexBlockBytes(kBlock, 512, 8, {IndexEntryBytes(2, kHasSubNode, 0), IndexEntryBytes(0, kLast)});
  IndexBlockMap map(&volume_, Allocation({a, b}), kBlock);
  EXPECT_EQ(WalkFrom(map, 0), (std::vector<uint64_t>{2, 1}));
}

TEST_F(IndexBlockMapTest, BlockReferredToTwiceIsWalkedOnceInsteadOfMultiplyingTheWalk) {
  // Forty blocks, each pointing twice at the next: walked again at every
  // reference this would take 2^40 steps.
  const uint64_t count = 40;
  std::vector<Bytes> blocks;
  for (uint64_t i = 0; i < count; ++i) {
    std::vector<Bytes> entries;
    if (i + 1 < count) {
      entries = {IndexEntryBytes(100 + i, kHasSubNode, (i + 1) * 8),
                 IndexEntryBytes(200 + i, kHasSubNode | kLast, (i + 1) * 8)};
    } else {
      entries = {IndexEntryBytes(100 + i, 0), IndexEntryBytes(0, kLast)};
    }
    blocks.push_back(IndexBlockBytes(kBlock, 512, i * 8, entries));
  }
  IndexBlockMap map(&volume_, Allocation(blocks), kBlock);
  const std::vector<uint64_t> numbers = WalkFrom(map, 0);
  std::vector<uint64_t> expected;
  for (uint64_t i = count; i-- > 0;) expected.push_back(100 + i);
  EXPECT_EQ(numbers, expected);
}

TEST_F(IndexBlockMapTest, EntryOfLengthZeroIsListedOnceAndEndsTheBlock) {
  Bytes entry = IndexEntryBytes(40, 0);
  tolvartest::PutLe16(&entry, 8, 0);
  IndexBlockMap map(&volume_, Allocation({IndexBlockBytes(kBlock, 512, 0, {entry, IndexEntryBytes(41, 0)})}), kBlock);
  EXPECT_EQ(WalkFrom(map, 0), (std::vector<uint64_t>{40}));
}

TEST_F(IndexBlockMapTest, AllocationSizePastTheStoredBlocksEndsAtTheFirstUnreadableBlock) {
  const Bytes node = IndexBlockBytes(kBlock, 512, 0, {IndexEntryBytes(40, 0), IndexEntryBytes(0, kLast)});
  Allocation({node});  // stores the block on the volume
  // A damaged size claims a million blocks; only the first is stored.
  AttributeFields fields;
  fields.type = 0xA0;
  fields.nonResident = true;
  fields.dataSize = kBlock << 20;
  fields.mappingPairs = tolvartest::MappingPairs({{1, static_cast<int64_t>(kFirstLcn), 1, 1}});
  volume_.Bytes().resize((kFirstLcn + 1) * kBlock);
  auto record =
      std::make_shared<AttributeRecord>(std::make_shared<MemorySource>(tolvartest::AttributeBytes(fields)), 0);
  IndexBlockMap map(&volume_, {std::make_shared<Attribute>(factory_, Attribute::RecordList{record})}, kBlock);
  EXPECT_EQ(map.GetBlockCount(), 1u);
  EXPECT_EQ(WalkFrom(map, 0), (std::vector<uint64_t>{40}));
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(3, "MultiSectorHeader read failed")}));
}

TEST_F(IndexBlockMapTest, NoAllocationOrBlockSizeZeroGivesAnEmptyMap) {
  IndexBlockMap none(&volume_, {}, kBlock);
  EXPECT_EQ(none.GetBlockCount(), 0u);
  const Bytes node = IndexBlockBytes(kBlock, 512, 0, {IndexEntryBytes(0, kLast)});
  IndexBlockMap zero(&volume_, Allocation({node}), 0);
  EXPECT_EQ(zero.GetBlockCount(), 0u);
  EXPECT_TRUE(DrainErrors().empty());
}

}  // namespace

namespace {

TEST_F(IndexBlockMapTest, HugeSparseAllocationIsTriedOnlyUpToTheVolumeSize) {
  const Bytes node = IndexBlockBytes(kBlock, 512, 0, {IndexEntryBytes(40, 0), IndexEntryBytes(0, kLast)});
  Allocation({node});
  volume_.Bytes().resize(16 * kBlock);  // a volume of 16 blocks
  // One stored block, then a sparse run of 2^40 blocks: read as zeros,
  // each would be tried and reported.
  AttributeFields fields;
  fields.type = 0xA0;
  fields.nonResident = true;
  fields.dataSize = (uint64_t{1} << 40) * kBlock;
  fields.mappingPairs =
      tolvartest::MappingPairs({{1, static_cast<int64_t>(kFirstLcn), 1, 1}, {uint64_t{1} << 40, 0, 8, 0}});
  auto record =
      std::make_shared<AttributeRecord>(std::make_shared<MemorySource>(tolvartest::AttributeBytes(fields)), 0);
  IndexBlockMap map(&volume_, {std::make_shared<Attribute>(factory_, Attribute::RecordList{record})}, kBlock);
  EXPECT_EQ(map.GetBlockCount(), 1u);
  EXPECT_EQ(WalkFrom(map, 0), (std::vector<uint64_t>{40}));
  // Blocks 1 to 15 of the volume's size are tried; nothing past it.
  EXPECT_EQ(DrainErrors(),
            std::vector<ErrorRecord>(15, Record(3, "Unexpected record type. Was expected(1480871497), actual(0)")));
}

}  // namespace
