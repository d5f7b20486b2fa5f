// Boot sector checks, geometry, the MFT table and bounded volume reads.
#include "ntfsparsercore/ntfs_volume.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "ntfsparsercore/io/hot_page_proxy.h"
#include "ntfsparsercore/mft_record.h"
#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/fault_source.h"
#include "tests/fixtures/memory_source.h"
#include "tests/fixtures/ntfs_image_builder.h"

using tolvarcommon::ErrorRecord;

namespace {

using ntfsparsercore::NtfsVolume;
using tolvartest::Bytes;
using tolvartest::DrainErrors;
using tolvartest::MemorySource;
using tolvartest::NtfsImageBuilder;
using tolvartest::Record;

const ErrorRecord kEndMarker = Record(3, "Unexpected attribute type was expected(4096), actual(4294967295)");

class NtfsVolumeTest : public tolvartest::QueueTest {
 protected:
  std::unique_ptr<NtfsVolume> Create(uint64_t cacheBytes = 1 << 20) {
    return std::unique_ptr<NtfsVolume>(
        NtfsVolume::Create(std::make_shared<MemorySource>(builder_.Image()), cacheBytes));
  }

  NtfsImageBuilder builder_;
};

TEST_F(NtfsVolumeTest, NullSourceIsNotAVolume) {
  EXPECT_EQ(NtfsVolume::Create(nullptr, 1 << 20), nullptr);
  EXPECT_EQ(DrainErrors(), std::vector<ErrorRecord>{Record(2, "Not a NtfsVolume. Invalid file")});
}

TEST_F(NtfsVolumeTest, AllZeroSectorReportsUnexpectedOemId) {
  EXPECT_EQ(NtfsVolume::Create(std::make_shared<MemorySource>(Bytes(4096, 0)), 1 << 20), nullptr);
  EXPECT_EQ(DrainErrors(), std::vector<ErrorRecord>{Record(2, "Unexpected oem id")});
}

TEST_F(NtfsVolumeTest, ShortSectorReadReportsUnexpectedOemId) {
  // Only the first 7 bytes exist: the OEM id is cut off and reads as zeros.
  Bytes start(builder_.Image().begin(), builder_.Image().begin() + 7);
  EXPECT_EQ(NtfsVolume::Create(std::make_shared<MemorySource>(start), 1 << 20), nullptr);
  EXPECT_EQ(DrainErrors(), std::vector<ErrorRecord>{Record(2, "Unexpected oem id")});
}

TEST_F(NtfsVolumeTest, OemIdWithoutItsBlanksIsRejected) {
  builder_.Image()[10] = 0;  // "NTFS   " and a zero
  EXPECT_EQ(Create(), nullptr);
  EXPECT_EQ(DrainErrors(), std::vector<ErrorRecord>{Record(2, "Unexpected oem id")});
}

TEST_F(NtfsVolumeTest, MarkerOfZeroReportsUnexpectedEndOfSectorMarker) {
  tolvartest::PutLe16(&builder_.Image(), 510, 0);
  EXPECT_EQ(Create(), nullptr);
  EXPECT_EQ(DrainErrors(), std::vector<ErrorRecord>{Record(2, "Unexpected end of sector marker. Actual 0")});
}

TEST_F(NtfsVolumeTest, WrongMarkerIsReportedWithItsValue) {
  tolvartest::PutLe16(&builder_.Image(), 510, 0x55AA);
  EXPECT_EQ(Create(), nullptr);
  EXPECT_EQ(DrainErrors(), std::vector<ErrorRecord>{Record(2, "Unexpected end of sector marker. Actual 21930")});
}

TEST_F(NtfsVolumeTest, GeometryComesFromTheBootSector) {
  auto volume = Create();
  ASSERT_TRUE(volume);
  EXPECT_EQ(volume->GetSectorSize(), 512u);
  EXPECT_EQ(volume->GetClusterSize(), 4096u);
  EXPECT_EQ(volume->GetSize(), builder_.Image().size());
  ASSERT_NE(volume->GetMftTable(), nullptr);
  EXPECT_EQ(volume->GetMftTable()->GetBaseOffset(), 0u);
  EXPECT_EQ(volume->GetMftTable()->GetRecordSize(), 1024u);
  EXPECT_EQ(DrainErrors(), std::vector<ErrorRecord>{kEndMarker});
}

TEST_F(NtfsVolumeTest, ClustersPerRecordMinusTenGivesRecordsOf1024Bytes) {
  EXPECT_EQ(NtfsVolume::RecordSize(-10, 4096), 1024u);
  EXPECT_EQ(NtfsVolume::RecordSize(-12, 65536), 4096u);
}

TEST_F(NtfsVolumeTest, PositiveClustersPerRecordMultipliesTheClusterSize) {
  EXPECT_EQ(NtfsVolume::RecordSize(2, 4096), 8192u);
  builder_.Image()[64] = 2;
  auto volume = Create();
  ASSERT_TRUE(volume);
  EXPECT_EQ(volume->GetMftTable()->GetRecordSize(), 8192u);
  DrainErrors();
}

TEST_F(NtfsVolumeTest, ClustersPerRecordZeroGivesRecordSizeZero) {
  EXPECT_EQ(NtfsVolume::RecordSize(0, 4096), 0u);
  EXPECT_EQ(NtfsVolume::RecordSize(-128, 4096), 0u);  // a shift by 63
}

TEST_F(NtfsVolumeTest, CacheSmallerThanOneClusterGivesOnePage) {
  EXPECT_EQ(NtfsVolume::PageCount(100, 4096), 1u);
  EXPECT_EQ(NtfsVolume::PageCount(0, 4096), 1u);
  EXPECT_EQ(NtfsVolume::PageCount(52428800, 4096), 12800u);
  EXPECT_EQ(NtfsVolume::PageCount(8191, 4096), 1u);
  EXPECT_EQ(NtfsVolume::PageCount(100, 0), 1u);
  // A volume with a one-page cache still reads its records.
  builder_.AddFile(30, "one.txt", {tolvartest::ResidentData(1, Bytes{7})});
  auto volume = Create(100);
  ASSERT_TRUE(volume);
  auto pages = std::dynamic_pointer_cast<ntfsparsercore::io::HotPageProxy>(volume->GetMftTable()->GetSource());
  ASSERT_NE(pages, nullptr);
  EXPECT_EQ(pages->GetProxyCount(), 1u);
  EXPECT_TRUE(volume->GetMftTable()->GetRecord(30, true)->IsInUse());
  EXPECT_TRUE(volume->GetMftTable()->GetRecord(5, true)->IsDirectory());
}

TEST_F(NtfsVolumeTest, MftCacheHoldsCacheBytesInClusterPages) {
  auto volume = Create(5 * 4096 + 100);
  ASSERT_TRUE(volume);
  auto pages = std::dynamic_pointer_cast<ntfsparsercore::io::HotPageProxy>(volume->GetMftTable()->GetSource());
  ASSERT_NE(pages, nullptr);
  EXPECT_EQ(pages->GetProxyCount(), 5u);
  EXPECT_EQ(pages->GetSize(), NtfsImageBuilder::kMftClusters * 4096);  // the MFT's data stream
}

TEST_F(NtfsVolumeTest, ReadRunningPastTheVolumeSizeIsCutThere) {
  auto volume = Create();
  ASSERT_TRUE(volume);
  const uint64_t size = volume->GetSize();
  std::vector<uint8_t> buffer(8192, 0xEE);
  EXPECT_EQ(volume->Read(buffer.data(), 8192, size - 100), 100u);
  EXPECT_EQ(buffer[100], 0xEE);  // nothing written past the cut
  EXPECT_EQ(volume->Read(buffer.data(), 512, 0), 512u);
  EXPECT_EQ(buffer[3], 'N');
}

TEST_F(NtfsVolumeTest, ReadLargerThanTheVolumeReadsNothing) {
  auto volume = Create();
  ASSERT_TRUE(volume);
  std::vector<uint8_t> buffer(volume->GetSize() + 1);
  EXPECT_EQ(volume->Read(buffer.data(), buffer.size(), 0), 0u);
}

TEST_F(NtfsVolumeTest, ReadPastTheEndStaysInTheCallersBuffer) {
  // The source is larger than the volume says: an offset past the volume's
  // end is read with the size asked for, never more.
  builder_.Image().resize(builder_.Image().size() + 4096, 0xAB);
  tolvartest::PutLe64(&builder_.Image(), 40, 128 * 8);
  auto volume = Create();
  ASSERT_TRUE(volume);
  std::vector<uint8_t> buffer(16, 0);
  EXPECT_EQ(volume->Read(buffer.data(), 16, volume->GetSize() + 8), 16u);
  EXPECT_EQ(buffer[0], 0xAB);
}

TEST_F(NtfsVolumeTest, SourceSizeIsThatOfTheSourceWhateverTheBootSectorClaims) {
  tolvartest::PutLe64(&builder_.Image(), NtfsVolume::kTotalSectorsOffset, uint64_t{1} << 40);
  auto volume = Create();
  ASSERT_TRUE(volume);
  EXPECT_EQ(volume->GetSize(), (uint64_t{1} << 40) * NtfsImageBuilder::kSectorSize);
  EXPECT_EQ(volume->GetSourceSize(), builder_.Image().size());
}

}  // namespace
