#include "cli/file_record_parser.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "cli/up_case_table.h"
#include "ntfsparsercore/attribute_record.h"
#include "ntfsparsercore/io/little_endian.h"
#include "ntfsparsercore/mft_record.h"
#include "ntfsparsercore/ntfs_format.h"
#include "ntfsparsercore/run_list.h"
#include "ntfsparsercore/usn_controller.h"
#include "ntfsparsercore/utf16_name.h"

namespace tolvarcli {

namespace {

using ntfsparsercore::AttributeRecord;
using ntfsparsercore::MftRecord;
using ntfsparsercore::UsnController;
using ntfsparsercore::io::LoadLe16;
using ntfsparsercore::io::LoadLe32;
using ntfsparsercore::io::LoadLe64;

// File record header: the sequence number (the other fields are
// MftRecord's and UsnController's).
constexpr uint64_t kSequenceOffset = 16;
// The fix-up array is loaded with an 8-bit index: at most its first 256
// bytes, the update sequence number itself among them.
constexpr uint32_t kFixupIndexLimit = 255;
// More attributes than a sound record holds: such a walk is left to the parser.
constexpr std::size_t kMostAttributes = 64;

// One attribute record's header fields, as AttributeRecord reads them.
struct AttributeHeader {
  uint64_t offset = 0;  // in the record
  uint32_t type = 0;
  uint32_t length = 0;  // header and value: the step to the next record
  bool resident = true;
  bool compressed = false;
  bool sparse = false;
  uint16_t id = 0;
  std::string name;              // UTF-8, as the parser gives it
  uint64_t size = 0;             // value size
  uint64_t dataOffset = 0;       // the resident value or the mapping pairs, in the record
  uint16_t compressionUnit = 0;  // for a compressed first extent
};

// The record as the parser's reads see it: fix-ups put back, every read
// clipped to the allocated size.
class RecordImage {
 public:
  RecordImage(std::vector<uint8_t> bytes, uint64_t allocated) : bytes_(std::move(bytes)), allocated_(allocated) {}

  uint64_t Read(void* buffer, uint64_t size, uint64_t offset) const {
    if (offset >= allocated_) return 0;
    size = std::min(size, allocated_ - offset);
    std::memcpy(buffer, bytes_.data() + offset, static_cast<std::size_t>(size));
    return size;
  }
  std::vector<uint8_t> Value(uint64_t offset, uint64_t size) const {
    if (offset >= allocated_) return {};
    size = std::min(size, allocated_ - offset);
    return std::vector<uint8_t>(bytes_.begin() + static_cast<std::ptrdiff_t>(offset),
                                bytes_.begin() + static_cast<std::ptrdiff_t>(offset + size));
  }
  const uint8_t* Bytes() const { return bytes_.data(); }
  uint64_t Allocated() const { return allocated_; }

 private:
  std::vector<uint8_t> bytes_;  // the record, fix-ups applied
  uint64_t allocated_;          // what the header says is allocated (at most bytes_.size())
};

// raw with the fix-up array's bytes put back at each sector's last two
// bytes, as the parser places them: sectors counted from the source's
// start, the array indexed by the sector's distance from the record's
// start. False when the array lies past the record.
bool ApplyFixups(const std::vector<uint8_t>& raw, const FileRecordParser::Layout& layout, std::vector<uint8_t>* fixed) {
  *fixed = raw;
  const uint32_t arrayOffset = LoadLe16(&raw[UsnController::kUsaOffsetOffset]);
  const uint32_t arrayBytes = 2u * LoadLe16(&raw[UsnController::kUsaCountOffset]);
  std::vector<uint8_t> fixups;
  for (uint32_t i = 2; i < arrayBytes; ++i) {
    if (arrayOffset + i >= raw.size()) return false;
    fixups.push_back(raw[arrayOffset + i]);
    if (i == kFixupIndexLimit) break;
  }
  const uint64_t s = layout.sectorSize;
  if (s == 0 || fixups.empty()) return true;
  const uint64_t start = layout.position;
  const uint64_t end = start + raw.size();
  for (uint64_t q = start - start % s; q < end; q += s) {
    const uint64_t index = q > start ? 2 * ((q - start) / s) : 0;
    for (uint64_t k = 0; k < 2; ++k) {
      const uint64_t at = q + s - 2 + k;
      if (at >= start && at < end && index + k < fixups.size()) (*fixed)[at - start] = fixups[index + k];
    }
  }
  return true;
}

AttributeHeader ReadAttributeHeader(const RecordImage& image, uint64_t offset) {
  uint8_t header[AttributeRecord::kHeaderSize] = {};  // a short read leaves zeros
  image.Read(header, sizeof header, offset);
  AttributeHeader attribute;
  attribute.offset = offset;
  attribute.type = LoadLe32(header + AttributeRecord::kTypeOffset);
  attribute.length = LoadLe32(header + AttributeRecord::kRecordLengthOffset);
  if (attribute.type > AttributeRecord::kMaxType) return attribute;
  const uint16_t flags = LoadLe16(header + AttributeRecord::kFlagsOffset);
  const uint8_t nameLength = header[AttributeRecord::kNameLengthOffset];
  attribute.resident = header[AttributeRecord::kNonResidentOffset] == 0;
  attribute.compressed = (flags & AttributeRecord::kFlagCompressed) != 0;
  attribute.sparse = (flags & AttributeRecord::kFlagSparse) != 0;
  attribute.id = LoadLe16(header + AttributeRecord::kAttributeIdOffset);
  if (nameLength != 0) {
    std::vector<uint8_t> units(2u * nameLength + 2, 0);  // the name and a zero code unit
    image.Read(units.data(), uint64_t{2} * nameLength, offset + LoadLe16(header + AttributeRecord::kNameOffsetOffset));
    attribute.name = ntfsparsercore::Utf16LeToUtf8(units.data(), nameLength + 1u);
  }
  if (attribute.resident) {
    attribute.size = LoadLe32(header + AttributeRecord::kValueLengthOffset);
    attribute.dataOffset = offset + LoadLe16(header + AttributeRecord::kValueOffsetOffset);
    return attribute;
  }
  if (LoadLe64(header + AttributeRecord::kStartingVcnOffset) == 0) {
    attribute.size = LoadLe64(header + AttributeRecord::kDataSizeOffset);
    if (attribute.compressed) attribute.compressionUnit = LoadLe16(header + AttributeRecord::kCompressionUnitOffset);
  }
  attribute.dataOffset = offset + LoadLe16(header + AttributeRecord::kMappingPairsOffsetOffset);
  return attribute;
}

// The attribute records from the first on, until a type above the largest
// or a position met before, ordered by attribute id (equal ids keep their
// order, so that those of each type come as the parser takes them). False
// for a walk longer than a sound record's.
bool WalkAttributes(const RecordImage& image, uint16_t first, std::vector<AttributeHeader>* attributes) {
  uint16_t met[kMostAttributes];
  std::size_t metCount = 0;
  uint16_t position = first;
  while (std::find(met, met + metCount, position) == met + metCount) {
    if (metCount == kMostAttributes) return false;
    met[metCount++] = position;
    AttributeHeader attribute = ReadAttributeHeader(image, position);
    if (attribute.type > AttributeRecord::kMaxType) break;
    position = static_cast<uint16_t>(position + attribute.length);
    attributes->push_back(std::move(attribute));
  }
  std::stable_sort(attributes->begin(), attributes->end(),
                   [](const AttributeHeader& a, const AttributeHeader& b) { return a.id < b.id; });
  return true;
}

// A resident value, at most limit bytes of it.
std::vector<uint8_t> ResidentValue(const RecordImage& image, const AttributeHeader& attribute, uint64_t limit) {
  return image.Value(attribute.dataOffset, std::min(attribute.size, limit));
}

bool ReadStandardInformation(const RecordImage& image, const std::vector<AttributeHeader>& attributes,
                             FileRecordInfo* info) {
  for (const AttributeHeader& attribute : attributes) {
    if (attribute.type != ntfsparsercore::format::kAttributeStandardInformation) continue;
    if (!attribute.resident) return false;
    if (DecodeStandardInformation(ResidentValue(image, attribute, kStandardInformationSize), info)) return true;
  }
  return true;
}

bool ReadNames(const RecordImage& image, const std::vector<AttributeHeader>& attributes, FileRecordInfo* info) {
  for (const AttributeHeader& attribute : attributes) {
    if (attribute.type != ntfsparsercore::format::kAttributeFileName) continue;
    if (!attribute.resident) return false;
    FileName name;
    if (DecodeFileName(ResidentValue(image, attribute, kFileNameValueLimit), &name)) info->names.push_back(name);
  }
  return true;
}

// The stream's size as far as its bytes were written.
uint64_t InitializedSize(const RecordImage& image, const AttributeHeader& attribute) {
  uint8_t bytes[8] = {};
  if (image.Read(bytes, sizeof bytes, attribute.offset + AttributeRecord::kInitializedSizeOffset) < sizeof bytes) {
    return attribute.size;
  }
  return std::min(LoadLe64(bytes), attribute.size);
}

bool ReadStreams(const RecordImage& image, const std::vector<AttributeHeader>& attributes, uint64_t clusterSize,
                 FileRecordInfo* info) {
  const AttributeHeader* before = nullptr;  // the last $DATA attribute taken
  for (const AttributeHeader& attribute : attributes) {
    if (attribute.type != ntfsparsercore::format::kAttributeData) continue;
    // Extents of one stream in one record, and a resident value read
    // through the decompressor, are the parser's to join and read.
    for (const AttributeHeader* other = attributes.data(); before && other <= before; ++other) {
      if (other->type == attribute.type && other->name == attribute.name) return false;
    }
    before = &attribute;
    if (attribute.resident && attribute.compressed) return false;
    DataStream stream;
    stream.name = Utf8ToUtf16(attribute.name);
    stream.size = attribute.size;
    stream.resident = attribute.resident;
    stream.compressed = attribute.compressed;
    stream.sparse = attribute.sparse;
    stream.compressionUnit = attribute.compressionUnit;
    if (stream.resident) {
      stream.residentValue = ResidentValue(image, attribute, stream.size);
      stream.initializedSize = stream.size;
    } else {
      const uint64_t at = std::min(attribute.dataOffset, image.Allocated());
      ntfsparsercore::AppendRuns(image.Bytes() + at, image.Allocated() - at, clusterSize, &stream.runs);
      stream.initializedSize = InitializedSize(image, attribute);
    }
    info->streams.push_back(std::move(stream));
  }
  return true;
}

}  // namespace

bool FileRecordParser::Parse(uint64_t record, const std::vector<uint8_t>& raw, const Layout& layout,
                             FileRecordInfo* info) {
  *info = FileRecordInfo();
  info->record = record;
  info->zero = std::all_of(raw.begin(), raw.end(), [](uint8_t b) { return b == 0; });
  if (raw.size() >= kSequenceOffset + 2) info->sequence = LoadLe16(&raw[kSequenceOffset]);
  if (info->zero) return true;
  // A record whose header the parser would find damaged is its to judge.
  if (raw.size() < MftRecord::kHeaderSize || LoadLe32(&raw[MftRecord::kSignatureOffset]) != UsnController::kFileMagic) {
    return false;
  }
  std::vector<uint8_t> fixed;
  if (!ApplyFixups(raw, layout, &fixed)) return false;
  const uint16_t flags = LoadLe16(&fixed[MftRecord::kFlagsOffset]);
  info->inUse = (flags & MftRecord::kFlagInUse) != 0;
  if (!info->inUse) return true;
  const uint64_t allocated = LoadLe32(&fixed[MftRecord::kAllocatedSizeOffset]);
  // Reads past the record would reach the next record's bytes.
  if (allocated > raw.size()) return false;
  info->directory = (flags & MftRecord::kFlagDirectory) != 0;
  info->baseRecord = LoadLe32(&fixed[MftRecord::kBaseReferenceLowOffset]) |
                     (static_cast<uint64_t>(LoadLe16(&fixed[MftRecord::kBaseReferenceHighOffset])) << 32);
  if (info->baseRecord != 0) return true;
  const uint16_t first = LoadLe16(&fixed[MftRecord::kFirstAttributeOffset]);
  const RecordImage image(std::move(fixed), allocated);
  std::vector<AttributeHeader> attributes;
  if (!WalkAttributes(image, first, &attributes)) return false;
  for (const AttributeHeader& attribute : attributes) {
    if (attribute.type == ntfsparsercore::format::kAttributeAttributeList) return false;
  }
  return ReadStandardInformation(image, attributes, info) && ReadNames(image, attributes, info) &&
         ReadStreams(image, attributes, layout.clusterSize, info);
}

}  // namespace tolvarcli
