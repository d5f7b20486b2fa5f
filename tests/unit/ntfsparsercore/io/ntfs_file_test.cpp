// A file's unnamed data stream as a byte source.
#include "ntfsparsercore/io/ntfs_file.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "ntfsparsercore/mft_record.h"
#include "ntfsparsercore/ntfs_volume.h"
#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/memory_source.h"
#include "tests/fixtures/ntfs_image_builder.h"

namespace {

using ntfsparsercore::NtfsVolume;
using ntfsparsercore::io::NtfsFile;
using tolvartest::Bytes;
using tolvartest::MemorySource;
using tolvartest::NtfsImageBuilder;

class NtfsFileTest : public tolvartest::QueueTest {
 protected:
  std::shared_ptr<NtfsVolume> Open() {
    std::shared_ptr<NtfsVolume> volume(NtfsVolume::Create(std::make_shared<MemorySource>(builder_.Image()), 1 << 20));
    EXPECT_TRUE(volume);
    return volume;
  }

  static void ExpectEmpty(NtfsFile* file) {
    uint8_t buffer[16];
    EXPECT_EQ(file->Read(buffer, sizeof buffer, 0), 0u);
    EXPECT_EQ(file->GetSize(), 0u);
    EXPECT_TRUE(file->GetExtents().empty());
    EXPECT_TRUE(file->IsResident());
    EXPECT_FALSE(file->IsCompressed());
    EXPECT_FALSE(file->IsSparse());
  }

  NtfsImageBuilder builder_;
};

TEST_F(NtfsFileTest, DirectoryRecordGivesAnEmptyResidentFile) {
  auto volume = Open();
  NtfsFile file(volume->GetMftTable()->GetRecord(5, true));
  ExpectEmpty(&file);
}

TEST_F(NtfsFileTest, OnlyANamedDataStreamGivesAnEmptyFile) {
  builder_.AddFile(30, "ads.txt", {tolvartest::ResidentData(1, Bytes{1, 2, 3}, "stream")});
  auto volume = Open();
  NtfsFile file(volume->GetMftTable()->GetRecord(30, true));
  ExpectEmpty(&file);
}

TEST_F(NtfsFileTest, NullRecordOrRecordNotInUseGivesAnEmptyFile) {
  builder_.AddFile(30, "gone.txt", {tolvartest::ResidentData(1, Bytes{1, 2, 3})}, 5, 1, 0x0000);
  auto volume = Open();
  NtfsFile none(nullptr);
  ExpectEmpty(&none);
  NtfsFile deleted(volume->GetMftTable()->GetRecord(30, true));
  ExpectEmpty(&deleted);
}

TEST_F(NtfsFileTest, UnnamedStreamIsChosenAfterANamedOne) {
  builder_.AddFile(30, "both.txt",
                   {tolvartest::ResidentData(1, Bytes{9, 9}, "side"), tolvartest::ResidentData(2, Bytes{1, 2, 3})});
  auto volume = Open();
  NtfsFile file(volume->GetMftTable()->GetRecord(30, true));
  EXPECT_EQ(file.GetSize(), 3u);
}

TEST_F(NtfsFileTest, ReadAtTheSizeReturnsZeroAndReadPastTheEndIsCut) {
  Bytes data(5000);
  for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i * 13);
  Bytes clusters(8192, 0);
  std::copy(data.begin(), data.end(), clusters.begin());
  builder_.PutCluster(80, clusters);
  builder_.AddFile(30, "big.bin", {tolvartest::NonResidentAttribute(0x80, 1, 0, 1, 5000, {{2, 80, 1, 1}})});
  auto volume = Open();
  NtfsFile file(volume->GetMftTable()->GetRecord(30, true));
  ASSERT_EQ(file.GetSize(), 5000u);
  EXPECT_FALSE(file.IsResident());
  std::vector<uint8_t> buffer(8192, 0xEE);
  EXPECT_EQ(file.Read(buffer.data(), 100, 5000), 0u);
  EXPECT_EQ(file.Read(buffer.data(), 100, 5001), 0u);
  EXPECT_EQ(file.Read(buffer.data(), 8192, 4000), 1000u);
  EXPECT_TRUE(std::equal(buffer.begin(), buffer.begin() + 1000, data.begin() + 4000));
  EXPECT_EQ(buffer[1000], 0xEE);
  EXPECT_EQ(file.Read(buffer.data(), 8192, 0), 5000u);
  EXPECT_TRUE(std::equal(data.begin(), data.end(), buffer.begin()));
  const auto extents = file.GetExtents();
  ASSERT_EQ(extents.size(), 1u);
  EXPECT_EQ(extents[0].volumeOffset, 80u * 4096);
  EXPECT_EQ(extents[0].logicalSize, 5000u);
}

TEST_F(NtfsFileTest, ResidentDataIsReadOutOfTheRecord) {
  const Bytes data{'h', 'e', 'l', 'l', 'o', ' ', 'm', 'f', 't'};
  builder_.AddFile(30, "small.txt", {tolvartest::ResidentData(1, data)});
  auto volume = Open();
  NtfsFile file(volume->GetMftTable()->GetRecord(30, true));
  EXPECT_TRUE(file.IsResident());
  ASSERT_EQ(file.GetSize(), data.size());
  Bytes buffer(32, 0);
  EXPECT_EQ(file.Read(buffer.data(), buffer.size(), 0), data.size());
  EXPECT_TRUE(std::equal(data.begin(), data.end(), buffer.begin()));
  EXPECT_EQ(file.Read(buffer.data(), 3, 6), 3u);
  EXPECT_EQ(buffer[0], 'm');
}

TEST_F(NtfsFileTest, FlagsComeFromTheDataAttribute) {
  tolvartest::AttributeFields sparse;
  sparse.nonResident = true;
  sparse.flags = 0x8000;
  sparse.id = 1;
  sparse.lastVcn = 3;
  sparse.dataSize = 4 * 4096;
  sparse.mappingPairs = tolvartest::MappingPairs({{2, 0, 1, 0}, {2, 90, 1, 1}});
  builder_.AddFile(30, "sparse.bin", {tolvartest::AttributeBytes(sparse)});
  auto volume = Open();
  NtfsFile file(volume->GetMftTable()->GetRecord(30, true));
  EXPECT_TRUE(file.IsSparse());
  EXPECT_FALSE(file.IsCompressed());
  EXPECT_FALSE(file.IsResident());
  EXPECT_EQ(file.GetExtents().size(), 2u);
}

}  // namespace
