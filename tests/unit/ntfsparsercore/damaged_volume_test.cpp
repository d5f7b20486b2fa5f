// Volumes and path lookups on damaged images: each gives its messages and
// a null result, never a crash or an endless walk.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "ntfsparsercore/path_lookup.h"
#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/memory_source.h"
#include "tests/fixtures/ntfs_image_builder.h"

using tolvarcommon::ErrorRecord;

namespace {

using ntfsparsercore::FindFile;
using ntfsparsercore::ListDirectory;
using ntfsparsercore::NtfsVolume;
using ntfsparsercore::io::NtfsFile;
using tolvartest::Bytes;
using tolvartest::DrainErrors;
using tolvartest::IndexEntryBytes;
using tolvartest::MemorySource;
using tolvartest::NtfsImageBuilder;
using tolvartest::Record;

constexpr uint64_t kRoot = NtfsImageBuilder::kRootRecord;

class DamagedVolumeTest : public tolvartest::QueueTest {
 protected:
  void SetUp() override {
    QueueTest::SetUp();
    builder_.SetRoot({IndexEntryBytes(kRoot, 0), IndexEntryBytes(30, 0)});
    builder_.AddFile(30, "a.txt", {tolvartest::ResidentData(1, Bytes{'a'})});
  }

  std::shared_ptr<NtfsVolume> Open(const Bytes& image) {
    return std::shared_ptr<NtfsVolume>(NtfsVolume::Create(std::make_shared<MemorySource>(image), 1 << 20));
  }

  std::unique_ptr<NtfsFile> Find(const std::shared_ptr<NtfsVolume>& volume, const std::string& path) {
    return std::unique_ptr<NtfsFile>(FindFile(volume, path));
  }

  NtfsImageBuilder builder_;
};

TEST_F(DamagedVolumeTest, SoundImageFindsTheFile) {
  auto volume = Open(builder_.Image());
  ASSERT_TRUE(volume);
  EXPECT_NE(Find(volume, "/a.txt"), nullptr);
}

TEST_F(DamagedVolumeTest, AllZerosIsNotAVolumeAndLookupOnNoVolumeFindsNothing) {
  auto volume = Open(Bytes(1 << 20, 0));
  EXPECT_EQ(volume, nullptr);
  EXPECT_EQ(Find(volume, "/a.txt"), nullptr);
  EXPECT_EQ(DrainErrors(), std::vector<ErrorRecord>{Record(2, "Unexpected oem id")});
}

TEST_F(DamagedVolumeTest, WrongOemIdIsRejected) {
  const char exfat[] = "EXFAT   ";
  std::copy(exfat, exfat + 8, builder_.Image().begin() + 3);
  EXPECT_EQ(Open(builder_.Image()), nullptr);
  EXPECT_EQ(DrainErrors(), std::vector<ErrorRecord>{Record(2, "Unexpected oem id")});
}

TEST_F(DamagedVolumeTest, WrongEndMarkerIsRejected) {
  tolvartest::PutLe16(&builder_.Image(), 510, 0x1234);
  EXPECT_EQ(Open(builder_.Image()), nullptr);
  EXPECT_EQ(DrainErrors(), std::vector<ErrorRecord>{Record(2, "Unexpected end of sector marker. Actual 4660")});
}

TEST_F(DamagedVolumeTest, TruncatedImageGivesAVolumeWhoseRecordsFailToRead) {
  Bytes image(builder_.Image().begin(), builder_.Image().begin() + 8192);  // cut before the MFT
  auto volume = Open(image);
  ASSERT_NE(volume, nullptr);
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{
                               Record(3, "MultiSectorHeader read failed"),
                               Record(3, "Unexpected usn type. Was expected(1162627398), actual(0)"),
                               Record(3, "Usn read failed"),
                           }));
  // The MFT stream is empty: the root record cannot be read. The page
  // cache keeps the line of the failed read (0xFF bytes) for the header read.
  EXPECT_EQ(Find(volume, "/a.txt"), nullptr);
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{
                               Record(1, "Failed read cluster, position 5120"),
                               Record(3, "MultiSectorHeader read failed"),
                               Record(3, "Unexpected usn type. Was expected(1162627398), actual(0)"),
                               Record(3, "Unexpected record type. Was expected(1162627398), actual(4294967295)"),
                           }));
}

TEST_F(DamagedVolumeTest, ImageCutInsideTheMftFailsOnTheRecordsPastTheCut) {
  // Record 0 and the root survive; record 30 lies past the end.
  const uint64_t cut = NtfsImageBuilder::kMftCluster * NtfsImageBuilder::kClusterSize + 8 * 1024;
  Bytes image(builder_.Image().begin(), builder_.Image().begin() + cut);
  auto volume = Open(image);
  ASSERT_NE(volume, nullptr);
  DrainErrors();
  EXPECT_EQ(Find(volume, "/a.txt"), nullptr);
  const std::vector<ErrorRecord> errors = DrainErrors();
  EXPECT_NE(std::find(errors.begin(), errors.end(), Record(1, "Failed read cluster, position 30720")), errors.end());
}

TEST_F(DamagedVolumeTest, RootRecordWithBadSignatureFindsNothing) {
  tolvartest::FileRecordFields root;
  root.magic = 0x44414142;  // "BAAD"
  root.flags = 3;
  builder_.SetRecord(kRoot, tolvartest::FileRecordBytes(root));
  auto volume = Open(builder_.Image());
  ASSERT_NE(volume, nullptr);
  DrainErrors();
  EXPECT_EQ(Find(volume, "/a.txt"), nullptr);
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{
                               Record(3, "Unexpected record type. Was expected(1162627398), actual(1145127234)"),
                               Record(3, "Unexpected usn type. Was expected(1162627398), actual(1145127234)"),
                               Record(3, "Unexpected record type. Was expected(1162627398), actual(1145127234)"),
                           }));
}

TEST_F(DamagedVolumeTest, MftRecordZeroWithBadSignatureLeavesAnEmptyMft) {
  tolvartest::FileRecordFields mft;
  mft.magic = 0;
  builder_.SetRecord(0, tolvartest::FileRecordBytes(mft));
  auto volume = Open(builder_.Image());
  ASSERT_NE(volume, nullptr);
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{
                               Record(3, "Unexpected record type. Was expected(1162627398), actual(0)"),
                               Record(3, "Unexpected usn type. Was expected(1162627398), actual(0)"),
                               Record(3, "Unexpected record type. Was expected(1162627398), actual(0)"),
                           }));
  EXPECT_EQ(Find(volume, "/a.txt"), nullptr);
}

TEST_F(DamagedVolumeTest, BrokenFixupOfTheRootCorruptsItsSectorEndsOnly) {
  // The root's update sequence array points past the record: the saved
  // bytes are whatever lies there, and the sector ends read as those bytes.
  Bytes& image = builder_.Image();
  const uint64_t root = NtfsImageBuilder::kMftCluster * NtfsImageBuilder::kClusterSize + kRoot * 1024;
  tolvartest::PutLe16(&image, root + 4, 0xFFF0);
  tolvartest::PutLe16(&image, root + 6, 0xFFFF);
  auto volume = Open(image);
  ASSERT_NE(volume, nullptr);
  DrainErrors();
  // The root's attributes end before its first sector end, so it still lists.
  EXPECT_NE(Find(volume, "/a.txt"), nullptr);
}

TEST_F(DamagedVolumeTest, BrokenFixupOfTheMftRecordLeavesNoCrash) {
  Bytes& image = builder_.Image();
  const uint64_t mft = NtfsImageBuilder::kMftCluster * NtfsImageBuilder::kClusterSize;
  tolvartest::PutLe16(&image, mft + 4, 1020);  // the array runs past the record's end
  tolvartest::PutLe16(&image, mft + 6, 200);
  auto volume = Open(image);
  ASSERT_NE(volume, nullptr);
  DrainErrors();
  Find(volume, "/a.txt");
  DrainErrors();
}

TEST_F(DamagedVolumeTest, IndexBlockPointingAtItselfEndsTheWalk) {
  std::vector<Bytes> entries{IndexEntryBytes(kRoot, 0), IndexEntryBytes(30, 0x01, 0), IndexEntryBytes(0, 0x03, 0)};
  builder_.PutCluster(100, tolvartest::IndexBlockBytes(4096, 512, 0, entries));
  builder_.SetRoot({IndexEntryBytes(0, 0x03, 0)},
                   {tolvartest::NonResidentAttribute(0xA0, 3, 0, 0, 4096, {{1, 100, 1, 1}}, "$I30")});
  auto volume = Open(builder_.Image());
  ASSERT_NE(volume, nullptr);
  EXPECT_EQ(ListDirectory(volume->GetMftTable()->GetRecord(kRoot, true)), (std::vector<uint64_t>{kRoot, 30}));
  EXPECT_NE(Find(volume, "/a.txt"), nullptr);
  EXPECT_EQ(Find(volume, "/b.txt"), nullptr);
}

TEST_F(DamagedVolumeTest, RootEntryOfLengthZeroEndsTheListing) {
  Bytes zero = IndexEntryBytes(30, 0);
  tolvartest::PutLe16(&zero, 8, 0);
  builder_.SetRoot({IndexEntryBytes(kRoot, 0), zero});
  auto volume = Open(builder_.Image());
  ASSERT_NE(volume, nullptr);
  EXPECT_EQ(ListDirectory(volume->GetMftTable()->GetRecord(kRoot, true)), (std::vector<uint64_t>{kRoot, 30}));
}

TEST_F(DamagedVolumeTest, AttributeLengthsThatWrapRoundEndTheWalk) {
  // An attribute whose length takes the 16-bit position back to the first one.
  Bytes data = tolvartest::ResidentData(1, Bytes{'w'});
  tolvartest::PutLe32(&data, 4, 0x10000);
  builder_.AddFile(30, "a.txt", {data});
  auto volume = Open(builder_.Image());
  ASSERT_NE(volume, nullptr);
  DrainErrors();
  auto record = volume->GetMftTable()->GetRecord(30, true);
  // The name and the data; the data's length leads back to the data itself,
  // where the walk stops instead of going round forever.
  EXPECT_EQ(record->GetAttributes().size(), 2u);
  EXPECT_EQ(DrainErrors(), std::vector<ErrorRecord>{});
}

TEST_F(DamagedVolumeTest, ZeroGeometryGivesAVolumeThatFindsNothing) {
  // Sectors per cluster 0: cluster size 0, so no page cache page and no
  // record can be read; bytes per sector 0: no volume bytes at all.
  for (uint64_t offset : {uint64_t{13}, uint64_t{11}}) {
    Bytes image = builder_.Image();
    image[offset] = 0;
    if (offset == 11) image[12] = 0;
    auto volume = Open(image);
    ASSERT_NE(volume, nullptr);
    EXPECT_EQ(Find(volume, "/a.txt"), nullptr);
    DrainErrors();
  }
}

TEST_F(DamagedVolumeTest, ClustersPerRecordZeroGivesRecordsOfSizeZero) {
  builder_.Image()[64] = 0;
  auto volume = Open(builder_.Image());
  ASSERT_NE(volume, nullptr);
  EXPECT_EQ(volume->GetMftTable()->GetRecordSize(), 0u);
  Find(volume, "/a.txt");
  DrainErrors();
}

TEST_F(DamagedVolumeTest, MftClusterFarPastTheEndLeavesAnEmptyMft) {
  tolvartest::PutLe64(&builder_.Image(), 48, uint64_t{1} << 62);
  auto volume = Open(builder_.Image());
  ASSERT_NE(volume, nullptr);
  EXPECT_EQ(Find(volume, "/a.txt"), nullptr);
  DrainErrors();
}

}  // namespace
