#include "ntfsparsercore/path_lookup.h"

#include <cctype>
#include <sstream>

#include "common/error_queue.h"
#include "common/error_recorder.h"
#include "ntfsparsercore/file_name_value.h"
#include "ntfsparsercore/index_block_map.h"
#include "ntfsparsercore/index_entry_header.h"
#include "ntfsparsercore/index_root.h"
#include "ntfsparsercore/io/little_endian.h"
#include "ntfsparsercore/ntfs_format.h"

using tolvarcommon::ErrorRecord;
using tolvarcommon::ErrorRecorder;
using tolvarcommon::kErrorInvalid;
using tolvarcommon::ReplayErrors;
using tolvarcommon::ReportError;

namespace ntfsparsercore {

namespace {

constexpr char kSeparator = '/';
constexpr char kRootName[] = ".";

// Namespaces in the order they are preferred.
constexpr uint8_t kNamespaceOrder[] = {FileNameValue::kNamespacePosix, FileNameValue::kNamespaceWin32,
                                       FileNameValue::kNamespaceWin32AndDos, FileNameValue::kNamespaceDos};

// The record number kept with a found name: the parent directory's.
struct FoundName {
  uint64_t parentRecordNumber = 0;  // parent directory of the name
  std::string name;                 // the name in UTF-8
};

// The first file name, in attribute order, in namespace ns; false when
// none is found or a name header cannot be read.
bool FindNameInNamespace(const MftRecord::AttributeList& names, uint8_t ns, FoundName* found) {
  for (const auto& attribute : names) {
    auto reader = attribute->CreateReader();
    FileNameValue value;
    if (!reader || !value.ReadHeader(*reader)) return false;
    if (value.Namespace() != ns) continue;
    found->name = value.ReadName(*reader);
    found->parentRecordNumber = value.ParentRecordNumber();
    return true;
  }
  return false;
}

std::vector<std::string> SplitPath(const std::string& path) {
  std::vector<std::string> components;
  std::istringstream stream(path);
  std::string component;
  while (std::getline(stream, component, kSeparator)) components.push_back(component);
  return components;
}

std::string ToLower(std::string name) {
  for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return name;
}

// The first child of directory whose lower-cased name is component; null when none.
std::shared_ptr<MftRecord> FindChild(MftTable* table, const std::shared_ptr<MftRecord>& directory,
                                     const std::string& component) {
  for (uint64_t number : ListDirectory(directory)) {
    std::shared_ptr<MftRecord> child = table->GetRecord(number, true);
    if (ToLower(GetFileName(child)) == component) return child;
  }
  return nullptr;
}

// The map of a directory's index blocks, as each sub-node of the index
// root needs it: built from every block of the allocation at the first
// sub-node and used again for the others. Building it again would read the
// same blocks and report the same messages, so each later use reports those
// messages again instead; unless a device read failed while it was built,
// in which case it is built anew for each sub-node.
struct SubNodeMap {
  std::unique_ptr<IndexBlockMap> map;  // built at the first sub-node; null before
  std::vector<ErrorRecord> messages;   // what building it reported
  bool reusable = false;               // no device read failed while building it
};

// Appends the entries of the sub-tree under vcn.
void WalkSubNode(const std::shared_ptr<MftRecord>& record, uint64_t blockSize, uint64_t vcn, SubNodeMap* subNodes,
                 std::vector<uint64_t>* numbers) {
  if (subNodes->map && subNodes->reusable) {
    ReplayErrors(subNodes->messages);
  } else {
    ErrorRecorder recorder;
    subNodes->map = std::make_unique<IndexBlockMap>(
        record->GetVolume(), record->GetAttributes(format::kAttributeIndexAllocation), blockSize);
    subNodes->messages = recorder.Records();
    subNodes->reusable = !recorder.ReadFailed();
  }
  subNodes->map->Walk(subNodes->map->Find(vcn), numbers);
}

}  // namespace

std::string GetFileName(const std::shared_ptr<MftRecord>& record) {
  if (!record) return std::string();
  const MftRecord::AttributeList names = record->GetAttributes(format::kAttributeFileName);
  FoundName found;
  for (uint8_t ns : kNamespaceOrder) {
    if (FindNameInNamespace(names, ns, &found)) return found.name;
  }
  return std::string();
}

std::vector<uint64_t> ListDirectory(const std::shared_ptr<MftRecord>& record) {
  std::vector<uint64_t> numbers;
  if (!record) return numbers;
  const MftRecord::AttributeList roots = record->GetAttributes(format::kAttributeIndexRoot);
  if (roots.empty()) return numbers;
  auto reader = roots.front()->CreateReader();
  IndexRoot root;
  if (!reader || !IndexRoot::Read(*reader, &root)) return numbers;
  uint64_t position = root.firstEntry;
  SubNodeMap subNodes;
  for (;;) {
    uint8_t bytes[format::kEntryHeaderSize];
    if (reader->Read(bytes, format::kEntryHeaderSize, position) < format::kEntryHeaderSize) break;
    const IndexEntryHeader entry = IndexEntryHeader::Parse(bytes);
    if (entry.HasSubNode()) {
      uint8_t vcn[format::kSubNodeVcnSize];
      if (reader->Read(vcn, format::kSubNodeVcnSize, entry.SubNodeVcnPosition(position)) < format::kSubNodeVcnSize) {
        break;
      }
      WalkSubNode(record, root.blockSize, io::LoadLe64(vcn), &subNodes, &numbers);
    }
    if (entry.IsLast()) break;
    numbers.push_back(entry.RecordNumber());
    // An entry of length 0 would be listed again forever: it ends the listing.
    if (entry.length == 0) break;
    position += entry.length;
  }
  return numbers;
}

std::unique_ptr<io::NtfsFile> FindFile(const std::shared_ptr<NtfsVolume>& volume, const std::string& path) {
  std::vector<std::string> components = SplitPath(path);
  if (components.empty()) {
    ReportError(kErrorInvalid, "Empty filename");
    return nullptr;
  }
  if (!components.front().empty()) {
    ReportError(kErrorInvalid, "Invalid filename");
    return nullptr;
  }
  components.front() = kRootName;
  // Without a volume or its table there is no root directory to start from.
  if (!volume || !volume->GetMftTable()) return nullptr;
  MftTable* table = volume->GetMftTable();
  std::shared_ptr<MftRecord> directory = table->GetRecord(format::kRootDirectoryRecord, true);
  for (std::size_t i = 0; i < components.size(); ++i) {
    std::shared_ptr<MftRecord> match = FindChild(table, directory, components[i]);
    if (!match) return nullptr;
    const bool last = i + 1 == components.size();
    if (!last && !match->IsDirectory()) {
      ReportError(kErrorInvalid, "It is not a directory %s", components[i].c_str());
      return nullptr;
    }
    if (last && match->IsDirectory()) {
      ReportError(kErrorInvalid, "It is a directory %s", components[i].c_str());
      return nullptr;
    }
    if (last) return std::make_unique<io::NtfsFile>(match);
    directory = match;
  }
  return nullptr;
}

}  // namespace ntfsparsercore
