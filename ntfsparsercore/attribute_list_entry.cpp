#include "ntfsparsercore/attribute_list_entry.h"

#include <algorithm>

#include "ntfsparsercore/attributes/readers/i_reader.h"
#include "ntfsparsercore/attributes/readers/readers_factory.h"
#include "ntfsparsercore/io/little_endian.h"

namespace ntfsparsercore {

namespace {

// On-disk attribute list entry header.
constexpr uint64_t kEntryHeaderSize = 0x1A;
constexpr uint64_t kTypeOffset = 0x00;          // 4 bytes: type code
constexpr uint64_t kRecordLengthOffset = 0x04;  // 2 bytes: entry length
constexpr uint64_t kNameLengthOffset = 0x06;    // 1 byte: name length in UTF-16 units
constexpr uint64_t kNameOffsetOffset = 0x07;    // 1 byte: name offset from the entry start
constexpr uint64_t kStartingVcnOffset = 0x08;   // 8 bytes: first VCN of the extent
constexpr uint64_t kSegmentLowOffset = 0x10;    // 4 bytes: record number, low 32 bits
constexpr uint64_t kSegmentHighOffset = 0x14;   // 2 bytes: record number, bits 32 to 47
constexpr uint64_t kAttributeIdOffset = 0x18;   // 2 bytes: attribute id
constexpr uint64_t kEntryAlignment = 8;

bool EntryLess(const AttributeListEntry& a, const AttributeListEntry& b) {
  if (a.type != b.type) return a.type < b.type;
  if (a.name != b.name) return a.name < b.name;
  return a.startingVcn < b.startingVcn;
}

}  // namespace

std::vector<AttributeListEntry> ParseAttributeList(const Attribute& attributeList) {
  std::vector<AttributeListEntry> entries;
  auto reader = attributeList.CreateReader();
  if (!reader) return entries;
  // An attribute list is stored on the volume, so a sound one is no larger
  // than it: a damaged size beyond that (read from sparse runs as zeros)
  // would yield an entry for every 32 bytes of it.
  uint64_t size = reader->GetSize();
  IVolume* volume = attributeList.GetReadersFactory() ? attributeList.GetReadersFactory()->GetVolume() : nullptr;
  if (volume && !attributeList.IsResident()) size = std::min(size, volume->GetSize());
  uint64_t p = 0;
  while (p < size) {
    uint8_t header[kEntryHeaderSize];
    if (reader->Read(header, kEntryHeaderSize, p) < kEntryHeaderSize) break;
    AttributeListEntry entry;
    entry.type = io::LoadLe32(header + kTypeOffset);
    entry.recordLength = io::LoadLe16(header + kRecordLengthOffset);
    entry.startingVcn = io::LoadLe64(header + kStartingVcnOffset);
    entry.recordNumber = io::LoadLe32(header + kSegmentLowOffset) |
                         (static_cast<uint64_t>(io::LoadLe16(header + kSegmentHighOffset)) << 32);
    entry.attributeId = io::LoadLe16(header + kAttributeIdOffset);
    const uint8_t nameLength = header[kNameLengthOffset];
    if (nameLength != 0) {
      // The name is read, but its length is never set: every entry's name stays empty.
      std::vector<uint8_t> nameBuffer(std::size_t{2} * nameLength);
      reader->Read(nameBuffer.data(), nameBuffer.size(), p + header[kNameOffsetOffset]);
    }
    const uint64_t step = entry.type == 0 ? kEntryHeaderSize : entry.recordLength;
    p = (p + step + kEntryAlignment - 1) / kEntryAlignment * kEntryAlignment;
    entries.push_back(entry);
    // An entry of length 0 would leave the position where it is forever.
    if (step == 0) break;
  }
  std::stable_sort(entries.begin(), entries.end(), EntryLess);
  return entries;
}

}  // namespace ntfsparsercore
