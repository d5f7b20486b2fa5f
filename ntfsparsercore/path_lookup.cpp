#include "ntfsparsercore/path_lookup.h"

#include <cctype>
#include <sstream>

#include "common/error_queue.h"
#include "common/error_recorder.h"
#include "ntfsparsercore/index_block_map.h"
#include "ntfsparsercore/io/little_endian.h"
#include "ntfsparsercore/utf16_name.h"

using tolvarcommon::ErrorRecord;
using tolvarcommon::ErrorRecorder;
using tolvarcommon::kErrorInvalid;
using tolvarcommon::ReplayErrors;
using tolvarcommon::ReportError;

namespace ntfsparsercore {

namespace {

constexpr uint32_t kFileNameType = 0x30;
constexpr uint32_t kIndexRootType = 0x90;
constexpr uint32_t kIndexAllocationType = 0xA0;
constexpr uint64_t kRootDirectoryRecord = 5;
constexpr char kSeparator = '/';
constexpr char kRootName[] = ".";

// File name attribute value; the first kFileNameHeaderSize bytes are read in one piece.
constexpr uint64_t kFileNameHeaderSize = 66;
constexpr uint64_t kParentReferenceOffset = 0;  // 8 bytes: parent directory, number in the low 48 bits
constexpr uint64_t kNameLengthOffset = 64;      // 1 byte: name length in UTF-16 code units
constexpr uint64_t kNamespaceOffset = 65;       // 1 byte: namespace of the name
constexpr uint64_t kNameOffset = 66;            // the name, UTF-16LE
constexpr std::size_t kNameBufferSize = 514;    // 255 code units and a terminator
// Namespaces in the order they are preferred: POSIX, Win32, Win32 and DOS, DOS.
constexpr uint8_t kNamespaceOrder[] = {0, 1, 3, 2};

// Index root value: its header, then the node header.
constexpr uint64_t kRootHeaderSize = 16;
constexpr uint64_t kBlockSizeOffset = 8;        // in the root header, 4 bytes: bytes per index block
constexpr uint64_t kRootNodeHeaderOffset = 16;  // the node header; entry offsets count from here
constexpr uint64_t kNodeHeaderSize = 16;
constexpr uint64_t kEntriesOffsetOffset = 0;  // in the node header, 4 bytes: first entry

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
    uint8_t header[kFileNameHeaderSize];
    if (!reader || reader->Read(header, kFileNameHeaderSize, 0) < kFileNameHeaderSize) return false;
    if (header[kNamespaceOffset] != ns) continue;
    const uint8_t length = header[kNameLengthOffset];
    uint8_t name[kNameBufferSize] = {};
    reader->Read(name, 2u * length, kNameOffset);
    found->parentRecordNumber = io::LoadLe64(header + kParentReferenceOffset) & MftRecord::kRecordNumberMask;
    found->name = Utf16LeToUtf8(name, length);
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
    subNodes->map.reset(new IndexBlockMap(record->GetVolume(), record->GetAttributes(kIndexAllocationType), blockSize));
    subNodes->messages = recorder.Records();
    subNodes->reusable = !recorder.ReadFailed();
  }
  subNodes->map->Walk(subNodes->map->Find(vcn), numbers);
}

}  // namespace

std::string GetFileName(const std::shared_ptr<MftRecord>& record) {
  if (!record) return std::string();
  const MftRecord::AttributeList names = record->GetAttributes(kFileNameType);
  FoundName found;
  for (uint8_t ns : kNamespaceOrder) {
    if (FindNameInNamespace(names, ns, &found)) return found.name;
  }
  return std::string();
}

std::vector<uint64_t> ListDirectory(const std::shared_ptr<MftRecord>& record) {
  std::vector<uint64_t> numbers;
  if (!record) return numbers;
  const MftRecord::AttributeList roots = record->GetAttributes(kIndexRootType);
  if (roots.empty()) return numbers;
  auto reader = roots.front()->CreateReader();
  uint8_t rootHeader[kRootHeaderSize];
  uint8_t nodeHeader[kNodeHeaderSize];
  if (!reader || reader->Read(rootHeader, kRootHeaderSize, 0) < kRootHeaderSize ||
      reader->Read(nodeHeader, kNodeHeaderSize, kRootNodeHeaderOffset) < kNodeHeaderSize) {
    return numbers;
  }
  const uint64_t blockSize = io::LoadLe32(rootHeader + kBlockSizeOffset);
  uint64_t position = kRootNodeHeaderOffset + io::LoadLe32(nodeHeader + kEntriesOffsetOffset);
  SubNodeMap subNodes;
  for (;;) {
    uint8_t entry[IndexBlockMap::kEntryHeaderSize];
    if (reader->Read(entry, IndexBlockMap::kEntryHeaderSize, position) < IndexBlockMap::kEntryHeaderSize) break;
    const uint16_t length = io::LoadLe16(entry + IndexBlockMap::kEntryLengthOffset);
    const uint32_t flags = io::LoadLe32(entry + IndexBlockMap::kEntryFlagsOffset);
    if (flags & IndexBlockMap::kFlagHasSubNode) {
      uint8_t vcn[IndexBlockMap::kSubNodeVcnSize];
      if (reader->Read(vcn, IndexBlockMap::kSubNodeVcnSize, position + length - IndexBlockMap::kSubNodeVcnSize) <
          IndexBlockMap::kSubNodeVcnSize) {
        break;
      }
      WalkSubNode(record, blockSize, io::LoadLe64(vcn), &subNodes, &numbers);
    }
    if (flags & IndexBlockMap::kFlagLastEntry) break;
    numbers.push_back(io::LoadLe64(entry + IndexBlockMap::kFileReferenceOffset) & IndexBlockMap::kRecordNumberMask);
    // An entry of length 0 would be listed again forever: it ends the listing.
    if (length == 0) break;
    position += length;
  }
  return numbers;
}

io::NtfsFile* FindFile(const std::shared_ptr<NtfsVolume>& volume, const std::string& path) {
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
  std::shared_ptr<MftRecord> directory = table->GetRecord(kRootDirectoryRecord, true);
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
    if (last) return new io::NtfsFile(match);
    directory = match;
  }
  return nullptr;
}

}  // namespace ntfsparsercore
