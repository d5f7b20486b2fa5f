#include "cli/snapshot_tree.h"

#include <algorithm>
#include <cctype>
#include <set>

#include "common/error_recorder.h"
#include "cli/file_record_parser.h"
#include "cli/record_bytes_source.h"
#include "cli/run_source.h"
#include "ntfsparsercore/path_lookup.h"

namespace tolvarcli {

namespace {

constexpr char kSeparator = '/';
constexpr char16_t kStreamSeparator = u':';

std::vector<std::string> SplitPath(const std::string& path) {
  std::vector<std::string> components;
  std::string component;
  for (char c : path) {
    if (c == kSeparator) {
      if (!component.empty()) components.push_back(component);
      component.clear();
    } else {
      component.push_back(c);
    }
  }
  if (!component.empty()) components.push_back(component);
  return components;
}

std::string AsciiLower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

}  // namespace

SnapshotTree::SnapshotTree(std::shared_ptr<ntfsparsercore::NtfsVolume> volume)
    : volume_(std::move(volume)),
      readers_(std::make_shared<ntfsparsercore::attributes::readers::ReadersFactory>(volume_.get())),
      upCase_(std::vector<uint8_t>()) {
  ntfsparsercore::MftTable* table = volume_->GetMftTable();
  const uint64_t recordSize = table ? table->GetRecordSize() : 0;
  // Record 0 lies in the MFT's first cluster, which the volume's own table reads.
  ntfsparsercore::RunList runs;
  uint64_t size = 0;
  if (table) {
    tolvarcommon::ErrorRecorder recorder;
    ntfsparsercore::MftTable first(volume_.get(), table->GetSource(), readers_, table->GetBaseOffset(), recordSize);
    const FileRecordInfo mft = ReadFileRecordInfo(first, volume_->GetClusterSize(), kMftRecord);
    if (const DataStream* data = mft.UnnamedData()) {
      runs = data->runs;
      size = data->size;
    }
  }
  mft_ = std::make_unique<ntfsparsercore::MftTable>(
      volume_.get(), std::make_shared<RunSource>(volume_.get(), runs, size), readers_, 0, recordSize);
  upCase_ = UpCaseTable::Read(*mft_);
}

SnapshotTree::~SnapshotTree() = default;

FileRecordInfo SnapshotTree::ReadRecord(uint64_t record) {
  // Most records are read straight from their bytes; the rest through the
  // parser, from a table whose source holds the record's bytes, read here once.
  const uint64_t recordSize = mft_->GetRecordSize();
  const uint64_t offset = mft_->GetBaseOffset() + record * recordSize;
  std::vector<uint8_t> raw = ReadRawRecord(*mft_, record);
  FileRecordInfo info;
  const FileRecordParser::Layout layout{offset, volume_->GetSectorSize(), volume_->GetClusterSize()};
  if (FileRecordParser::Parse(record, raw, layout, &info)) return info;
  auto bytes = std::make_shared<RecordBytesSource>(mft_->GetSource(), offset, std::move(raw));
  ntfsparsercore::MftTable table(volume_.get(), bytes, readers_, mft_->GetBaseOffset(), recordSize);
  return ReadFileRecordInfo(table, volume_->GetClusterSize(), record);
}

std::shared_ptr<const FileRecordInfo> SnapshotTree::Info(uint64_t record) {
  auto it = infos_.find(record);
  if (it != infos_.end()) return it->second;
  auto info = std::make_shared<const FileRecordInfo>(ReadRecord(record));
  infos_[record] = info;
  return info;
}

std::vector<SnapshotTree::Entry> SnapshotTree::List(uint64_t directory, std::vector<uint64_t>* damaged) {
  std::vector<uint64_t> numbers;
  {
    // The parser's messages about the index are not the command's to show.
    tolvarcommon::ErrorRecorder recorder;
    numbers = ntfsparsercore::ListDirectory(mft_->GetRecord(directory, true));
  }
  std::set<uint64_t> seen;
  std::vector<Entry> entries;
  for (uint64_t number : numbers) {
    if (!seen.insert(number).second) continue;
    std::shared_ptr<const FileRecordInfo> info = Info(number);
    if (info->damaged) {
      if (damaged) damaged->push_back(number);
      continue;
    }
    // An index entry left over from a file that is gone names a record
    // that is free or now holds another file.
    if (!info->inUse) continue;
    for (const FileName& name : info->ListedNames()) {
      if (name.parent == directory && number != directory) entries.push_back(Entry{name.name, info});
    }
  }
  std::sort(entries.begin(), entries.end(),
            [this](const Entry& a, const Entry& b) { return upCase_.Fold(a.name) < upCase_.Fold(b.name); });
  return entries;
}

std::shared_ptr<const FileRecordInfo> SnapshotTree::FindChild(uint64_t directory, const std::u16string& component) {
  for (const Entry& entry : List(directory, nullptr)) {
    if (upCase_.SameName(entry.name, component)) return entry.info;
  }
  return nullptr;
}

bool SnapshotTree::Resolve(const std::string& path, Found* found, std::string* error) {
  if (path.empty() || path[0] != kSeparator) {
    *error = "a path starts with /: " + path;
    return false;
  }
  std::vector<std::string> components = SplitPath(path);
  std::shared_ptr<const FileRecordInfo> current = Info(kRootRecord);
  if (!current->inUse || !current->directory) {
    *error = "the root directory cannot be read";
    return false;
  }
  *found = Found();
  for (std::size_t i = 0; i < components.size(); ++i) {
    std::u16string component = Utf8ToUtf16(components[i]);
    const bool last = i + 1 == components.size();
    const std::size_t colon = component.find(kStreamSeparator);
    if (last && colon != std::u16string::npos) {
      found->stream = component.substr(colon + 1);
      found->hasStream = true;
      component.resize(colon);
    }
    if (!current->directory) {
      *error = "not a directory: /" + std::string(components[i - 1]);
      return false;
    }
    std::shared_ptr<const FileRecordInfo> child = FindChild(current->record, component);
    if (!child) {
      *error = "no such file or directory in this snapshot: " + path;
      return false;
    }
    current = child;
  }
  found->info = current;
  return true;
}

std::string SnapshotTree::PathOf(uint64_t record) {
  if (record == kRootRecord) return "/";
  // The records from record up to the first whose path is known (the root's is "").
  std::vector<uint64_t> chain;
  std::set<uint64_t> visited;
  std::string path;
  for (uint64_t current = record; current != kRootRecord;) {
    auto cached = paths_.find(current);
    if (cached != paths_.end()) {
      path = cached->second;
      break;
    }
    const FileName* name = Info(current)->PreferredName();
    // No name, or a parent chain that comes back on itself (a damaged volume).
    if (!name || !visited.insert(current).second) return std::string();
    chain.push_back(current);
    current = name->parent;
  }
  for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
    path += "/" + Utf16ToUtf8(Info(*it)->PreferredName()->name);
    // Directories' paths are asked for again and again; a file's seldom.
    if (*it != record || Info(*it)->directory) paths_[*it] = path;
  }
  return path;
}

std::string SnapshotTree::LibraryPathOf(const std::string& path) {
  std::string result;
  uint64_t directory = kRootRecord;
  for (const std::string& component : SplitPath(path)) {
    std::shared_ptr<const FileRecordInfo> child = FindChild(directory, Utf8ToUtf16(component));
    if (!child) return AsciiLower(path);
    tolvarcommon::ErrorRecorder recorder;
    result += "/" + AsciiLower(ntfsparsercore::GetFileName(mft_->GetRecord(child->record, true)));
    directory = child->record;
  }
  return result;
}

}  // namespace tolvarcli
