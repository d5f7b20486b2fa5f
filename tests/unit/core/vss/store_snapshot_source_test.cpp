#include "core/vss/store_snapshot_source.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "core/vss/store_block_map.h"
#include "core/vss/store_layer.h"
#include "tests/fixtures/fault_source.h"
#include "tests/fixtures/memory_source.h"

namespace {

namespace format = tolvarcore::vss::format;
using tolvarcore::vss::BlockDescriptor;
using tolvarcore::vss::StoreBlockMap;
using tolvarcore::vss::StoreLayer;
using tolvarcore::vss::StoreLayers;
using tolvarcore::vss::StoreSnapshotSource;

constexpr uint64_t kBlock = format::kBlockSize;
constexpr uint64_t kSector = 512;
constexpr uint64_t kVolumeBlocks = 64;
constexpr uint64_t kVolumeSize = kVolumeBlocks * kBlock;

BlockDescriptor Plain(uint64_t block, uint64_t dataBlock, uint32_t flags = 0) {
  BlockDescriptor descriptor;
  descriptor.originalOffset = block * kBlock;
  descriptor.relativeOffset = dataBlock * kBlock + 0x100000;
  descriptor.storeDataOffset = dataBlock * kBlock;
  descriptor.flags = flags;
  return descriptor;
}

BlockDescriptor Forwarder(uint64_t block, uint64_t targetBlock) {
  BlockDescriptor descriptor;
  descriptor.originalOffset = block * kBlock;
  descriptor.relativeOffset = targetBlock * kBlock;
  descriptor.flags = format::kDescriptorFlagForwarder;
  return descriptor;
}

BlockDescriptor Overlay(uint64_t block, uint64_t dataBlock, uint32_t bitmap) {
  BlockDescriptor descriptor = Plain(block, dataBlock, format::kDescriptorFlagOverlay);
  descriptor.relativeOffset = 1;
  descriptor.allocationBitmap = bitmap;
  return descriptor;
}

// A bitmap over the whole test volume with the given blocks set.
std::vector<uint8_t> Bitmap(const std::vector<uint64_t>& blocks) {
  std::vector<uint8_t> bytes(kVolumeBlocks / 8, 0);
  for (uint64_t block : blocks) bytes[block / 8] |= static_cast<uint8_t>(1u << (block % 8));
  return bytes;
}

StoreLayer Layer(const std::vector<BlockDescriptor>& blockList, std::vector<uint8_t> current = {}) {
  StoreLayer layer;
  layer.blockMap = std::make_shared<StoreBlockMap>(blockList);
  layer.unusedBitmap = StoreLayer::UnusedBlocks(std::move(current), false, {});
  return layer;
}

StoreLayer LayerWithPrevious(const std::vector<BlockDescriptor>& blockList, std::vector<uint8_t> current,
                             const std::vector<uint8_t>& previous) {
  StoreLayer layer = Layer(blockList);
  layer.unusedBitmap = StoreLayer::UnusedBlocks(std::move(current), true, previous);
  return layer;
}

// An in-memory volume whose bytes tell their offset; blocks 40 and up play
// the store's data blocks.
class StoreSnapshotSourceTest : public testing::Test {
 protected:
  StoreSnapshotSourceTest()
      : volume_(std::make_shared<tolvartest::FaultSource>(tolvartest::PatternBytes(kVolumeSize))),
        original_(volume_->Bytes()) {}

  std::unique_ptr<StoreSnapshotSource> View(std::vector<StoreLayer> layers, std::size_t index,
                                            uint64_t size = kVolumeSize) {
    auto stores = std::make_shared<const StoreLayers>(std::move(layers));
    return std::make_unique<StoreSnapshotSource>(volume_, stores, index, size);
  }

  static std::vector<uint8_t> ReadOf(StoreSnapshotSource& view, uint64_t offset, uint64_t size) {
    std::vector<uint8_t> bytes(size, 0xEE);
    bytes.resize(view.Read(bytes.data(), size, offset));
    return bytes;
  }

  // The bytes that view's Map names for size bytes from offset, taken from
  // the volume as it was.
  std::vector<uint8_t> MapOf(const StoreSnapshotSource& view, uint64_t offset, uint64_t size) const {
    std::vector<uint8_t> bytes;
    for (const StoreSnapshotSource::Stretch& stretch : view.Map(size, offset)) {
      const std::vector<uint8_t> part = stretch.zeros ? Zeros(stretch.size) : VolumeAt(stretch.at, stretch.size);
      bytes.insert(bytes.end(), part.begin(), part.end());
    }
    return bytes;
  }

  // size volume bytes from offset, as the volume held them.
  std::vector<uint8_t> VolumeAt(uint64_t offset, uint64_t size) const {
    return std::vector<uint8_t>(original_.begin() + offset, original_.begin() + offset + size);
  }
  std::vector<uint8_t> VolumeBlock(uint64_t block) const { return VolumeAt(block * kBlock, kBlock); }

  static std::vector<uint8_t> Zeros(uint64_t size) { return std::vector<uint8_t>(size, 0); }

  static std::vector<uint8_t> Join(std::vector<std::vector<uint8_t>> parts) {
    std::vector<uint8_t> joined;
    for (const auto& part : parts) joined.insert(joined.end(), part.begin(), part.end());
    return joined;
  }

  std::shared_ptr<tolvartest::FaultSource> volume_;
  std::vector<uint8_t> original_;
};

TEST_F(StoreSnapshotSourceTest, UnmappedBlocksReadTheCurrentVolume) {
  auto view = View({Layer({}), Layer({})}, 0);
  EXPECT_EQ(ReadOf(*view, 5 * kBlock, kBlock), VolumeBlock(5));
  EXPECT_EQ(ReadOf(*view, 0, kVolumeSize), original_);
}

TEST_F(StoreSnapshotSourceTest, GetSizeIsTheViewSize) {
  EXPECT_EQ(View({Layer({})}, 0)->GetSize(), kVolumeSize);
  EXPECT_EQ(View({Layer({})}, 0, 12345)->GetSize(), 12345u);
}

TEST_F(StoreSnapshotSourceTest, PlainDescriptorReadsItsStoreDataBlock) {
  auto view = View({Layer({Plain(5, 40)})}, 0);
  EXPECT_EQ(ReadOf(*view, 5 * kBlock, kBlock), VolumeBlock(40));
  EXPECT_EQ(ReadOf(*view, 6 * kBlock, kBlock), VolumeBlock(6));
  EXPECT_EQ(volume_->Calls().front(), (tolvartest::FaultSource::ReadCall{40 * kBlock, kBlock}));
}

TEST_F(StoreSnapshotSourceTest, OwnStoreWinsOverNewerStores) {
  auto view = View({Layer({Plain(5, 40)}), Layer({Plain(5, 41)})}, 0);
  EXPECT_EQ(ReadOf(*view, 5 * kBlock, kBlock), VolumeBlock(40));
}

TEST_F(StoreSnapshotSourceTest, BlockNotKeptByOwnStoreComesFromTheFirstNewerStoreThatKeptIt) {
  std::vector<StoreLayer> layers = {Layer({Plain(1, 40)}), Layer({Plain(5, 41)}), Layer({Plain(5, 42), Plain(6, 43)})};
  auto oldest = View(layers, 0);
  EXPECT_EQ(ReadOf(*oldest, 5 * kBlock, kBlock), VolumeBlock(41));
  EXPECT_EQ(ReadOf(*oldest, 6 * kBlock, kBlock), VolumeBlock(43));
  EXPECT_EQ(ReadOf(*oldest, 7 * kBlock, kBlock), VolumeBlock(7));
  auto newest = View(layers, 2);
  EXPECT_EQ(ReadOf(*newest, 1 * kBlock, kBlock), VolumeBlock(1));
  EXPECT_EQ(ReadOf(*newest, 5 * kBlock, kBlock), VolumeBlock(42));
}

TEST_F(StoreSnapshotSourceTest, ForwarderContinuesAtTheNextStoreWithItsTargetBlock) {
  auto view = View({Layer({Forwarder(5, 9)}), Layer({Plain(9, 41)})}, 0);
  EXPECT_EQ(ReadOf(*view, 5 * kBlock, kBlock), VolumeBlock(41));
}

TEST_F(StoreSnapshotSourceTest, ForwarderToAnUnalignedTargetSpansTwoBlocksOfTheNextStore) {
  BlockDescriptor forwarder = Forwarder(5, 9);
  forwarder.relativeOffset += kSector;
  auto view = View({Layer({forwarder}), Layer({Plain(9, 41), Plain(10, 42)})}, 0);
  EXPECT_EQ(ReadOf(*view, 5 * kBlock, kBlock),
            Join({VolumeAt(41 * kBlock + kSector, kBlock - kSector), VolumeAt(42 * kBlock, kSector)}));
}

TEST_F(StoreSnapshotSourceTest, ForwarderToABlockTheNextStoreDoesNotKeepReadsTheVolumeAtTheTarget) {
  auto view = View({Layer({Forwarder(5, 9)}), Layer({})}, 0);
  EXPECT_EQ(ReadOf(*view, 5 * kBlock, kBlock), VolumeBlock(9));
}

TEST_F(StoreSnapshotSourceTest, ForwarderInTheNewestStoreReadsTheVolumeAtItsTarget) {
  auto view = View({Layer({}), Layer({Forwarder(5, 9), Plain(9, 41, format::kDescriptorFlagNotUsed)})}, 0);
  EXPECT_EQ(ReadOf(*view, 5 * kBlock, kBlock), VolumeBlock(9));
}

TEST_F(StoreSnapshotSourceTest, ForwarderChainAcrossStoresIsFollowedToTheEnd) {
  std::vector<StoreLayer> layers = {Layer({Forwarder(5, 9)}), Layer({Forwarder(9, 12)}), Layer({Plain(12, 42)})};
  EXPECT_EQ(ReadOf(*View(layers, 0), 5 * kBlock, kBlock), VolumeBlock(42));
  EXPECT_EQ(ReadOf(*View(layers, 1), 9 * kBlock, kBlock), VolumeBlock(42));
  EXPECT_EQ(ReadOf(*View(layers, 1), 5 * kBlock, kBlock), VolumeBlock(5));
}

TEST_F(StoreSnapshotSourceTest, ForwarderCycleAcrossStoresEnds) {
  std::vector<StoreLayer> layers = {Layer({Forwarder(5, 9)}), Layer({Forwarder(9, 5)})};
  EXPECT_EQ(ReadOf(*View(layers, 0), 5 * kBlock, kBlock), VolumeBlock(5));
  EXPECT_EQ(ReadOf(*View(layers, 1), 9 * kBlock, kBlock), VolumeBlock(5));
}

TEST_F(StoreSnapshotSourceTest, ForwarderCycleInsideOneStoreEnds) {
  auto view = View({Layer({Forwarder(5, 9), Forwarder(9, 5)}), Layer({Plain(9, 41), Plain(5, 42)})}, 0);
  // The cycle folds into 5 -> 9; block 9 is not kept by the older store.
  EXPECT_EQ(ReadOf(*view, 5 * kBlock, kBlock), VolumeBlock(41));
  EXPECT_EQ(ReadOf(*view, 9 * kBlock, kBlock), VolumeBlock(41));
}

TEST_F(StoreSnapshotSourceTest, ForwarderTargetDescribedInTheSameStoreReadsItsDataForTheOrigin) {
  auto view = View({Layer({Forwarder(5, 9), Plain(9, 40)}), Layer({Plain(9, 41)})}, 0);
  EXPECT_EQ(ReadOf(*view, 5 * kBlock, kBlock), VolumeBlock(40));
  EXPECT_EQ(ReadOf(*view, 9 * kBlock, kBlock), VolumeBlock(41));
}

TEST_F(StoreSnapshotSourceTest, NotUsedDescriptorLeavesTheBlockToNewerStoresAndTheVolume) {
  std::vector<StoreLayer> layers = {Layer({Plain(5, 40, format::kDescriptorFlagNotUsed)}), Layer({Plain(5, 41)})};
  EXPECT_EQ(ReadOf(*View(layers, 0), 5 * kBlock, kBlock), VolumeBlock(41));
  auto alone = View({Layer({Plain(5, 40, format::kDescriptorFlagNotUsed)})}, 0);
  EXPECT_EQ(ReadOf(*alone, 5 * kBlock, kBlock), VolumeBlock(5));
}

TEST_F(StoreSnapshotSourceTest, OverlayAloneSuppliesItsSectorsOverTheLayersBelow) {
  // Sectors 0-1 and 31 kept by the overlay; the rest from the newer store.
  auto view = View({Layer({Overlay(5, 40, 0x80000003)}), Layer({Plain(5, 41)})}, 0);
  EXPECT_EQ(ReadOf(*view, 5 * kBlock, kBlock),
            Join({VolumeAt(40 * kBlock, 2 * kSector), VolumeAt(41 * kBlock + 2 * kSector, 29 * kSector),
                  VolumeAt(40 * kBlock + 31 * kSector, kSector)}));
}

TEST_F(StoreSnapshotSourceTest, OverlayAfterPlainSuppliesItsSectorsOverThePlainData) {
  auto view = View({Layer({Plain(5, 40), Overlay(5, 41, 0x00000F00)})}, 0);
  EXPECT_EQ(ReadOf(*view, 5 * kBlock, kBlock),
            Join({VolumeAt(40 * kBlock, 8 * kSector), VolumeAt(41 * kBlock + 8 * kSector, 4 * kSector),
                  VolumeAt(40 * kBlock + 12 * kSector, 20 * kSector)}));
}

TEST_F(StoreSnapshotSourceTest, PlainAfterOverlayKeepsTheOverlaySectors) {
  auto view = View({Layer({Overlay(5, 41, 0x00000001), Plain(5, 40)})}, 0);
  EXPECT_EQ(ReadOf(*view, 5 * kBlock, kBlock),
            Join({VolumeAt(41 * kBlock, kSector), VolumeAt(40 * kBlock + kSector, kBlock - kSector)}));
}

TEST_F(StoreSnapshotSourceTest, OverlaysWithJoinedBitmapsReadTheFirstOverlaysData) {
  auto view = View({Layer({Overlay(5, 40, 0x1), Overlay(5, 41, 0x4)})}, 0);
  EXPECT_EQ(ReadOf(*view, 5 * kBlock, 3 * kSector),
            Join({VolumeAt(40 * kBlock, kSector), VolumeAt(5 * kBlock + kSector, kSector),
                  VolumeAt(40 * kBlock + 2 * kSector, kSector)}));
}

TEST_F(StoreSnapshotSourceTest, OverlaysOfANewerStoreAreIgnoredWhenReadingAnOlderView) {
  std::vector<StoreLayer> layers = {Layer({}),
                                    Layer({Overlay(5, 40, 0xFFFFFFFF), Plain(6, 41), Overlay(6, 42, 0xFFFFFFFF)})};
  auto older = View(layers, 0);
  EXPECT_EQ(ReadOf(*older, 5 * kBlock, kBlock), VolumeBlock(5));
  EXPECT_EQ(ReadOf(*older, 6 * kBlock, kBlock), VolumeBlock(41));
  auto own = View(layers, 1);
  EXPECT_EQ(ReadOf(*own, 5 * kBlock, kBlock), VolumeBlock(40));
  EXPECT_EQ(ReadOf(*own, 6 * kBlock, kBlock), VolumeBlock(42));
}

TEST_F(StoreSnapshotSourceTest, ReadStartingInsideASectorUsesTheBitOfTheNextSector) {
  // Sector 0 is kept, sector 1 is not: a read from byte 100 is judged by
  // sector 1 and runs to the end of the clear bits.
  auto view = View({Layer({Overlay(5, 40, 0x00000001)})}, 0);
  const uint64_t start = 5 * kBlock + 100;
  EXPECT_EQ(ReadOf(*view, start, 600), VolumeAt(start, 600));
  // Sector 1 kept: its run is 512 bytes long counted from byte 100.
  auto other = View({Layer({Overlay(5, 40, 0x00000002)})}, 0);
  EXPECT_EQ(ReadOf(*other, start, 600), Join({VolumeAt(40 * kBlock + 100, 512), VolumeAt(start + 512, 88)}));
}

TEST_F(StoreSnapshotSourceTest, ReadStartingPastTheFirstByteOfTheLastOverlaySectorRunsOn128KiB) {
  // Blocks 6 and 7 are kept as plain descriptors, but the piece that starts
  // inside the last sector of block 5 covers 128 KiB from the volume.
  auto view = View({Layer({Overlay(5, 40, 0xFFFFFFFF), Plain(6, 41), Plain(7, 42)})}, 0);
  const uint64_t start = 5 * kBlock + 31 * kSector + 10;
  EXPECT_EQ(ReadOf(*view, start, 2 * kBlock), VolumeAt(start, 2 * kBlock));
  // Starting at the sector's first byte reads it from the overlay.
  const uint64_t sectorStart = 5 * kBlock + 31 * kSector;
  EXPECT_EQ(ReadOf(*view, sectorStart, kSector + kBlock),
            Join({VolumeAt(40 * kBlock + 31 * kSector, kSector), VolumeBlock(41)}));
}

TEST_F(StoreSnapshotSourceTest, NewestViewReadsZerosWhereItsCurrentBitmapMarksTheBlockUnused) {
  auto view = View({Layer({}), Layer({Plain(7, 41)}, Bitmap({5, 7}))}, 1);
  EXPECT_EQ(ReadOf(*view, 5 * kBlock, kBlock), Zeros(kBlock));
  EXPECT_EQ(ReadOf(*view, 6 * kBlock, kBlock), VolumeBlock(6));
  EXPECT_EQ(ReadOf(*view, 7 * kBlock, kBlock), VolumeBlock(41));
}

TEST_F(StoreSnapshotSourceTest, PreviousBitmapMustAlsoMarkTheBlockForZeros) {
  auto view = View({LayerWithPrevious({}, Bitmap({5, 6}), Bitmap({6, 8}))}, 0);
  EXPECT_EQ(ReadOf(*view, 5 * kBlock, kBlock), VolumeBlock(5));
  EXPECT_EQ(ReadOf(*view, 6 * kBlock, kBlock), Zeros(kBlock));
  EXPECT_EQ(ReadOf(*view, 8 * kBlock, kBlock), VolumeBlock(8));
}

TEST_F(StoreSnapshotSourceTest, DeclaredPreviousBitmapThatIsEmptyPreventsZeros) {
  auto view = View({LayerWithPrevious({}, Bitmap({5}), {})}, 0);
  EXPECT_EQ(ReadOf(*view, 5 * kBlock, kBlock), VolumeBlock(5));
}

TEST_F(StoreSnapshotSourceTest, OlderViewsNeverReadZeros) {
  std::vector<StoreLayer> layers = {Layer({}, Bitmap({5})), Layer({}, Bitmap({5}))};
  EXPECT_EQ(ReadOf(*View(layers, 0), 5 * kBlock, kBlock), VolumeBlock(5));
  EXPECT_EQ(ReadOf(*View(layers, 1), 5 * kBlock, kBlock), Zeros(kBlock));
}

TEST_F(StoreSnapshotSourceTest, BlockTargetedByAWaitingForwarderIsNotZeroed) {
  auto view = View({Layer({Forwarder(3, 5)}, Bitmap({3, 5}))}, 0);
  EXPECT_EQ(ReadOf(*view, 5 * kBlock, kBlock), VolumeBlock(5));
  EXPECT_EQ(ReadOf(*view, 3 * kBlock, kBlock), VolumeBlock(5));
}

TEST_F(StoreSnapshotSourceTest, UnkeptSectorsOfAnOverlayAreZeroedWhenTheBlockIsUnused) {
  auto view = View({Layer({Overlay(5, 40, 0x1)}, Bitmap({5}))}, 0);
  EXPECT_EQ(ReadOf(*view, 5 * kBlock, kBlock), Join({VolumeAt(40 * kBlock, kSector), Zeros(kBlock - kSector)}));
}

TEST_F(StoreSnapshotSourceTest, BlocksPastTheBitmapsEndAreNotZeroed) {
  auto view = View({Layer({}, {0xFF})}, 0);
  EXPECT_EQ(ReadOf(*view, 7 * kBlock, kBlock), Zeros(kBlock));
  EXPECT_EQ(ReadOf(*view, 8 * kBlock, kBlock), VolumeBlock(8));
}

TEST_F(StoreSnapshotSourceTest, UnalignedReadAcrossBlockBoundariesJoinsEachBlocksSource) {
  auto view = View({Layer({Plain(5, 40)}), Layer({Plain(6, 41)}, Bitmap({7}))}, 0);
  const uint64_t start = 5 * kBlock + 15000;
  const uint64_t size = 2 * kBlock + 1000;
  EXPECT_EQ(ReadOf(*view, start, size),
            Join({VolumeAt(40 * kBlock + 15000, kBlock - 15000), VolumeBlock(41), VolumeAt(7 * kBlock, 15000 + 1000)}));
  EXPECT_EQ(ReadOf(*view, 5 * kBlock + 3, 7), VolumeAt(40 * kBlock + 3, 7));
}

TEST_F(StoreSnapshotSourceTest, BlocksWhoseDataFollowsOnCostOneVolumeRead) {
  auto view = View({Layer({Plain(5, 40), Plain(6, 41)})}, 0);
  volume_->ForgetCalls();
  ReadOf(*view, 5 * kBlock, 4 * kBlock);
  EXPECT_EQ(volume_->Calls(),
            (std::vector<tolvartest::FaultSource::ReadCall>{{40 * kBlock, 2 * kBlock}, {7 * kBlock, 2 * kBlock}}));
}

TEST_F(StoreSnapshotSourceTest, UnmappedBlocksInARowCostOneVolumeRead) {
  auto view = View({Layer({Plain(5, 40)}), Layer({})}, 0);
  volume_->ForgetCalls();
  EXPECT_EQ(ReadOf(*view, 6 * kBlock, 10 * kBlock), VolumeAt(6 * kBlock, 10 * kBlock));
  EXPECT_EQ(volume_->Calls(), (std::vector<tolvartest::FaultSource::ReadCall>{{6 * kBlock, 10 * kBlock}}));
}

TEST_F(StoreSnapshotSourceTest, ShortReadOfAJoinedRunDeliversWhatSinglePiecesDeliver) {
  auto view = View({Layer({})}, 0);
  volume_->ShortBy(100);
  EXPECT_EQ(ReadOf(*view, 5 * kBlock, 6 * kBlock), VolumeAt(5 * kBlock, kBlock - 100));
  EXPECT_EQ(volume_->Calls().back(), (tolvartest::FaultSource::ReadCall{5 * kBlock, kBlock}));
}

TEST_F(StoreSnapshotSourceTest, ReadFromTheEndOrPastItDeliversNothing) {
  auto view = View({Layer({})}, 0, 10 * kBlock);
  EXPECT_TRUE(ReadOf(*view, 10 * kBlock, 1).empty());
  EXPECT_TRUE(ReadOf(*view, UINT64_MAX, 1).empty());
  EXPECT_TRUE(ReadOf(*view, 0, 0).empty());
}

TEST_F(StoreSnapshotSourceTest, ReadAcrossTheEndIsCutThere) {
  auto view = View({Layer({})}, 0, 10 * kBlock + 100);
  EXPECT_EQ(ReadOf(*view, 10 * kBlock, kBlock), VolumeAt(10 * kBlock, 100));
  std::vector<uint8_t> room(64, 0xEE);
  EXPECT_EQ(view->Read(room.data(), UINT64_MAX, 10 * kBlock + 50), 50u);
  EXPECT_EQ(room[50], 0xEE);
}

TEST_F(StoreSnapshotSourceTest, StoreDataOutsideTheVolumeGivesAShortRead) {
  auto view = View({Layer({Plain(6, kVolumeBlocks + 3)})}, 0);
  EXPECT_EQ(ReadOf(*view, 5 * kBlock, 3 * kBlock), VolumeBlock(5));
  EXPECT_TRUE(ReadOf(*view, 6 * kBlock, kBlock).empty());
}

TEST_F(StoreSnapshotSourceTest, StoreDataOffsetPastTheSignedRangeCannotBeRead) {
  BlockDescriptor far = Plain(6, 40);
  far.storeDataOffset = 0x8000000000000000ull;
  auto view = View({Layer({far})}, 0);
  EXPECT_TRUE(ReadOf(*view, 6 * kBlock, kBlock).empty());
}

TEST_F(StoreSnapshotSourceTest, FailingVolumeReadStopsTheRead) {
  auto view = View({Layer({Plain(6, 40)})}, 0);
  volume_->FailFrom(40 * kBlock);
  EXPECT_EQ(ReadOf(*view, 5 * kBlock, 3 * kBlock), VolumeBlock(5));
}

TEST_F(StoreSnapshotSourceTest, UnusableNewerStoreFailsOnlyReadsThatReachIt) {
  BlockDescriptor bad = Forwarder(9, 10);
  bad.storeDataOffset = 40 * kBlock;
  auto view = View({Layer({Plain(5, 40)}), Layer({bad})}, 0);
  EXPECT_EQ(ReadOf(*view, 5 * kBlock, kBlock), VolumeBlock(40));
  EXPECT_EQ(ReadOf(*view, 4 * kBlock, 2 * kBlock).size(), 0u);
  EXPECT_EQ(ReadOf(*view, 5 * kBlock, 2 * kBlock), VolumeBlock(40));
}

TEST_F(StoreSnapshotSourceTest, StoreWithoutBlockMapCannotBeRead) {
  std::vector<StoreLayer> layers(2);
  layers[1] = Layer({});
  EXPECT_TRUE(ReadOf(*View(layers, 0), 0, kBlock).empty());
  EXPECT_EQ(ReadOf(*View(layers, 1), 0, kBlock), VolumeBlock(0));
}

TEST_F(StoreSnapshotSourceTest, MapNamesTheBytesReadDeliversAtEveryOffset) {
  std::vector<StoreLayer> layers = {Layer({Plain(2, 40), Overlay(3, 41, 0x0000FF0F), Forwarder(4, 9), Plain(5, 42)}),
                                    Layer({Plain(3, 43), Forwarder(9, 12), Overlay(6, 44, 0xF0F0F0F0), Plain(12, 45)}),
                                    Layer({Plain(7, 46), Overlay(8, 47, 0x00000001)}, Bitmap({10, 11, 13, 20, 21}))};
  for (std::size_t index = 0; index < layers.size(); ++index) {
    auto view = View(layers, index);
    for (uint64_t offset = 0; offset < 24 * kBlock; offset += 3000) {
      for (uint64_t size : {uint64_t{1}, uint64_t{700}, kBlock, 3 * kBlock + 123, kVolumeSize}) {
        ASSERT_EQ(MapOf(*view, offset, size), ReadOf(*view, offset, size))
            << "view " << index << ", offset " << offset << ", size " << size;
      }
    }
  }
}

TEST_F(StoreSnapshotSourceTest, MapJoinsStretchesThatContinueOneAnother) {
  auto view = View({Layer({Plain(5, 40), Plain(6, 41)}), Layer({}, Bitmap({20, 21}))}, 1);
  EXPECT_EQ(view->Map(30 * kBlock, 0).size(), 3u);  // volume, zeros, volume
  auto older = View({Layer({Plain(5, 40), Plain(6, 41)}), Layer({})}, 0);
  const auto stretches = older->Map(10 * kBlock, 4 * kBlock);
  ASSERT_EQ(stretches.size(), 3u);
  EXPECT_EQ(stretches[1].at, 40 * kBlock);
  EXPECT_EQ(stretches[1].size, 2 * kBlock);
}

TEST_F(StoreSnapshotSourceTest, MapEndsWhereAnUnusableStoreStopsTheRead) {
  BlockDescriptor bad = Forwarder(9, 10);
  bad.storeDataOffset = 40 * kBlock;
  auto view = View({Layer({Plain(5, 40)}), Layer({bad})}, 0);
  EXPECT_TRUE(view->Map(2 * kBlock, 4 * kBlock).empty());
  EXPECT_EQ(MapOf(*view, 5 * kBlock, 2 * kBlock), VolumeBlock(40));
}

TEST_F(StoreSnapshotSourceTest, MapFromTheEndIsEmptyAndAcrossItIsCut) {
  auto view = View({Layer({})}, 0, 10 * kBlock + 100);
  EXPECT_TRUE(view->Map(1, 10 * kBlock + 100).empty());
  EXPECT_EQ(MapOf(*view, 10 * kBlock, UINT64_MAX), VolumeAt(10 * kBlock, 100));
}

TEST_F(StoreSnapshotSourceTest, IndexPastTheStoresDeliversNothing) {
  auto view = View({Layer({})}, 1);
  EXPECT_TRUE(ReadOf(*view, 0, kBlock).empty());
  EXPECT_EQ(view->GetSize(), kVolumeSize);
}

}  // namespace
