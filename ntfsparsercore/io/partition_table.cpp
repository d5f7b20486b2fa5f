#include "ntfsparsercore/io/partition_table.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "ntfsparsercore/io/crc32.h"
#include "ntfsparsercore/io/little_endian.h"

namespace ntfsparsercore {
namespace io {

namespace {

// Sector 0: the MBR, or a volume's boot sector.
constexpr uint64_t kSignatureOffset = 510;  // 0x55 0xAA in both
constexpr uint64_t kNtfsNameOffset = 3;     // "NTFS    " in an NTFS boot sector
constexpr char kNtfsName[] = "NTFS    ";
constexpr uint64_t kMbrEntriesOffset = 446;
constexpr uint64_t kMbrEntrySize = 16;
constexpr int kMbrEntries = 4;
constexpr uint64_t kEntryStatus = 0;       // 0x00, or 0x80 for the boot partition
constexpr uint64_t kEntryType = 4;         // partition type byte
constexpr uint64_t kEntryFirstSector = 8;  // 32-bit LBA, relative to the table's reference point
constexpr uint64_t kEntrySectors = 12;     // 32-bit sector count
constexpr uint8_t kTypeGptProtective = 0xEE;

// The GPT header, at sector 1.
constexpr uint64_t kGptHeaderOffset = 512;
constexpr char kGptSignature[] = "EFI PART";
constexpr uint64_t kGptHeaderSize = 12;  // 32-bit: bytes covered by the header CRC
constexpr uint64_t kGptHeaderCrc = 16;   // 32-bit, computed with itself zeroed
constexpr uint64_t kGptEntriesLba = 72;  // 64-bit
constexpr uint64_t kGptEntryCount = 80;  // 32-bit
constexpr uint64_t kGptEntrySize = 84;   // 32-bit
constexpr uint64_t kGptEntriesCrc = 88;  // 32-bit
constexpr uint32_t kGptSmallestHeader = 92;
constexpr uint32_t kGptSmallestEntry = 128;
constexpr uint64_t kMostGptEntryBytes = 1u << 20;  // bounds the array read for a damaged header
// One GPT entry.
constexpr uint64_t kGptEntryType = 0;       // type GUID, all zero for an unused slot
constexpr uint64_t kGptEntryFirstLba = 32;  // 64-bit
constexpr uint64_t kGptEntryLastLba = 40;   // 64-bit, inclusive

bool IsExtendedType(uint8_t type) { return type == 0x05 || type == 0x0F || type == 0x85; }

std::string HexByte(uint8_t value) {
  char text[8];
  std::snprintf(text, sizeof(text), "0x%02x", value);
  return text;
}

const char* MbrTypeName(uint8_t type) {
  switch (type) {
    case 0x05:
    case 0x0F:
    case 0x85:
      return "extended";
    case 0x07:
      return "NTFS/exFAT";
    case 0x0B:
    case 0x0C:
      return "FAT32";
    case 0x27:
      return "Windows recovery";
    case 0x82:
      return "Linux swap";
    case 0x83:
      return "Linux";
    default:
      return "";
  }
}

// A GUID as text: the first three fields are little-endian.
std::string GuidText(const uint8_t* bytes) {
  char text[40];
  std::snprintf(text, sizeof(text), "%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x", LoadLe32(bytes),
                LoadLe16(bytes + 4), LoadLe16(bytes + 6), bytes[8], bytes[9], bytes[10], bytes[11], bytes[12],
                bytes[13], bytes[14], bytes[15]);
  return text;
}

const char* GptTypeName(const std::string& type) {
  static const struct {
    const char* guid;
    const char* name;
  } kKnown[] = {
      {"ebd0a0a2-b9e5-4433-87c0-68b6b72699c7", "Microsoft basic data"},
      {"e3c9e316-0b5c-4db8-817d-f92df00215ae", "Microsoft reserved"},
      {"de94bba4-06d1-4d40-a16a-bfd50179d6ac", "Windows recovery"},
      {"c12a7328-f81f-11d2-ba4b-00a0c93ec93b", "EFI system"},
      {"0fc63daf-8483-4772-8e79-3d69d8477de4", "Linux filesystem"},
  };
  for (const auto& known : kKnown) {
    if (type == known.guid) return known.name;
  }
  return "";
}

bool ReadSector(ISource& disk, uint64_t offset, uint8_t* sector) {
  return disk.Read(sector, PartitionTable::kSectorSize, offset) == PartitionTable::kSectorSize;
}

bool HasSignature(const uint8_t* sector) {
  return sector[kSignatureOffset] == 0x55 && sector[kSignatureOffset + 1] == 0xAA;
}

std::string At(uint64_t offset) { return "at byte " + std::to_string(offset); }

}  // namespace

bool PartitionTable::HasNtfsBootSector(ISource& source, uint64_t offset) {
  uint8_t sector[kSectorSize];
  if (!ReadSector(source, offset, sector)) return false;
  return HasSignature(sector) && std::memcmp(sector + kNtfsNameOffset, kNtfsName, 8) == 0;
}

bool PartitionTable::Read(ISource& disk, PartitionTable* table, std::string* error) {
  *table = PartitionTable();
  table->diskSize = disk.GetSize();
  uint8_t sector[kSectorSize];
  if (!ReadSector(disk, 0, sector) || !HasSignature(sector)) return true;
  if (std::memcmp(sector + kNtfsNameOffset, kNtfsName, 8) == 0) return true;
  for (int slot = 0; slot < kMbrEntries; ++slot) {
    const uint8_t status = sector[kMbrEntriesOffset + slot * kMbrEntrySize + kEntryStatus];
    // Any other status byte: sector 0 is a boot sector of some file system, not an MBR.
    if (status != 0x00 && status != 0x80) return true;
  }
  for (int slot = 0; slot < kMbrEntries; ++slot) {
    if (sector[kMbrEntriesOffset + slot * kMbrEntrySize + kEntryType] == kTypeGptProtective) {
      table->scheme = Scheme::kGpt;
      return table->ReadGpt(disk, error);
    }
  }
  table->scheme = Scheme::kMbr;
  return table->ReadMbr(disk, sector, error);
}

bool PartitionTable::ReadMbr(ISource& disk, const uint8_t* sector, std::string* error) {
  for (int slot = 0; slot < kMbrEntries; ++slot) {
    const uint8_t* entry = sector + kMbrEntriesOffset + slot * kMbrEntrySize;
    const uint8_t type = entry[kEntryType];
    const uint64_t sectors = LoadLe32(entry + kEntrySectors);
    if (type == 0 || sectors == 0) continue;
    Partition partition;
    partition.number = static_cast<uint32_t>(slot + 1);
    partition.start = LoadLe32(entry + kEntryFirstSector) * kSectorSize;
    partition.length = sectors * kSectorSize;
    partition.type = HexByte(type);
    partition.typeName = MbrTypeName(type);
    partition.container = IsExtendedType(type);
    Add(partition);
  }
  std::vector<Partition> primaries = partitions;
  for (const Partition& primary : primaries) {
    if (primary.container && !primary.pastEnd) {
      if (!ReadLogicalPartitions(disk, primary.start, primary.length, error)) return false;
    }
  }
  return true;
}

// Each extended boot record holds one logical partition, relative to the
// record itself, and a link to the next record, relative to the start of
// the extended partition.
bool PartitionTable::ReadLogicalPartitions(ISource& disk, uint64_t extendedStart, uint64_t extendedLength,
                                           std::string* error) {
  uint64_t record = extendedStart;
  for (uint32_t number = kFirstLogicalNumber;; ++number) {
    if (number - kFirstLogicalNumber == kMostLogicalPartitions) {
      *error = "the chain of extended boot records does not end after " + std::to_string(kMostLogicalPartitions) +
               " logical partitions";
      return false;
    }
    uint8_t sector[kSectorSize];
    if (!ReadSector(disk, record, sector)) {
      *error = "the extended boot record " + At(record) + " cannot be read";
      return false;
    }
    if (!HasSignature(sector)) {
      *error = "the extended boot record " + At(record) + " has no 0x55AA signature";
      return false;
    }
    const uint8_t* logical = sector + kMbrEntriesOffset;
    const uint8_t* link = logical + kMbrEntrySize;
    const uint8_t type = logical[kEntryType];
    const uint64_t sectors = LoadLe32(logical + kEntrySectors);
    if (type != 0 && sectors != 0) {
      Partition partition;
      partition.number = number;
      partition.start = record + LoadLe32(logical + kEntryFirstSector) * kSectorSize;
      partition.length = sectors * kSectorSize;
      partition.type = HexByte(type);
      partition.typeName = MbrTypeName(type);
      Add(partition);
    }
    const uint64_t next = LoadLe32(link + kEntryFirstSector) * kSectorSize;
    if (!IsExtendedType(link[kEntryType]) || next == 0) return true;
    if (next >= extendedLength) {
      *error = "the extended boot record " + At(record) + " links to byte " + std::to_string(extendedStart + next) +
               ", outside its extended partition";
      return false;
    }
    record = extendedStart + next;
  }
}

bool PartitionTable::ReadGpt(ISource& disk, std::string* error) {
  uint8_t header[kSectorSize];
  if (!ReadSector(disk, kGptHeaderOffset, header)) {
    *error = "the GPT header " + At(kGptHeaderOffset) + " cannot be read";
    return false;
  }
  if (std::memcmp(header, kGptSignature, 8) != 0) {
    *error = "the protective MBR announces a GPT, but there is no GPT header " + At(kGptHeaderOffset);
    return false;
  }
  const uint32_t headerSize = LoadLe32(header + kGptHeaderSize);
  if (headerSize < kGptSmallestHeader || headerSize > kSectorSize) {
    *error = "the GPT header gives an impossible header size of " + std::to_string(headerSize) + " bytes";
    return false;
  }
  const uint32_t headerCrc = LoadLe32(header + kGptHeaderCrc);
  StoreLe32(header + kGptHeaderCrc, 0);
  if (Crc32(header, headerSize) != headerCrc) {
    *error = "the GPT header " + At(kGptHeaderOffset) + " fails its CRC-32 check";
    return false;
  }
  const uint64_t count = LoadLe32(header + kGptEntryCount);
  const uint64_t entrySize = LoadLe32(header + kGptEntrySize);
  if (entrySize < kGptSmallestEntry || entrySize % 8 != 0 || count > kMostGptEntries ||
      count * entrySize > kMostGptEntryBytes) {
    *error = "the GPT header gives an impossible entry array (" + std::to_string(count) + " entries of " +
             std::to_string(entrySize) + " bytes)";
    return false;
  }
  const uint64_t arrayLba = LoadLe64(header + kGptEntriesLba);
  // A sector number whose byte offset overflows cannot be on any disk.
  if (arrayLba > UINT64_MAX / kSectorSize) {
    *error = "the GPT entry array lies past the end of the disk";
    return false;
  }
  std::vector<uint8_t> entries(static_cast<std::size_t>(count * entrySize));
  if (disk.Read(entries.data(), entries.size(), arrayLba * kSectorSize) != entries.size()) {
    *error = "the GPT entry array " + At(arrayLba * kSectorSize) + " cannot be read";
    return false;
  }
  if (Crc32(entries.data(), entries.size()) != LoadLe32(header + kGptEntriesCrc)) {
    *error = "the GPT entry array " + At(arrayLba * kSectorSize) + " fails its CRC-32 check";
    return false;
  }
  static const uint8_t kUnused[16] = {};
  for (uint64_t slot = 0; slot < count; ++slot) {
    const uint8_t* entry = entries.data() + slot * entrySize;
    if (std::memcmp(entry + kGptEntryType, kUnused, sizeof(kUnused)) == 0) continue;
    const uint64_t first = LoadLe64(entry + kGptEntryFirstLba);
    const uint64_t last = LoadLe64(entry + kGptEntryLastLba);
    if (last < first || last >= UINT64_MAX / kSectorSize) {
      *error = "GPT entry " + std::to_string(slot + 1) + " gives an impossible range of sectors";
      return false;
    }
    Partition partition;
    partition.number = static_cast<uint32_t>(slot + 1);
    partition.start = first * kSectorSize;
    partition.length = (last - first + 1) * kSectorSize;
    partition.type = GuidText(entry + kGptEntryType);
    partition.typeName = GptTypeName(partition.type);
    Add(partition);
  }
  return true;
}

void PartitionTable::Add(Partition partition) {
  // A disk of unknown size cannot tell; an entry that overflows is past any end.
  const uint64_t end = partition.start + partition.length;
  partition.pastEnd = end < partition.start || (diskSize != 0 && end > diskSize);
  auto place = std::lower_bound(partitions.begin(), partitions.end(), partition.number,
                                [](const Partition& p, uint32_t number) { return p.number < number; });
  partitions.insert(place, partition);
}

const char* PartitionTable::SchemeName() const {
  switch (scheme) {
    case Scheme::kMbr:
      return "MBR";
    case Scheme::kGpt:
      return "GPT";
    default:
      return "none";
  }
}

const Partition* PartitionTable::Find(uint32_t number) const {
  for (const Partition& partition : partitions) {
    if (partition.number == number) return &partition;
  }
  return nullptr;
}

}  // namespace io
}  // namespace ntfsparsercore
