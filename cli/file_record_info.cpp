#include "cli/file_record_info.h"

#include <algorithm>
#include <map>

#include "common/error_recorder.h"
#include "cli/up_case_table.h"
#include "ntfsparsercore/attributes/readers/i_reader.h"
#include "ntfsparsercore/file_name_value.h"
#include "ntfsparsercore/ntfs_format.h"
#include "ntfsparsercore/io/little_endian.h"
#include "ntfsparsercore/mft_record.h"

namespace tolvarcli {

namespace {

using ntfsparsercore::io::LoadLe16;
using ntfsparsercore::io::LoadLe32;
using ntfsparsercore::io::LoadLe64;

using ntfsparsercore::FileNameValue;

// File record header.
constexpr uint64_t kSequenceOffset = 16;  // 2 bytes: sequence number

// $STANDARD_INFORMATION value.
constexpr uint64_t kTimesOffset = 0;        // four 8-byte FILETIMEs
constexpr uint64_t kAttributesOffset = 32;  // 4 bytes: file attribute flags

// Non-resident attribute header.
constexpr uint64_t kInitializedSizeOffset = 0x38;  // 8 bytes

// Namespaces in the order a name is preferred for display.
constexpr uint8_t kPreferredOrder[] = {FileRecordInfo::kPosixNamespace, FileRecordInfo::kWin32Namespace,
                                       FileRecordInfo::kWin32AndDosNamespace, FileRecordInfo::kDosNamespace};

std::vector<uint8_t> ReadValue(const ntfsparsercore::Attribute& attribute, uint64_t limit) {
  std::vector<uint8_t> value;
  auto reader = attribute.CreateReader();
  if (!reader) return value;
  value.resize(static_cast<std::size_t>(std::min(reader->GetSize(), limit)));
  value.resize(static_cast<std::size_t>(reader->Read(value.data(), value.size(), 0)));
  return value;
}

void ReadStandardInformation(ntfsparsercore::MftRecord& record, FileRecordInfo* info) {
  for (const auto& attribute : record.GetAttributes(ntfsparsercore::format::kAttributeStandardInformation)) {
    if (DecodeStandardInformation(ReadValue(*attribute, kStandardInformationSize), info)) return;
  }
}

void ReadNames(ntfsparsercore::MftRecord& record, FileRecordInfo* info) {
  for (const auto& attribute : record.GetAttributes(ntfsparsercore::format::kAttributeFileName)) {
    FileName name;
    if (DecodeFileName(ReadValue(*attribute, kFileNameValueLimit), &name)) info->names.push_back(name);
  }
}

uint64_t InitializedSize(const ntfsparsercore::Attribute& attribute) {
  const auto& records = attribute.GetRecords();
  if (records.empty() || !records.front() || !records.front()->GetMftRecord()) return attribute.GetSize();
  uint8_t bytes[8] = {};
  if (records.front()->GetMftRecord()->Read(bytes, sizeof bytes,
                                            records.front()->GetOffset() + kInitializedSizeOffset) < sizeof bytes) {
    return attribute.GetSize();
  }
  return std::min(LoadLe64(bytes), attribute.GetSize());
}

// The $DATA attributes of record, one per name. Gathered through an
// attribute list, the extents of one stream can come as several attributes
// (one per attribute id): they are joined here in order of starting VCN.
std::vector<std::shared_ptr<ntfsparsercore::Attribute>> DataAttributes(ntfsparsercore::MftRecord& record) {
  std::vector<std::shared_ptr<ntfsparsercore::Attribute>> joined;
  std::map<std::string, ntfsparsercore::Attribute::RecordList> extents;
  std::vector<std::string> order;
  std::shared_ptr<ntfsparsercore::attributes::readers::ReadersFactory> readers;
  for (const auto& attribute : record.GetAttributes(ntfsparsercore::format::kAttributeData)) {
    readers = attribute->GetReadersFactory();
    auto& list = extents[attribute->GetName()];
    if (list.empty()) order.push_back(attribute->GetName());
    list.insert(list.end(), attribute->GetRecords().begin(), attribute->GetRecords().end());
  }
  for (const std::string& name : order) {
    auto& list = extents[name];
    std::stable_sort(list.begin(), list.end(),
                     [](const std::shared_ptr<ntfsparsercore::AttributeRecord>& a,
                        const std::shared_ptr<ntfsparsercore::AttributeRecord>& b) {
                       return !a->IsResident() && !b->IsResident() && a->GetStartingVcn() < b->GetStartingVcn();
                     });
    joined.push_back(std::make_shared<ntfsparsercore::Attribute>(readers, list));
  }
  return joined;
}

void ReadStreams(ntfsparsercore::MftRecord& record, uint64_t clusterSize, FileRecordInfo* info) {
  for (const auto& attribute : DataAttributes(record)) {
    DataStream stream;
    stream.name = Utf8ToUtf16(attribute->GetName());
    stream.size = attribute->GetSize();
    stream.resident = attribute->IsResident();
    stream.compressed = attribute->IsCompressed();
    stream.sparse = attribute->IsSparse();
    stream.compressionUnit = attribute->GetCompressionUnit();
    if (stream.resident) {
      stream.residentValue = ReadValue(*attribute, stream.size);
      stream.initializedSize = stream.size;
    } else {
      stream.runs = ntfsparsercore::BuildRunList(*attribute, clusterSize);
      stream.initializedSize = InitializedSize(*attribute);
    }
    info->streams.push_back(std::move(stream));
  }
}

}  // namespace

bool DecodeStandardInformation(const std::vector<uint8_t>& value, FileRecordInfo* info) {
  if (value.size() < kStandardInformationSize) return false;
  for (int t = 0; t < FileRecordInfo::kTimeCount; ++t) info->times[t] = LoadLe64(&value[kTimesOffset + 8 * t]);
  info->attributes = LoadLe32(&value[kAttributesOffset]);
  info->hasTimes = true;
  return true;
}

bool DecodeFileName(const std::vector<uint8_t>& value, FileName* name) {
  if (value.size() < FileNameValue::kHeaderSize) return false;
  const uint64_t reference = LoadLe64(&value[FileNameValue::kParentReference]);
  name->parent = reference & ntfsparsercore::format::kFileReferenceRecordMask;
  name->parentSequence = static_cast<uint16_t>(reference >> ntfsparsercore::format::kFileReferenceSequenceShift);
  name->nameSpace = value[FileNameValue::kNamespace];
  const std::size_t units =
      std::min<std::size_t>(value[FileNameValue::kNameLength], (value.size() - FileNameValue::kName) / 2);
  name->name.clear();
  for (std::size_t i = 0; i < units; ++i)
    name->name.push_back(static_cast<char16_t>(LoadLe16(&value[FileNameValue::kName + 2 * i])));
  return true;
}

const DataStream* FileRecordInfo::UnnamedData() const {
  for (const DataStream& stream : streams) {
    if (stream.name.empty()) return &stream;
  }
  return nullptr;
}

uint64_t FileRecordInfo::Size() const {
  const DataStream* data = UnnamedData();
  return data ? data->size : 0;
}

const FileName* FileRecordInfo::PreferredName() const {
  for (uint8_t ns : kPreferredOrder) {
    for (const FileName& name : names) {
      if (name.nameSpace == ns) return &name;
    }
  }
  return nullptr;
}

std::vector<FileName> FileRecordInfo::ListedNames() const {
  std::vector<FileName> listed;
  for (const FileName& name : names) {
    if (name.nameSpace != kDosNamespace) listed.push_back(name);
  }
  return listed;
}

std::vector<uint8_t> ReadRawRecord(ntfsparsercore::MftTable& table, uint64_t record) {
  std::vector<uint8_t> raw;
  if (!table.GetSource()) return raw;
  const uint64_t size = table.GetRecordSize();
  raw.resize(static_cast<std::size_t>(size));
  raw.resize(
      static_cast<std::size_t>(table.GetSource()->Read(raw.data(), size, table.GetBaseOffset() + record * size)));
  return raw;
}

FileRecordInfo ReadFileRecordInfo(ntfsparsercore::MftTable& table, uint64_t clusterSize, uint64_t record) {
  FileRecordInfo info;
  info.record = record;
  const std::vector<uint8_t> raw = ReadRawRecord(table, record);
  info.zero = std::all_of(raw.begin(), raw.end(), [](uint8_t b) { return b == 0; });
  if (raw.size() >= kSequenceOffset + 2) info.sequence = LoadLe16(&raw[kSequenceOffset]);
  if (info.zero) return info;
  tolvarcommon::ErrorRecorder recorder;
  std::shared_ptr<ntfsparsercore::MftRecord> mft = table.GetRecord(record, false);
  const bool headerSound = recorder.Records().empty();
  // The header's checks (signature, fix-up) decide whether the record is
  // damaged; the attribute walk reports its end marker as well.
  if (!headerSound) {
    info.damaged = true;
    return info;
  }
  info.inUse = mft->IsInUse();
  info.directory = mft->IsDirectory();
  info.baseRecord = mft->GetBaseRecordNumber();
  if (info.inUse && info.baseRecord == 0) {
    ReadStandardInformation(*mft, &info);
    ReadNames(*mft, &info);
    ReadStreams(*mft, clusterSize, &info);
  }
  return info;
}

}  // namespace tolvarcli
