#include "ntfsparsercore/io/volume_locator.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

#include "ntfsparsercore/io/little_endian.h"
#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/memory_source.h"

namespace {

using ntfsparsercore::io::ISource;
using ntfsparsercore::io::StoreLe16;
using ntfsparsercore::io::StoreLe32;
using ntfsparsercore::io::StoreLe64;
using ntfsparsercore::io::VolumeLocator;
using ntfsparsercore::io::VolumeName;
using tolvartest::DrainErrors;
using tolvartest::MemorySource;
using tolvartest::Record;

constexpr uint64_t kSector = 512;

void Signature(std::vector<uint8_t>& disk, uint64_t sector) {
  disk[sector * kSector + 510] = 0x55;
  disk[sector * kSector + 511] = 0xAA;
}

// An NTFS boot sector at sector whose volume is sectors long (the last one the backup boot sector).
void NtfsAt(std::vector<uint8_t>& disk, uint64_t sector, uint64_t sectors) {
  uint8_t* boot = disk.data() + sector * kSector;
  std::memcpy(boot + 3, "NTFS    ", 8);
  StoreLe16(boot + 0x0B, 512);
  StoreLe64(boot + 0x28, sectors - 1);
  Signature(disk, sector);
}

void Entry(std::vector<uint8_t>& disk, int slot, uint8_t type, uint32_t first, uint32_t count) {
  uint8_t* entry = disk.data() + 446 + slot * 16;
  entry[4] = type;
  StoreLe32(entry + 8, first);
  StoreLe32(entry + 12, count);
  Signature(disk, 0);
}

// A 1 MiB MBR disk: partition 1 NTFS at sector 64 (512 sectors), partition
// 2 of type Linux at sector 1024 without NTFS, partition 3 past the end.
std::shared_ptr<ISource> Disk() {
  std::vector<uint8_t> disk(2048 * kSector);
  Entry(disk, 0, 0x07, 64, 512);
  Entry(disk, 1, 0x83, 1024, 512);
  Entry(disk, 2, 0x07, 1600, 1024);
  NtfsAt(disk, 64, 512);
  return std::make_shared<MemorySource>(disk);
}

VolumeName Name(VolumeName::Pick pick, uint64_t value) { return VolumeName{"disk.img", pick, value}; }

class VolumeLocatorTest : public tolvartest::QueueTest {};

TEST_F(VolumeLocatorTest, APartitionIsAWindowOverTheDisk) {
  auto disk = Disk();
  auto volume = VolumeLocator::Locate(disk, Name(VolumeName::Pick::kPartition, 1));
  ASSERT_NE(volume, nullptr);
  EXPECT_EQ(volume->GetSize(), 512 * kSector);
  uint8_t name[8];
  ASSERT_EQ(volume->Read(name, 8, 3), 8u);
  EXPECT_EQ(std::memcmp(name, "NTFS    ", 8), 0);
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(VolumeLocatorTest, AnOffsetAtAPartitionsStartTakesThePartitionsLength) {
  auto volume = VolumeLocator::Locate(Disk(), Name(VolumeName::Pick::kOffset, 64 * kSector));
  ASSERT_NE(volume, nullptr);
  EXPECT_EQ(volume->GetSize(), 512 * kSector);
}

TEST_F(VolumeLocatorTest, AnOffsetOutsideAnyPartitionTakesTheBootSectorsLength) {
  std::vector<uint8_t> image(2048 * kSector);
  NtfsAt(image, 100, 300);
  auto volume = VolumeLocator::Locate(std::make_shared<MemorySource>(image), Name(VolumeName::Pick::kOffset, 51200));
  ASSERT_NE(volume, nullptr);
  EXPECT_EQ(volume->GetSize(), 300 * kSector);
}

TEST_F(VolumeLocatorTest, APartitionThatDoesNotExistIsNamedWithTheOnesThatDo) {
  EXPECT_EQ(VolumeLocator::Locate(Disk(), Name(VolumeName::Pick::kPartition, 4)), nullptr);
  EXPECT_EQ(DrainErrors(), (std::vector<tolvarcommon::ErrorRecord>{Record(
                               1, "disk.img: partition 4 does not exist: the MBR disk has partition 1, 2 and 3")}));
}

TEST_F(VolumeLocatorTest, APartitionWithoutNtfsIsRefused) {
  EXPECT_EQ(VolumeLocator::Locate(Disk(), Name(VolumeName::Pick::kPartition, 2)), nullptr);
  EXPECT_EQ(
      DrainErrors(),
      (std::vector<tolvarcommon::ErrorRecord>{Record(1, "disk.img: partition 2 (type 0x83) holds no NTFS volume")}));
}

TEST_F(VolumeLocatorTest, APartitionPastTheEndOfTheImageIsRefused) {
  EXPECT_EQ(VolumeLocator::Locate(Disk(), Name(VolumeName::Pick::kPartition, 3)), nullptr);
  EXPECT_EQ(DrainErrors(),
            (std::vector<tolvarcommon::ErrorRecord>{
                Record(1, "disk.img: partition 3 ends at byte 1343488, past the end of the image (1048576 bytes)")}));
}

TEST_F(VolumeLocatorTest, AnOffsetWithoutNtfsIsRefused) {
  EXPECT_EQ(VolumeLocator::Locate(Disk(), Name(VolumeName::Pick::kOffset, 4096)), nullptr);
  EXPECT_EQ(VolumeLocator::Locate(Disk(), Name(VolumeName::Pick::kOffset, 1048576)), nullptr);
  EXPECT_EQ(DrainErrors(), (std::vector<tolvarcommon::ErrorRecord>{
                               Record(1, "disk.img: no NTFS volume starts at byte offset 4096"),
                               Record(1, "disk.img: offset 1048576 is past the end of the image (1048576 bytes)")}));
}

TEST_F(VolumeLocatorTest, AWholeDiskNamedWithoutPickSaysHowToNameAVolume) {
  EXPECT_EQ(VolumeLocator::Locate(Disk(), Name(VolumeName::Pick::kWhole, 0)), nullptr);
  EXPECT_EQ(DrainErrors(), (std::vector<tolvarcommon::ErrorRecord>{
                               Record(1,
                                      "disk.img is a whole disk (MBR; NTFS in partition 1): name a volume as "
                                      "disk.img@partition=N or disk.img@offset=BYTES")}));
}

TEST_F(VolumeLocatorTest, AnImageWithoutPartitionTableIsTheVolume) {
  auto image = std::make_shared<MemorySource>(std::vector<uint8_t>(4096));
  auto volume = VolumeLocator::Locate(image, Name(VolumeName::Pick::kWhole, 0));
  ASSERT_NE(volume, nullptr);
  EXPECT_EQ(volume->GetSize(), 4096u);
  EXPECT_EQ(VolumeLocator::Locate(image, Name(VolumeName::Pick::kPartition, 1)), nullptr);
  EXPECT_EQ(DrainErrors(), (std::vector<tolvarcommon::ErrorRecord>{
                               Record(1, "disk.img: partition 1 does not exist: the image holds no partition table")}));
}

TEST_F(VolumeLocatorTest, ADamagedTableIsNamedWhenAPartitionIsPicked) {
  std::vector<uint8_t> disk(2048 * kSector);
  Entry(disk, 0, 0x05, 64, 512);
  EXPECT_EQ(VolumeLocator::Locate(std::make_shared<MemorySource>(disk), Name(VolumeName::Pick::kPartition, 5)),
            nullptr);
  EXPECT_EQ(DrainErrors(),
            (std::vector<tolvarcommon::ErrorRecord>{
                Record(1,
                       "disk.img: damaged partition table: the extended boot record at byte 32768 has no 0x55AA "
                       "signature")}));
}

}  // namespace
