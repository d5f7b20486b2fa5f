#include "ntfsparsercore/mft_record.h"

#include <algorithm>
#include <map>
#include <string>
#include <tuple>

#include "common/error_queue.h"
#include "ntfsparsercore/attribute_list_entry.h"
#include "ntfsparsercore/io/little_endian.h"
#include "ntfsparsercore/mft_table.h"
#include "ntfsparsercore/ntfs_format.h"

using tolvarcommon::kErrorFormat;
using tolvarcommon::kErrorInvalid;
using tolvarcommon::Low32;
using tolvarcommon::ReportError;

namespace ntfsparsercore {

namespace {

// Positions inside a record are 16-bit: the attribute walk wraps at this.
constexpr std::size_t kPositionCount = 65536;
// Positions an attribute walk keeps in a list before it moves them into a
// bitmap: more than a sound 1,024- or 4,096-byte record holds attributes.
constexpr std::size_t kShortWalk = 64;

// The positions an attribute walk has met. A short walk keeps them in a
// small list; a longer one (damaged records only) in a bitmap of every
// 16-bit position, so that each step costs the same however long it runs.
struct MetPositions {
  uint16_t list[kShortWalk];               // the positions met, while there are few
  std::size_t listed = 0;                  // entries of list in use
  std::unique_ptr<std::vector<bool>> all;  // every position met, once the list is full

  // Records position; false when it was met before.
  bool FirstVisit(uint16_t position) {
    if (all) {
      if ((*all)[position]) return false;
      (*all)[position] = true;
      return true;
    }
    if (std::find(list, list + listed, position) != list + listed) return false;
    if (listed < kShortWalk) {
      list[listed++] = position;
      return true;
    }
    all = std::make_unique<std::vector<bool>>(kPositionCount, false);
    for (std::size_t i = 0; i < listed; ++i) (*all)[list[i]] = true;
    (*all)[position] = true;
    return true;
  }
};

// Key of one attribute gathered through an attribute list: extents with the
// same id, name and type belong together. Ordered by id, then name
// (byte-wise), then type.
struct GroupKey {
  uint16_t attributeId;  // the attribute id of the extent's record
  std::string name;      // the attribute's name; empty when unnamed
  uint32_t type;         // the attribute type code

  bool operator<(const GroupKey& other) const {
    return std::tie(attributeId, name, type) < std::tie(other.attributeId, other.name, other.type);
  }
};

// The extent at right goes before the one at left only when both are
// non-resident and right starts at a lower VCN: a resident extent keeps its place.
bool GoesBefore(const AttributeRecord& right, const AttributeRecord& left) {
  return !right.IsResident() && !left.IsResident() && right.GetStartingVcn() < left.GetStartingVcn();
}

// Stable merge sort of extents by starting VCN under GoesBefore.
void SortExtents(MftRecord::RecordList* extents) {
  if (extents->size() < 2) return;
  const auto middle = extents->begin() + static_cast<std::ptrdiff_t>(extents->size() / 2);
  MftRecord::RecordList left(extents->begin(), middle);
  MftRecord::RecordList right(middle, extents->end());
  SortExtents(&left);
  SortExtents(&right);
  std::size_t l = 0;
  std::size_t r = 0;
  std::size_t out = 0;
  while (l < left.size() && r < right.size()) {
    if (GoesBefore(*right[r], *left[l])) {
      (*extents)[out++] = right[r++];
    } else {
      (*extents)[out++] = left[l++];
    }
  }
  while (l < left.size()) (*extents)[out++] = left[l++];
  while (r < right.size()) (*extents)[out++] = right[r++];
}

// Drops every extent whose starting VCN equals that of the extent before it.
void DropDuplicateExtents(MftRecord::RecordList* extents) {
  MftRecord::RecordList kept;
  for (const auto& extent : *extents) {
    if (!kept.empty() && kept.back()->GetStartingVcn() == extent->GetStartingVcn()) continue;
    kept.push_back(extent);
  }
  extents->swap(kept);
}

// Sorts attributes by attribute id; equal ids keep their order.
void SortById(MftRecord::AttributeList* attributes) {
  std::stable_sort(attributes->begin(), attributes->end(),
                   [](const std::shared_ptr<Attribute>& a, const std::shared_ptr<Attribute>& b) {
                     return a->GetAttributeId() < b->GetAttributeId();
                   });
}

}  // namespace

MftRecord::MftRecord(std::shared_ptr<attributes::readers::ReadersFactory> readersFactory, IVolume* volume,
                     MftTable* table, std::shared_ptr<io::ISource> source, uint64_t offset, uint64_t recordNumber)
    : readersFactory_(std::move(readersFactory)),
      volume_(volume),
      table_(table),
      record_(volume, std::move(source), offset, UsnController::kFileMagic),
      recordNumber_(recordNumber) {
  if (record_.GetMagic() != UsnController::kFileMagic) {
    ReportError(kErrorFormat, "Unexpected usn type. Was expected(%u), actual(%u)", UsnController::kFileMagic,
                record_.GetMagic());
  }
  uint8_t header[kHeaderSize];
  if (record_.Read(header, kHeaderSize, 0) < kHeaderSize) {
    ReportError(kErrorFormat, "Usn read failed");
    return;
  }
  const uint16_t flags = io::LoadLe16(header + kFlagsOffset);
  inUse_ = (flags & kFlagInUse) != 0;
  const uint32_t signature = io::LoadLe32(header + kSignatureOffset);
  if (signature != UsnController::kFileMagic) {
    ReportError(kErrorFormat, "Unexpected record type. Was expected(%u), actual(%u)", UsnController::kFileMagic,
                signature);
    inUse_ = false;
  }
  if (!inUse_) return;
  allocatedSize_ = io::LoadLe32(header + kAllocatedSizeOffset);
  directory_ = (flags & kFlagDirectory) != 0;
  baseRecordNumber_ = io::LoadLe32(header + kBaseReferenceLowOffset) |
                      (static_cast<uint64_t>(io::LoadLe16(header + kBaseReferenceHighOffset)) << 32);
  firstAttributeOffset_ = io::LoadLe16(header + kFirstAttributeOffset);
}

uint64_t MftRecord::Read(void* buffer, uint64_t size, uint64_t offset) {
  if (offset >= allocatedSize_) {
    ReportError(kErrorInvalid, "MftRecord::Read after(%lu) size(%lu)", Low32(offset), Low32(allocatedSize_));
    return 0;
  }
  if (size > allocatedSize_ - offset) size = allocatedSize_ - offset;
  return record_.Read(buffer, size, offset);
}

MftRecord::RecordList MftRecord::WalkOwnRecords() {
  RecordList records;
  if (!inUse_) return records;
  std::shared_ptr<io::ISource> self = shared_from_this();
  // The walk is a function of the 16-bit position alone: a position met a
  // second time (a length of 0, or lengths that wrap round) would repeat
  // the same records forever, so the walk ends there.
  MetPositions met;
  uint16_t position = firstAttributeOffset_;
  while (met.FirstVisit(position)) {
    auto attribute = std::make_shared<AttributeRecord>(self, position);
    position = static_cast<uint16_t>(position + attribute->GetRecordLength());
    if (attribute->GetType() > AttributeRecord::kMaxType) break;
    records.push_back(attribute);
  }
  return records;
}

MftRecord::AttributeList MftRecord::GatherListedAttributes(const std::shared_ptr<AttributeRecord>& listRecord) {
  const Attribute list(readersFactory_, RecordList{listRecord});
  std::map<GroupKey, RecordList> groups;
  for (const AttributeListEntry& entry : ParseAttributeList(list)) {
    // Without a table (a record made outside one) no extension record can be read.
    if (!table_) break;
    std::shared_ptr<MftRecord> holder = table_->GetRecord(entry.recordNumber, false);
    for (const auto& record : holder->WalkOwnRecords()) {
      if (record->GetAttributeId() != entry.attributeId) continue;
      groups[GroupKey{record->GetAttributeId(), record->GetName(), record->GetType()}].push_back(record);
      break;
    }
  }
  AttributeList attributes;
  for (auto& group : groups) {
    SortExtents(&group.second);
    DropDuplicateExtents(&group.second);
    attributes.push_back(std::make_shared<Attribute>(readersFactory_, group.second));
  }
  return attributes;
}

MftRecord::AttributeList MftRecord::GetAttributes() {
  const RecordList own = WalkOwnRecords();
  for (const auto& record : own) {
    if (record->GetType() == format::kAttributeAttributeList) return GatherListedAttributes(record);
  }
  return OwnAttributes(own, nullptr);
}

MftRecord::AttributeList MftRecord::GetAttributes(uint32_t type) {
  const RecordList own = WalkOwnRecords();
  for (const auto& record : own) {
    if (record->GetType() != format::kAttributeAttributeList) continue;
    AttributeList kept;
    for (auto& attribute : GatherListedAttributes(record)) {
      if (attribute->GetType() == type) kept.push_back(std::move(attribute));
    }
    return kept;
  }
  return OwnAttributes(own, &type);
}

MftRecord::AttributeList MftRecord::OwnAttributes(const RecordList& own, const uint32_t* type) {
  // Sorting by id keeps the order among the attributes of one type, so
  // those of other types can be left out before they are made.
  AttributeList attributes;
  for (const auto& record : own) {
    if (type && record->GetType() != *type) continue;
    attributes.push_back(std::make_shared<Attribute>(readersFactory_, RecordList{record}));
  }
  SortById(&attributes);
  return attributes;
}

}  // namespace ntfsparsercore
