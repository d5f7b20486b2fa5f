#include "ntfsparsercore/usn_controller.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/fault_source.h"
#include "tests/fixtures/memory_volume.h"
#include "tests/fixtures/ntfs_builder.h"

using tolvarcommon::ErrorRecord;

namespace {

using ntfsparsercore::UsnController;
using tolvartest::Bytes;
using tolvartest::DrainErrors;
using tolvartest::FaultSource;
using tolvartest::MemoryVolume;
using tolvartest::Record;

constexpr uint32_t kFile = UsnController::kFileMagic;
constexpr uint32_t kIndx = UsnController::kIndxMagic;

class UsnControllerTest : public tolvartest::QueueTest {
 protected:
  // A 1024-byte "FILE" record over two 512-byte sectors, array at 0x30 with
  // count 3, protected with sequence number 0x0707. Sector ends originally
  // hold 0xA1 0xA2 and 0xB1 0xB2.
  void MakeRecord(uint64_t base = 0) {
    plain_ = Bytes(1024);
    for (std::size_t i = 0; i < plain_.size(); ++i) plain_[i] = static_cast<uint8_t>(i * 3);
    Bytes r = tolvartest::MultiSectorRecord(kFile, 1024, 512, 0x30);
    std::copy(r.begin(), r.begin() + 0x38, plain_.begin());
    plain_[510] = 0xA1;
    plain_[511] = 0xA2;
    plain_[1022] = 0xB1;
    plain_[1023] = 0xB2;
    Bytes protectedRecord = plain_;
    tolvartest::ProtectRecord(&protectedRecord, 512, 0x0707);
    // What a fixed-up read shows: the protected bytes with the sector ends restored.
    plain_ = protectedRecord;
    plain_[510] = 0xA1;
    plain_[511] = 0xA2;
    plain_[1022] = 0xB1;
    plain_[1023] = 0xB2;
    Bytes bytes(base, 0xEE);
    bytes.insert(bytes.end(), protectedRecord.begin(), protectedRecord.end());
    source_ = std::make_shared<FaultSource>(bytes);
  }

  Bytes ReadRecord(UsnController& usn, uint64_t size, uint64_t offset) {
    Bytes out(size);
    out.resize(usn.Read(out.data(), size, offset));
    return out;
  }

  Bytes Plain(uint64_t offset, uint64_t size) const {
    return Bytes(plain_.begin() + offset, plain_.begin() + offset + size);
  }

  MemoryVolume volume_{Bytes(), 512, 4096};
  Bytes plain_;
  std::shared_ptr<FaultSource> source_;
};

TEST_F(UsnControllerTest, FileRecordOfTwoSectorsWithCountThreeYieldsFourFixupBytes) {
  MakeRecord();
  UsnController usn(&volume_, source_, 0, kFile);
  EXPECT_EQ(usn.GetMagic(), kFile);
  EXPECT_EQ(usn.GetFixupBytes(), (Bytes{0xA1, 0xA2, 0xB1, 0xB2}));
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(UsnControllerTest, ReadOf48BytesAtZeroPatchesNothing) {
  MakeRecord();
  UsnController usn(&volume_, source_, 0, kFile);
  EXPECT_EQ(ReadRecord(usn, 48, 0), Plain(0, 48));
}

TEST_F(UsnControllerTest, ReadOfTheWholeRecordPatchesBothSectorEnds) {
  MakeRecord();
  UsnController usn(&volume_, source_, 0, kFile);
  const Bytes whole = ReadRecord(usn, 1024, 0);
  ASSERT_EQ(whole.size(), 1024u);
  EXPECT_EQ(whole[510], 0xA1);
  EXPECT_EQ(whole[511], 0xA2);
  EXPECT_EQ(whole[1022], 0xB1);
  EXPECT_EQ(whole[1023], 0xB2);
  EXPECT_EQ(whole, plain_);
}

TEST_F(UsnControllerTest, ReadEndingExactlyAtASectorBoundaryPatchesTheTwoBytesBeforeItAndNothingAfter) {
  MakeRecord();
  UsnController usn(&volume_, source_, 0, kFile);
  const Bytes part = ReadRecord(usn, 112, 400);  // ends at 512
  EXPECT_EQ(part, Plain(400, 112));
  EXPECT_EQ(part[110], 0xA1);
  EXPECT_EQ(part[111], 0xA2);
  // The source delivered exactly the range: nothing after the boundary was touched.
  EXPECT_EQ(source_->Calls().back(), (FaultSource::ReadCall{400, 112}));
}

TEST_F(UsnControllerTest, ReadStartingOnTheLastByteOfASectorPatchesOnlyThatByte) {
  MakeRecord();
  UsnController usn(&volume_, source_, 0, kFile);
  const Bytes part = ReadRecord(usn, 4, 511);
  EXPECT_EQ(part, Plain(511, 4));
  EXPECT_EQ(part[0], 0xA2);
}

TEST_F(UsnControllerTest, RecordAtANonZeroBaseOffsetIsFixedUpRelativeToItsStart) {
  MakeRecord(3 * 512);
  UsnController usn(&volume_, source_, 3 * 512, kFile);
  EXPECT_EQ(ReadRecord(usn, 1024, 0), plain_);
  EXPECT_EQ(ReadRecord(usn, 20, 1010), Plain(1010, 14));
}

TEST_F(UsnControllerTest, ShortHeaderReportsMultiSectorHeaderReadFailedAndReadsRawBytes) {
  MakeRecord();
  source_->ShortBy(1);
  UsnController usn(&volume_, source_, 0, kFile);
  EXPECT_EQ(usn.GetMagic(), 0u);
  EXPECT_TRUE(usn.GetFixupBytes().empty());
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(3, "MultiSectorHeader read failed")}));
}

TEST_F(UsnControllerTest, WrongMagicReportsBothValuesKeepsTheMagicAndLoadsNoFixups) {
  MakeRecord();
  UsnController usn(&volume_, source_, 0, kIndx);
  EXPECT_EQ(usn.GetMagic(), kFile);
  EXPECT_TRUE(usn.GetFixupBytes().empty());
  EXPECT_EQ(
      DrainErrors(),
      (std::vector<ErrorRecord>{Record(3, "Unexpected record type. Was expected(1480871497), actual(1162627398)")}));
  const Bytes raw = ReadRecord(usn, 1024, 0);
  EXPECT_EQ(raw[510], 0x07);
  EXPECT_EQ(raw[511], 0x07);
}

TEST_F(UsnControllerTest, CountOfOneLoadsNoFixupBytes) {
  MakeRecord();
  tolvartest::PutLe16(&source_->Bytes(), 6, 1);
  UsnController usn(&volume_, source_, 0, kFile);
  EXPECT_TRUE(usn.GetFixupBytes().empty());
  const Bytes raw = ReadRecord(usn, 1024, 0);
  EXPECT_EQ(raw[510], 0x07);
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(UsnControllerTest, EightBitCounterWrapEndsTheLoadInsteadOfLoopingForever) {
  MakeRecord();
  tolvartest::PutLe16(&source_->Bytes(), 6, 200);  // 400 array bytes: the index would wrap
  UsnController usn(&volume_, source_, 0, kFile);
  EXPECT_EQ(usn.GetFixupBytes().size(), 254u);
}

TEST_F(UsnControllerTest, FixupLoadStopsAtTheFirstByteThatCannotBeRead) {
  MakeRecord();
  source_->FailFrom(0x30 + 4);
  UsnController usn(&volume_, source_, 0, kFile);
  EXPECT_EQ(usn.GetFixupBytes(), (Bytes{0xA1, 0xA2}));
}

TEST_F(UsnControllerTest, SectorsPastTheFixupBytesAreLeftAsRead) {
  MakeRecord();
  tolvartest::PutLe16(&source_->Bytes(), 6, 2);  // one sector saved only
  UsnController usn(&volume_, source_, 0, kFile);
  ASSERT_EQ(usn.GetFixupBytes().size(), 2u);
  const Bytes whole = ReadRecord(usn, 1100, 0);  // runs past the record and the fix-up bytes
  ASSERT_EQ(whole.size(), 1024u);
  EXPECT_EQ(whole[510], 0xA1);
  EXPECT_EQ(whole[1022], 0x07);
  EXPECT_EQ(whole[1023], 0x07);
}

TEST_F(UsnControllerTest, SectorSizeZeroReadsRawBytesInsteadOfDividingByZero) {
  MakeRecord();
  MemoryVolume noGeometry(Bytes(), 0, 0);
  UsnController usn(&noGeometry, source_, 0, kFile);
  const Bytes raw = ReadRecord(usn, 1024, 0);
  EXPECT_EQ(raw[510], 0x07);
  EXPECT_EQ(raw[1023], 0x07);
}

}  // namespace
