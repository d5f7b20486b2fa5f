#include "core/bit_map_processor.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "core/vss/records/catalog.h"
#include "core/vss/snapshot_sequence.h"
#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/vss_store_builder.h"

using tolvarcommon::ErrorRecord;

namespace {

using tolvarcore::BitMap;
using tolvarcore::BitMapProcessor;
using tolvarcore::vss::BuildSnapshotList;
using tolvarcore::vss::Snapshot;
using tolvarcore::vss::SnapshotList;
using tolvarcore::vss::VssVolume;
using tolvarcore::vss::records::Catalog;
using tolvartest::DrainErrors;
using tolvartest::Record;
using namespace tolvartest::vss;

std::vector<uint8_t> Bytes(const BitMap* map) {
  std::vector<uint8_t> bytes(map->SizeInBytes());
  map->CopyOut(bytes.data());
  return bytes;
}

class BitMapProcessorTest : public tolvartest::QueueTest {
 protected:
  // Snapshots of a 1 MiB volume: 8 bytes of bitmap, 64 blocks.
  void Build() {
    built_ = BuildStore(spec_, &writer_);
    volume_ = built_.Volume();
    Catalog catalog(volume_->OpenRecord(volume_->GetCatalogOffset()));
    list_ = BuildSnapshotList(catalog);
    snapshots_.assign(list_.begin(), list_.end());
    ASSERT_EQ(snapshots_.size(), spec_.snapshots.size());
  }

  StoreSpec spec_ = [] {
    StoreSpec spec;
    spec.volumeSize = kMiB;
    return spec;
  }();
  StoreWriter writer_{64 * kMiB};  // the store's pages lie beyond the first MiB
  BuiltStore built_;
  std::shared_ptr<VssVolume> volume_;
  SnapshotList list_;
  std::vector<std::shared_ptr<Snapshot>> snapshots_;
  BitMapProcessor processor_;
};

TEST_F(BitMapProcessorTest, SameFirstAndLastWithoutPreviousBitmapInvertsCurrent) {
  spec_.snapshots = {Snap(1, 1)};
  spec_.snapshots[0].bitmapBlocks = {0, 1, 9, 63};
  Build();
  ASSERT_TRUE(processor_.Load(volume_, snapshots_[0], snapshots_[0]));
  EXPECT_EQ(Bytes(processor_.GetCurrent()), (std::vector<uint8_t>{0xFC, 0xFD, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F}));
  EXPECT_EQ(processor_.GetReference(), nullptr);
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(BitMapProcessorTest, AbsentFirstIsLikeTheSameSnapshot) {
  spec_.snapshots = {Snap(1, 1)};
  spec_.snapshots[0].bitmapBlocks = {0};
  Build();
  ASSERT_TRUE(processor_.Load(volume_, nullptr, snapshots_[0]));
  EXPECT_EQ(Bytes(processor_.GetCurrent())[0], 0xFE);
  EXPECT_EQ(processor_.GetReference(), nullptr);
}

TEST_F(BitMapProcessorTest, BitmapsAreVolumeSizeShiftedBy17BytesLong) {
  spec_.volumeSize = kMiB + 131071;  // the partial last byte is cut off
  spec_.snapshots = {Snap(1, 1)};
  Build();
  ASSERT_TRUE(processor_.Load(volume_, nullptr, snapshots_[0]));
  EXPECT_EQ(processor_.GetCurrent()->SizeInBytes(), 8u);
}

TEST_F(BitMapProcessorTest, FirstAndLastCombine) {
  spec_.snapshots = {Snap(1, 1), Snap(2, 2)};
  spec_.snapshots[0].bitmapBlocks = {0, 1, 2, 3};  // first: bits 0-3 set
  spec_.snapshots[1].bitmapBlocks = {2, 3, 4, 5};  // last: bits 2-5 set
  Build();
  ASSERT_TRUE(processor_.Load(volume_, snapshots_[0], snapshots_[1]));
  // current = first AND NOT last = bits 0, 1; reference = NOT first.
  EXPECT_EQ(Bytes(processor_.GetCurrent()), (std::vector<uint8_t>{0x03, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(Bytes(processor_.GetReference()), (std::vector<uint8_t>{0xF0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}));
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(BitMapProcessorTest, PreviousBitmapIsTheReferenceOfASingleSnapshot) {
  spec_.snapshots = {Snap(1, 1)};
  spec_.snapshots[0].bitmapBlocks = {8};
  spec_.snapshots[0].hasPreviousBitmap = true;
  spec_.snapshots[0].previousBitmapBlocks = {8, 9, 16};
  Build();
  ASSERT_TRUE(processor_.Load(volume_, snapshots_[0], snapshots_[0]));
  EXPECT_EQ(Bytes(processor_.GetCurrent()), (std::vector<uint8_t>{0, 0x02, 0x01, 0, 0, 0, 0, 0}));
  EXPECT_EQ(Bytes(processor_.GetReference()), (std::vector<uint8_t>{0xFF, 0xFC, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}));
}

TEST_F(BitMapProcessorTest, FirstSnapshotWinsOverThePreviousBitmap) {
  spec_.snapshots = {Snap(1, 1), Snap(2, 2)};
  spec_.snapshots[0].bitmapBlocks = {1};
  spec_.snapshots[1].hasPreviousBitmap = true;
  spec_.snapshots[1].previousBitmapBlocks = {2};
  Build();
  writer_.Source()->ForgetCalls();
  ASSERT_TRUE(processor_.Load(volume_, snapshots_[0], snapshots_[1]));
  EXPECT_EQ(Bytes(processor_.GetCurrent())[0], 0x02);
  for (const auto& call : writer_.Source()->Calls()) EXPECT_NE(call.offset, built_.offsets[1].previousBitmap);
}

TEST_F(BitMapProcessorTest, AbsentVolumeOrLastFails) {
  spec_.snapshots = {Snap(1, 1)};
  Build();
  EXPECT_FALSE(processor_.Load(nullptr, snapshots_[0], snapshots_[0]));
  EXPECT_FALSE(processor_.Load(volume_, snapshots_[0], nullptr));
  EXPECT_EQ(processor_.GetCurrent(), nullptr);
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(BitMapProcessorTest, LastBitmapRecordShorterThanTheVolumeNeedsFails) {
  // A 4 GiB volume needs 32 KiB of bitmap; its record has one page.
  StoreWriter writer(4096 * kMiB);
  StoreSpec spec;
  spec.volumeSize = 4096 * kMiB;
  spec.snapshots = {Snap(1, 1)};
  spec.snapshots[0].bitmapPages = 1;
  BuiltStore built = BuildStore(spec, &writer);
  auto volume = built.Volume();
  SnapshotList list = BuildSnapshotList(Catalog(volume->OpenRecord(volume->GetCatalogOffset())));
  ASSERT_EQ(list.size(), 1u);
  EXPECT_FALSE(processor_.Load(volume, list.front(), list.front()));
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(1, "Read last vss-bitmap data failed")}));
  ASSERT_NE(processor_.GetCurrent(), nullptr);
  EXPECT_EQ(processor_.GetCurrent()->SizeInBytes(), 32768u);
}

TEST_F(BitMapProcessorTest, UnreadableLastBitmapRecordFails) {
  spec_.snapshots = {Snap(1, 1)};
  Build();
  writer_.Source()->FailReadsAt(built_.offsets[0].bitmap);  // its page header
  EXPECT_FALSE(processor_.Load(volume_, nullptr, snapshots_[0]));
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(1, "Failed to read vss record header"),
                                                     Record(12, "Can't find last page."),
                                                     Record(1, "Read last vss-bitmap data failed")}));
}

TEST_F(BitMapProcessorTest, UnreadableFirstBitmapFails) {
  spec_.snapshots = {Snap(1, 1), Snap(2, 2)};
  Build();
  writer_.Source()->FailReadsAt(built_.offsets[0].bitmap + 128);  // its payload
  EXPECT_FALSE(processor_.Load(volume_, snapshots_[0], snapshots_[1]));
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(1, "Failed to read page data."),
                                                     Record(1, "Read first vss-bitmap data failed")}));
}

TEST_F(BitMapProcessorTest, UnreadablePreviousBitmapFailsWithTheFirstMessage) {
  spec_.snapshots = {Snap(1, 1)};
  spec_.snapshots[0].hasPreviousBitmap = true;
  Build();
  writer_.Source()->FailReadsAt(built_.offsets[0].previousBitmap + 128);
  EXPECT_FALSE(processor_.Load(volume_, snapshots_[0], snapshots_[0]));
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(1, "Failed to read page data."),
                                                     Record(1, "Read first vss-bitmap data failed")}));
}

TEST_F(BitMapProcessorTest, ShorterReferenceCombinesOverItsLengthOnly) {
  spec_.volumeSize = 2 * kMiB;
  spec_.snapshots = {Snap(1, 1), Snap(2, 2)};
  spec_.snapshots[0].volumeSize = kMiB;  // 8 bytes of bitmap against 16
  spec_.snapshots[0].bitmapBlocks = {0};
  spec_.snapshots[1].bitmapBlocks = {1, 100};
  Build();
  ASSERT_TRUE(processor_.Load(volume_, snapshots_[0], snapshots_[1]));
  std::vector<uint8_t> current = Bytes(processor_.GetCurrent());
  ASSERT_EQ(current.size(), 16u);
  EXPECT_EQ(current[0], 0x01);
  EXPECT_EQ(current[12], 0x10);  // block 100, beyond the reference: as read
  EXPECT_EQ(processor_.GetReference()->SizeInBytes(), 8u);
}

TEST_F(BitMapProcessorTest, ApplyOrsTheHeldBitmapsIntoTargets) {
  spec_.snapshots = {Snap(1, 1), Snap(2, 2)};
  spec_.snapshots[0].bitmapBlocks = {0, 1, 2, 3, 40};
  spec_.snapshots[1].bitmapBlocks = {2, 3};
  Build();
  ASSERT_TRUE(processor_.Load(volume_, snapshots_[0], snapshots_[1]));
  BitMap changed(8);
  changed.Set(60);
  processor_.ApplyCurrent(&changed);
  EXPECT_EQ(Bytes(&changed), (std::vector<uint8_t>{0x03, 0, 0, 0, 0, 0x01, 0, 0x10}));
  BitMap comparison(8);
  processor_.ApplyReference(&comparison);
  EXPECT_EQ(Bytes(&comparison), (std::vector<uint8_t>{0xF0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFE, 0xFF, 0xFF}));
}

TEST_F(BitMapProcessorTest, ApplyIgnoresBitsBeyondTheTarget) {
  spec_.snapshots = {Snap(1, 1)};
  Build();
  ASSERT_TRUE(processor_.Load(volume_, nullptr, snapshots_[0]));  // current all set
  BitMap small(2);
  processor_.ApplyCurrent(&small);
  EXPECT_EQ(Bytes(&small), (std::vector<uint8_t>{0xFF, 0xFF}));
  BitMap large(10);
  processor_.ApplyCurrent(&large);
  EXPECT_EQ(Bytes(&large), (std::vector<uint8_t>{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0}));
}

TEST_F(BitMapProcessorTest, ApplyWithAbsentBitmapsDoesNothing) {
  BitMap target(4);
  processor_.ApplyCurrent(&target);
  processor_.ApplyReference(&target);
  EXPECT_EQ(Bytes(&target), (std::vector<uint8_t>{0, 0, 0, 0}));
  spec_.snapshots = {Snap(1, 1)};
  Build();
  ASSERT_TRUE(processor_.Load(volume_, nullptr, snapshots_[0]));
  processor_.ApplyCurrent(nullptr);
  processor_.ApplyReference(&target);  // no reference
  EXPECT_EQ(Bytes(&target), (std::vector<uint8_t>{0, 0, 0, 0}));
}

TEST_F(BitMapProcessorTest, TakenBitmapsHoldWhatApplyWouldSetInAClearMapOfThatSize) {
  spec_.volumeSize = 2 * kMiB;
  spec_.snapshots = {Snap(1, 1), Snap(2, 2)};
  spec_.snapshots[0].volumeSize = kMiB;
  spec_.snapshots[0].bitmapBlocks = {0, 1, 9, 63};
  spec_.snapshots[1].bitmapBlocks = {1, 70, 127};
  Build();
  for (uint64_t size : {1u, 8u, 9u, 16u, 17u}) {
    BitMapProcessor processor;
    ASSERT_TRUE(processor.Load(volume_, snapshots_[0], snapshots_[1]));
    BitMap changed(size);
    BitMap comparison(size);
    processor.ApplyCurrent(&changed);
    processor.ApplyReference(&comparison);
    EXPECT_EQ(Bytes(processor.TakeCurrent(size).get()), Bytes(&changed)) << size;
    EXPECT_EQ(Bytes(processor.TakeReference(size).get()), Bytes(&comparison)) << size;
  }
}

TEST_F(BitMapProcessorTest, AHeldBitmapOfTheWantedSizeIsHandedOver) {
  spec_.snapshots = {Snap(1, 1), Snap(2, 2)};
  Build();
  ASSERT_TRUE(processor_.Load(volume_, snapshots_[0], snapshots_[1]));
  const BitMap* current = processor_.GetCurrent();
  EXPECT_EQ(processor_.TakeCurrent(8).get(), current);
  EXPECT_EQ(processor_.GetCurrent(), nullptr);
  EXPECT_NE(processor_.TakeReference(9).get(), nullptr);
  EXPECT_NE(processor_.GetReference(), nullptr);  // copied, still held
}

TEST_F(BitMapProcessorTest, TakingWithoutAHeldBitmapGivesAClearMap) {
  EXPECT_EQ(Bytes(processor_.TakeReference(3).get()), (std::vector<uint8_t>{0, 0, 0}));
}

}  // namespace
