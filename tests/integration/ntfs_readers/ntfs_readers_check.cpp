// Reads the unnamed data attribute of one MFT record of a raw NTFS volume
// and compares its value with a file of expected bytes.
//
// Usage: ntfs_readers_check IMAGE PARTITION_OFFSET RECORD_NUMBER EXPECTED
//        ntfs_readers_check --index IMAGE PARTITION_OFFSET RECORD_NUMBER
//
// The second form walks the directory's index block with VCN 0 and prints
// the record numbers found, sorted, once each, without the directory's own.
//
// Only what this layer provides is used: the boot sector's geometry is read
// here directly, the record is located in the MFT's first run, and its
// attribute headers are walked without following attribute lists.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "ntfsparsercore/attribute.h"
#include "ntfsparsercore/attribute_record.h"
#include "ntfsparsercore/attributes/readers/compressed_reader.h"
#include "ntfsparsercore/attributes/readers/readers_factory.h"
#include "ntfsparsercore/i_volume.h"
#include "ntfsparsercore/index_block_map.h"
#include "ntfsparsercore/io/little_endian.h"
#include "ntfsparsercore/io/source_factory.h"
#include "ntfsparsercore/io/system_file.h"
#include "ntfsparsercore/usn_controller.h"

namespace {

using ntfsparsercore::Attribute;
using ntfsparsercore::AttributeRecord;
using ntfsparsercore::UsnController;
using ntfsparsercore::attributes::readers::CompressedReader;
using ntfsparsercore::attributes::readers::ReadersFactory;
using ntfsparsercore::io::ISource;
using ntfsparsercore::io::LoadLe16;
using ntfsparsercore::io::LoadLe64;

// Boot sector fields.
constexpr uint64_t kBytesPerSectorOffset = 11;
constexpr uint64_t kSectorsPerClusterOffset = 13;
constexpr uint64_t kMftClusterOffset = 48;
constexpr uint64_t kClustersPerRecordOffset = 64;
// File record header field.
constexpr uint64_t kFirstAttributeOffset = 20;
constexpr uint32_t kDataType = 0x80;
constexpr uint32_t kIndexRootType = 0x90;
constexpr uint32_t kIndexAllocationType = 0xA0;
// Index root value: bytes 8 to 11 hold the index block size.
constexpr uint64_t kIndexBlockSizeOffset = 8;

// The partition of a disk image as a volume.
class PartitionVolume : public ntfsparsercore::IVolume {
 public:
  PartitionVolume(std::shared_ptr<ISource> disk, uint64_t start) : disk_(std::move(disk)), start_(start) {
    uint8_t boot[512] = {};
    disk_->Read(boot, sizeof boot, start_);
    sectorSize_ = LoadLe16(boot + kBytesPerSectorOffset);
    clusterSize_ = uint64_t{sectorSize_} * boot[kSectorsPerClusterOffset];
    mftOffset_ = LoadLe64(boot + kMftClusterOffset) * clusterSize_;
    const int8_t perRecord = static_cast<int8_t>(boot[kClustersPerRecordOffset]);
    recordSize_ = perRecord > 0 ? perRecord * clusterSize_ : uint64_t{1} << -perRecord;
  }
  uint64_t Read(void* buffer, uint64_t size, uint64_t offset) override {
    return disk_->Read(buffer, size, start_ + offset);
  }
  uint64_t GetSize() override { return disk_->GetSize() - start_; }
  uint32_t GetSectorSize() override { return sectorSize_; }
  uint64_t GetClusterSize() override { return clusterSize_; }
  uint64_t MftOffset() const { return mftOffset_; }
  uint64_t RecordSize() const { return recordSize_; }

 private:
  std::shared_ptr<ISource> disk_;
  uint64_t start_;
  uint32_t sectorSize_ = 0;
  uint64_t clusterSize_ = 0;
  uint64_t mftOffset_ = 0;
  uint64_t recordSize_ = 0;
};

// The fixed-up bytes of one MFT record, bounded by the record size.
class RecordBytes : public ISource {
 public:
  RecordBytes(PartitionVolume* volume, uint64_t offset, uint64_t size)
      : usn_(volume, std::shared_ptr<ISource>(volume, [](ISource*) {}), offset, UsnController::kFileMagic),
        size_(size) {}
  uint64_t Read(void* buffer, uint64_t size, uint64_t offset) override {
    if (offset >= size_) return 0;
    return usn_.Read(buffer, std::min(size, size_ - offset), offset);
  }
  uint64_t GetSize() override { return size_; }

 private:
  UsnController usn_;
  uint64_t size_;
};

std::vector<uint8_t> ReadFile(const char* path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The attribute records of one MFT record with the given type, unnamed
// ones only when unnamedOnly is set.
std::vector<std::shared_ptr<AttributeRecord>> RecordsOfType(const std::shared_ptr<RecordBytes>& record,
                                                            uint64_t recordSize, uint32_t type, bool unnamedOnly) {
  uint8_t first[2] = {};
  record->Read(first, 2, kFirstAttributeOffset);
  std::vector<std::shared_ptr<AttributeRecord>> found;
  for (uint64_t position = LoadLe16(first); position < recordSize;) {
    auto attribute = std::make_shared<AttributeRecord>(record, position);
    if (attribute->GetType() > AttributeRecord::kMaxType || attribute->GetRecordLength() == 0) break;
    if (attribute->GetType() == type && !(unnamedOnly && attribute->IsNamed())) found.push_back(attribute);
    position += attribute->GetRecordLength();
  }
  return found;
}

int CheckData(PartitionVolume& volume, const std::shared_ptr<RecordBytes>& record, uint64_t number,
              const char* expectedPath) {
  auto data = RecordsOfType(record, volume.RecordSize(), kDataType, true);
  if (data.empty()) {
    std::fprintf(stderr, "record %llu: no unnamed data attribute\n", static_cast<unsigned long long>(number));
    return 1;
  }
  Attribute attribute(std::make_shared<ReadersFactory>(&volume), data);
  auto reader = attribute.CreateReader();
  std::vector<uint8_t> actual(reader->GetSize());
  actual.resize(reader->Read(actual.data(), actual.size(), 0));
  const std::vector<uint8_t> expected = ReadFile(expectedPath);
  const bool compressed = dynamic_cast<CompressedReader*>(reader.get()) != nullptr;
  std::printf("record %llu: %s %s, %zu bytes read, %zu expected, %zu extents\n",
              static_cast<unsigned long long>(number), attribute.IsResident() ? "resident" : "non-resident",
              compressed ? "compressed" : "plain", actual.size(), expected.size(), reader->GetExtents().size());
  if (actual != expected) {
    std::size_t at = 0;
    while (at < actual.size() && at < expected.size() && actual[at] == expected[at]) ++at;
    std::fprintf(stderr, "record %llu: bytes differ from the expected ones at offset %zu\n",
                 static_cast<unsigned long long>(number), at);
    return 1;
  }
  return 0;
}

int ListIndex(PartitionVolume& volume, const std::shared_ptr<RecordBytes>& record, uint64_t number) {
  auto factory = std::make_shared<ReadersFactory>(&volume);
  auto roots = RecordsOfType(record, volume.RecordSize(), kIndexRootType, false);
  auto allocations = RecordsOfType(record, volume.RecordSize(), kIndexAllocationType, false);
  if (roots.empty() || allocations.empty()) {
    std::fprintf(stderr, "record %llu: no index root or allocation\n", static_cast<unsigned long long>(number));
    return 1;
  }
  uint8_t blockSize[4] = {};
  Attribute(factory, {roots.front()}).CreateReader()->Read(blockSize, 4, kIndexBlockSizeOffset);
  ntfsparsercore::IndexBlockMap map(&volume, {std::make_shared<Attribute>(factory, allocations)},
                                    ntfsparsercore::io::LoadLe32(blockSize));
  std::vector<uint64_t> numbers;
  map.Walk(map.Find(0), &numbers);
  std::sort(numbers.begin(), numbers.end());
  numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
  for (uint64_t n : numbers) {
    if (n != number) std::printf("%llu\n", static_cast<unsigned long long>(n));
  }
  return numbers.empty() ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
  const bool index = argc == 5 && std::strcmp(argv[1], "--index") == 0;
  if (argc != 5) {
    std::fprintf(stderr,
                 "usage: %s IMAGE PARTITION_OFFSET RECORD_NUMBER EXPECTED\n"
                 "       %s --index IMAGE PARTITION_OFFSET RECORD_NUMBER\n",
                 argv[0], argv[0]);
    return 2;
  }
  char** args = index ? argv + 1 : argv;
  const uint64_t partition = std::stoull(args[2]);
  const uint64_t number = std::stoull(args[3]);
  // The whole disk as it is: the check applies the partition's offset itself.
  std::shared_ptr<ISource> disk(ntfsparsercore::io::SystemFile::Open(args[1]));
  if (!disk) return 2;
  PartitionVolume volume(disk, partition);
  auto record =
      std::make_shared<RecordBytes>(&volume, volume.MftOffset() + number * volume.RecordSize(), volume.RecordSize());
  return index ? ListIndex(volume, record, number) : CheckData(volume, record, number, args[4]);
}
