#include "ntfsparsercore/io/partition_table.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "ntfsparsercore/io/crc32.h"
#include "ntfsparsercore/io/little_endian.h"
#include "tests/fixtures/memory_source.h"

namespace {

using ntfsparsercore::io::Crc32;
using ntfsparsercore::io::PartitionTable;
using ntfsparsercore::io::StoreLe32;
using ntfsparsercore::io::StoreLe64;
using tolvartest::MemorySource;

constexpr uint64_t kSector = 512;
constexpr uint64_t kDiskSectors = 4096;  // a 2 MiB disk

// A disk of zero bytes with the MBR signature in sector 0.
std::vector<uint8_t> BlankMbrDisk() {
  std::vector<uint8_t> disk(kDiskSectors * kSector);
  disk[510] = 0x55;
  disk[511] = 0xAA;
  return disk;
}

void SetEntry(std::vector<uint8_t>& disk, uint64_t sector, int slot, uint8_t type, uint32_t first, uint32_t count) {
  uint8_t* entry = disk.data() + sector * kSector + 446 + slot * 16;
  entry[4] = type;
  StoreLe32(entry + 8, first);
  StoreLe32(entry + 12, count);
  disk[sector * kSector + 510] = 0x55;
  disk[sector * kSector + 511] = 0xAA;
}

void PutNtfsBootSector(std::vector<uint8_t>& disk, uint64_t sector) {
  std::memcpy(disk.data() + sector * kSector + 3, "NTFS    ", 8);
  disk[sector * kSector + 510] = 0x55;
  disk[sector * kSector + 511] = 0xAA;
}

// A GPT disk with a protective MBR, 128 entries of 128 bytes at sector 2.
struct GptEntry {
  uint32_t slot;
  uint64_t first;
  uint64_t last;
};

std::vector<uint8_t> GptDisk(const std::vector<GptEntry>& entries) {
  std::vector<uint8_t> disk = BlankMbrDisk();
  SetEntry(disk, 0, 0, 0xEE, 1, kDiskSectors - 1);
  uint8_t* array = disk.data() + 2 * kSector;
  static const uint8_t kBasicData[16] = {0xA2, 0xA0, 0xD0, 0xEB, 0xE5, 0xB9, 0x33, 0x44,
                                         0x87, 0xC0, 0x68, 0xB6, 0xB7, 0x26, 0x99, 0xC7};
  for (const GptEntry& entry : entries) {
    uint8_t* bytes = array + (entry.slot - 1) * 128;
    std::memcpy(bytes, kBasicData, 16);
    StoreLe64(bytes + 32, entry.first);
    StoreLe64(bytes + 40, entry.last);
  }
  uint8_t* header = disk.data() + kSector;
  std::memcpy(header, "EFI PART", 8);
  StoreLe32(header + 12, 92);
  StoreLe64(header + 72, 2);
  StoreLe32(header + 80, 128);
  StoreLe32(header + 84, 128);
  StoreLe32(header + 88, Crc32(array, 128 * 128));
  StoreLe32(header + 16, Crc32(header, 92));
  return disk;
}

PartitionTable ReadOk(std::vector<uint8_t> bytes) {
  MemorySource disk(std::move(bytes));
  PartitionTable table;
  std::string error;
  EXPECT_TRUE(PartitionTable::Read(disk, &table, &error)) << error;
  return table;
}

std::string ReadError(std::vector<uint8_t> bytes) {
  MemorySource disk(std::move(bytes));
  PartitionTable table;
  std::string error;
  EXPECT_FALSE(PartitionTable::Read(disk, &table, &error));
  return error;
}

TEST(Crc32Test, MatchesTheStandardCheckValue) {
  const char* text = "123456789";
  EXPECT_EQ(Crc32(reinterpret_cast<const uint8_t*>(text), 9), 0xCBF43926u);
}

TEST(PartitionTableTest, PrimaryPartitionsAreNumberedByTheirSlot) {
  std::vector<uint8_t> disk = BlankMbrDisk();
  SetEntry(disk, 0, 0, 0x07, 2048, 1024);
  SetEntry(disk, 0, 2, 0x83, 3072, 512);
  PartitionTable table = ReadOk(disk);
  ASSERT_EQ(table.scheme, PartitionTable::Scheme::kMbr);
  ASSERT_EQ(table.partitions.size(), 2u);
  EXPECT_EQ(table.partitions[0].number, 1u);
  EXPECT_EQ(table.partitions[0].start, 2048 * kSector);
  EXPECT_EQ(table.partitions[0].length, 1024 * kSector);
  EXPECT_EQ(table.partitions[0].type, "0x07");
  EXPECT_EQ(table.partitions[1].number, 3u);
  EXPECT_EQ(table.partitions[1].typeName, "Linux");
}

TEST(PartitionTableTest, LogicalPartitionsFollowTheExtendedBootRecordChainFromFive) {
  std::vector<uint8_t> disk = BlankMbrDisk();
  SetEntry(disk, 0, 0, 0x07, 64, 64);
  SetEntry(disk, 0, 1, 0x0F, 1024, 2048);
  // First record at the extended partition's start: a logical partition 64
  // sectors in, and a link to the next record 1024 sectors into the extended partition.
  SetEntry(disk, 1024, 0, 0x07, 64, 256);
  SetEntry(disk, 1024, 1, 0x05, 1024, 512);
  SetEntry(disk, 2048, 0, 0x83, 32, 128);
  PartitionTable table = ReadOk(disk);
  ASSERT_EQ(table.partitions.size(), 4u);
  EXPECT_TRUE(table.partitions[1].container);
  EXPECT_EQ(table.partitions[2].number, 5u);
  EXPECT_EQ(table.partitions[2].start, (1024 + 64) * kSector);
  EXPECT_EQ(table.partitions[2].length, 256 * kSector);
  EXPECT_EQ(table.partitions[3].number, 6u);
  EXPECT_EQ(table.partitions[3].start, (2048 + 32) * kSector);
}

TEST(PartitionTableTest, AnExtendedBootRecordChainThatLoopsEndsWithAnError) {
  std::vector<uint8_t> disk = BlankMbrDisk();
  SetEntry(disk, 0, 1, 0x0F, 1024, 2048);
  SetEntry(disk, 1024, 0, 0x07, 64, 8);
  SetEntry(disk, 1024, 1, 0x05, 512, 512);  // on to the record at sector 1536
  SetEntry(disk, 1536, 0, 0x07, 64, 8);
  std::vector<uint8_t> looping = disk;
  SetEntry(looping, 1536, 1, 0x05, 512, 512);  // the second record links to itself
  EXPECT_EQ(ReadOk(disk).partitions.size(), 3u);
  EXPECT_EQ(ReadError(looping), "the chain of extended boot records does not end after 128 logical partitions");
}

TEST(PartitionTableTest, AnExtendedBootRecordWithoutSignatureIsAnError) {
  std::vector<uint8_t> disk = BlankMbrDisk();
  SetEntry(disk, 0, 1, 0x0F, 1024, 2048);
  EXPECT_EQ(ReadError(disk), "the extended boot record at byte 524288 has no 0x55AA signature");
}

TEST(PartitionTableTest, AnEntryPastTheEndOfTheDiskIsKeptAndMarked) {
  std::vector<uint8_t> disk = BlankMbrDisk();
  SetEntry(disk, 0, 0, 0x07, 2048, 4096);
  PartitionTable table = ReadOk(disk);
  ASSERT_EQ(table.partitions.size(), 1u);
  EXPECT_TRUE(table.partitions[0].pastEnd);
}

TEST(PartitionTableTest, AnNtfsBootSectorAtZeroIsAVolumeNotADisk) {
  std::vector<uint8_t> disk = BlankMbrDisk();
  SetEntry(disk, 0, 0, 0x07, 2048, 1024);
  PutNtfsBootSector(disk, 0);
  EXPECT_EQ(ReadOk(disk).scheme, PartitionTable::Scheme::kNone);
}

TEST(PartitionTableTest, SectorZeroWithoutSignatureHoldsNoTable) {
  std::vector<uint8_t> disk(kDiskSectors * kSector);
  EXPECT_EQ(ReadOk(disk).scheme, PartitionTable::Scheme::kNone);
}

TEST(PartitionTableTest, ABootSectorWithOtherStatusBytesIsNoTable) {
  std::vector<uint8_t> disk = BlankMbrDisk();
  SetEntry(disk, 0, 0, 0x07, 2048, 1024);
  disk[446] = 0x12;
  EXPECT_EQ(ReadOk(disk).scheme, PartitionTable::Scheme::kNone);
}

TEST(PartitionTableTest, GptEntriesAreNumberedByTheirSlot) {
  PartitionTable table = ReadOk(GptDisk({{1, 34, 1057}, {3, 2048, 4063}}));
  ASSERT_EQ(table.scheme, PartitionTable::Scheme::kGpt);
  ASSERT_EQ(table.partitions.size(), 2u);
  EXPECT_EQ(table.partitions[0].number, 1u);
  EXPECT_EQ(table.partitions[0].start, 34 * kSector);
  EXPECT_EQ(table.partitions[0].length, 1024 * kSector);
  EXPECT_EQ(table.partitions[0].type, "ebd0a0a2-b9e5-4433-87c0-68b6b72699c7");
  EXPECT_EQ(table.partitions[0].typeName, "Microsoft basic data");
  EXPECT_EQ(table.partitions[1].number, 3u);
  EXPECT_EQ(table.partitions[1].length, 2016 * kSector);
}

TEST(PartitionTableTest, AGptHeaderThatFailsItsCrcIsAnError) {
  std::vector<uint8_t> disk = GptDisk({{1, 34, 1057}});
  disk[kSector + 40] ^= 1;
  EXPECT_EQ(ReadError(disk), "the GPT header at byte 512 fails its CRC-32 check");
}

TEST(PartitionTableTest, AGptEntryArrayThatFailsItsCrcIsAnError) {
  std::vector<uint8_t> disk = GptDisk({{1, 34, 1057}});
  disk[2 * kSector + 40] ^= 1;
  EXPECT_EQ(ReadError(disk), "the GPT entry array at byte 1024 fails its CRC-32 check");
}

TEST(PartitionTableTest, AProtectiveMbrWithoutGptHeaderIsAnError) {
  std::vector<uint8_t> disk = GptDisk({{1, 34, 1057}});
  disk[kSector] = 'X';
  EXPECT_EQ(ReadError(disk), "the protective MBR announces a GPT, but there is no GPT header at byte 512");
}

TEST(PartitionTableTest, AGptEntryThatEndsBeforeItStartsIsAnError) {
  EXPECT_EQ(ReadError(GptDisk({{2, 100, 99}})), "GPT entry 2 gives an impossible range of sectors");
}

TEST(PartitionTableTest, AGptEntryPastTheEndOfTheDiskIsMarked) {
  PartitionTable table = ReadOk(GptDisk({{1, 2048, 8191}}));
  ASSERT_EQ(table.partitions.size(), 1u);
  EXPECT_TRUE(table.partitions[0].pastEnd);
}

TEST(PartitionTableTest, AnNtfsBootSectorNeedsItsNameAndSignature) {
  std::vector<uint8_t> disk = BlankMbrDisk();
  PutNtfsBootSector(disk, 100);
  std::memcpy(disk.data() + 200 * kSector + 3, "NTFS    ", 8);
  MemorySource source(disk);
  EXPECT_TRUE(PartitionTable::HasNtfsBootSector(source, 100 * kSector));
  EXPECT_FALSE(PartitionTable::HasNtfsBootSector(source, 200 * kSector));
  EXPECT_FALSE(PartitionTable::HasNtfsBootSector(source, disk.size()));
}

}  // namespace
