#include "core/vss/vss_volume.h"

#include <gtest/gtest.h>

#include <memory>

#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/vss_store_builder.h"

using tolvarcommon::ErrorRecord;

namespace {

using tolvarcore::vss::Guid;
using tolvarcore::vss::VssVolume;
using tolvartest::DrainErrors;
using tolvartest::Record;
using tolvartest::SparseSource;
using namespace tolvartest::vss;

class VssVolumeTest : public tolvartest::QueueTest {
 protected:
  std::unique_ptr<VssVolume> Open(const VolumeHeaderSpec& header) {
    writer_.WriteVolumeHeader(header);
    return std::make_unique<VssVolume>(writer_.Source());
  }

  void ExpectRejected(const VssVolume& volume) {
    EXPECT_EQ(volume.GetCatalogOffset(), 0u);
    EXPECT_TRUE(volume.GetVolumeIdentifier().IsZero());
    EXPECT_TRUE(volume.GetStoreVolumeIdentifier().IsZero());
  }

  StoreWriter writer_{64 * kMiB};
};

TEST_F(VssVolumeTest, AcceptedHeaderKeepsCatalogOffsetAndIdentifiers) {
  VolumeHeaderSpec header;
  header.catalogOffset = 0x104000;
  header.volumeIdentifier = Id(1);
  header.storeVolumeIdentifier = Id(2);
  auto volume = Open(header);
  EXPECT_EQ(volume->GetCatalogOffset(), 0x104000u);
  EXPECT_EQ(volume->GetVolumeIdentifier(), Id(1));
  EXPECT_EQ(volume->GetStoreVolumeIdentifier(), Id(2));
  EXPECT_EQ(volume->GetSize(), 64 * kMiB);
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(VssVolumeTest, HeaderIsOneReadOf96BytesAt0x1E00) {
  auto volume = Open(VolumeHeaderSpec());
  ASSERT_EQ(writer_.Source()->Calls().size(), 1u);
  EXPECT_EQ(writer_.Source()->Calls()[0], (SparseSource::ReadCall{0x1E00, 96}));
}

TEST_F(VssVolumeTest, OtherIdentifierIsAnInvalidVssVolumeGuid) {
  VolumeHeaderSpec header;
  header.identifier = Id(9);
  header.catalogOffset = 0x104000;
  auto volume = Open(header);
  ExpectRejected(*volume);
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(12, "Invalid vss volume guid")}));
}

TEST_F(VssVolumeTest, OwnOffset0x2000GivesTheOffsetMessageWith8192) {
  VolumeHeaderSpec header;
  header.ownOffset = 0x2000;
  header.catalogOffset = 0x104000;
  auto volume = Open(header);
  ExpectRejected(*volume);
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(12, "Unexpected volume header offset. Actual(8192)")}));
}

TEST_F(VssVolumeTest, RecordType2GivesTheRecordTypeMessageWith2) {
  VolumeHeaderSpec header;
  header.recordType = 2;
  header.catalogOffset = 0x104000;
  auto volume = Open(header);
  ExpectRejected(*volume);
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(12, "Unexpected volume header record type. Actual(2)")}));
}

TEST_F(VssVolumeTest, OnlyTheFirstFailingCheckIsReported) {
  VolumeHeaderSpec header;
  header.identifier = Id(9);
  header.ownOffset = 0x2000;
  header.recordType = 2;
  Open(header);
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(12, "Invalid vss volume guid")}));

  header.identifier = StoreIdentifier();
  Open(header);
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(12, "Unexpected volume header offset. Actual(8192)")}));
}

TEST_F(VssVolumeTest, OwnOffsetMessageShowsTheLow32Bits) {
  VolumeHeaderSpec header;
  header.ownOffset = 0x100001E01ull;
  Open(header);
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(12, "Unexpected volume header offset. Actual(7681)")}));
}

TEST_F(VssVolumeTest, ShortHeaderReadFails) {
  writer_.WriteVolumeHeader(VolumeHeaderSpec());
  writer_.Source()->SetSize(0x1E00 + 95);
  VssVolume volume(writer_.Source());
  ExpectRejected(volume);
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(1, "Failed to read vss volume header")}));
}

TEST_F(VssVolumeTest, EmptySourceIsSilentlyAnAbsentStore) {
  VssVolume volume(nullptr);
  ExpectRejected(volume);
  EXPECT_EQ(volume.GetSize(), 0u);
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(VssVolumeTest, OpenedRecordOutlivesTheVolume) {
  std::vector<uint64_t> pages = writer_.AllocatePages(1);
  writer_.WriteRecord(pages, kTypeBitmap, {1, 2, 3});
  auto volume = Open(VolumeHeaderSpec());
  std::shared_ptr<tolvarcore::vss::VssRecord> record = volume->OpenRecord(pages[0]);
  volume.reset();
  uint8_t bytes[3] = {};
  EXPECT_EQ(record->Read(bytes, 3, 0), 3u);
  EXPECT_EQ(bytes[2], 3);
}

TEST_F(VssVolumeTest, OpenRecordNeverFails) {
  auto volume = Open(VolumeHeaderSpec());
  auto record = volume->OpenRecord(0x300000);  // zeros: the own offset does not match
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->PageCount(), 0u);
}

}  // namespace
