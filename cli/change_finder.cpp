#include "cli/change_finder.h"

#include <algorithm>
#include <set>
#include <tuple>

namespace tolvarcli {

namespace {

bool SameRuns(const ntfsparsercore::RunList& a, const ntfsparsercore::RunList& b) { return a == b; }

// The listed names as comparable keys.
std::set<std::tuple<uint64_t, std::u16string>> NameKeys(const FileRecordInfo& info) {
  std::set<std::tuple<uint64_t, std::u16string>> keys;
  for (const FileName& name : info.ListedNames()) keys.insert(std::make_tuple(name.parent, name.name));
  return keys;
}

bool Live(const FileRecordInfo& info) { return info.inUse && info.baseRecord == 0; }

}  // namespace

const char* FileChange::KindName(Kind kind) {
  switch (kind) {
    case kAdded:
      return "added";
    case kDeleted:
      return "deleted";
    case kModified:
      return "modified";
    case kRenamed:
      return "renamed";
    case kMetadata:
      break;
  }
  return "metadata";
}

ChangeFinder::ChangeFinder(SnapshotTree& older, SnapshotTree& newer) : older_(older), newer_(newer) {}

bool ChangeFinder::DataDiffers(const FileRecordInfo& older, const FileRecordInfo& newer) {
  const DataStream* a = older.UnnamedData();
  const DataStream* b = newer.UnnamedData();
  if (!a || !b) return (a == nullptr) != (b == nullptr);
  if (a->size != b->size || a->resident != b->resident) return true;
  if (a->resident) return a->residentValue != b->residentValue;
  return !SameRuns(a->runs, b->runs);
}

bool ChangeFinder::NamesDiffer(const FileRecordInfo& older, const FileRecordInfo& newer) {
  return NameKeys(older) != NameKeys(newer);
}

bool ChangeFinder::MetadataDiffers(const FileRecordInfo& older, const FileRecordInfo& newer) {
  if (older.attributes != newer.attributes) return true;
  return !std::equal(older.times, older.times + FileRecordInfo::kTimeCount, newer.times);
}

bool ChangeFinder::Classify(const FileRecordInfo& older, const FileRecordInfo& newer, FileChange::Kind* kind) {
  if (DataDiffers(older, newer)) {
    *kind = FileChange::kModified;
  } else if (NamesDiffer(older, newer)) {
    *kind = FileChange::kRenamed;
  } else if (MetadataDiffers(older, newer)) {
    *kind = FileChange::kMetadata;
  } else {
    return false;
  }
  return true;
}

uint64_t ChangeFinder::RecordCount(SnapshotTree& tree) {
  const uint64_t recordSize = tree.GetMftTable().GetRecordSize();
  if (recordSize == 0) return 0;
  return tree.Info(SnapshotTree::kMftRecord)->Size() / recordSize;
}

void ChangeFinder::AddRecordsInBlocks(SnapshotTree& tree, const tolvarcore::BitMap& changed, uint64_t blockSize,
                                      std::vector<uint64_t>* records) {
  const uint64_t recordSize = tree.GetMftTable().GetRecordSize();
  const uint64_t count = RecordCount(tree);
  const DataStream* mft = tree.Info(SnapshotTree::kMftRecord)->UnnamedData();
  if (!mft || mft->resident || recordSize == 0 || blockSize == 0) return;
  uint64_t fileOffset = 0;  // where the run starts in $MFT's data
  for (const ntfsparsercore::Run& run : mft->runs) {
    const uint64_t start = run.volumeOffset;
    const uint64_t end = start + run.length;
    if (start != 0 && run.length != 0) {
      for (uint64_t block = changed.NextSet(start / blockSize); block < changed.BitCount() && block * blockSize < end;
           block = changed.NextSet(block + 1)) {
        // The bytes of the block that lie in this run, as positions in $MFT's data.
        const uint64_t from = std::max(block * blockSize, start) - start + fileOffset;
        const uint64_t to = std::min((block + 1) * blockSize, end) - start + fileOffset;
        for (uint64_t record = from / recordSize; record * recordSize < to && record < count; ++record) {
          records->push_back(record);
        }
      }
    }
    fileOffset += run.length;
  }
}

std::vector<uint64_t> ChangeFinder::RecordsInBlocks(const tolvarcore::BitMap& changed, uint64_t blockSize) {
  std::vector<uint64_t> records;
  AddRecordsInBlocks(older_, changed, blockSize, &records);
  AddRecordsInBlocks(newer_, changed, blockSize, &records);
  std::sort(records.begin(), records.end());
  records.erase(std::unique(records.begin(), records.end()), records.end());
  return records;
}

std::vector<uint64_t> ChangeFinder::AllRecords() {
  const uint64_t count = std::max(RecordCount(older_), RecordCount(newer_));
  std::vector<uint64_t> records(static_cast<std::size_t>(count));
  for (uint64_t i = 0; i < count; ++i) records[i] = i;
  return records;
}

FileChange ChangeFinder::Make(FileChange::Kind kind, std::shared_ptr<const FileRecordInfo> older,
                              std::shared_ptr<const FileRecordInfo> newer) {
  FileChange change;
  change.kind = kind;
  change.older = std::move(older);
  change.newer = std::move(newer);
  const FileRecordInfo& shown = change.newer ? *change.newer : *change.older;
  change.record = shown.record;
  change.sequence = shown.sequence;
  change.path = change.newer ? newer_.PathOf(shown.record) : older_.PathOf(shown.record);
  if (kind == FileChange::kRenamed) change.oldPath = older_.PathOf(shown.record);
  return change;
}

void ChangeFinder::CompareBase(uint64_t record, std::vector<FileChange>* changes, std::vector<uint64_t>* damaged) {
  auto older = older_.Info(record);
  auto newer = newer_.Info(record);
  if (older->damaged || newer->damaged) {
    damaged->push_back(record);
    return;
  }
  const bool wasLive = Live(*older);
  const bool isLive = Live(*newer);
  if (wasLive && isLive && older->sequence == newer->sequence) {
    FileChange::Kind kind;
    if (Classify(*older, *newer, &kind)) changes->push_back(Make(kind, older, newer));
    return;
  }
  if (wasLive) changes->push_back(Make(FileChange::kDeleted, older, nullptr));
  if (isLive) changes->push_back(Make(FileChange::kAdded, nullptr, newer));
}

std::vector<FileChange> ChangeFinder::Compare(const std::vector<uint64_t>& records, std::vector<uint64_t>* damaged) {
  std::set<uint64_t> bases;
  for (uint64_t record : records) {
    if (ReadRawRecord(older_.GetMftTable(), record) == ReadRawRecord(newer_.GetMftTable(), record)) continue;
    auto older = older_.Info(record);
    auto newer = newer_.Info(record);
    // An extension record holds attributes of its base record's file.
    if (older->inUse && older->baseRecord != 0) bases.insert(older->baseRecord);
    if (newer->inUse && newer->baseRecord != 0) bases.insert(newer->baseRecord);
    if (older->baseRecord == 0 || newer->baseRecord == 0) bases.insert(record);
  }
  std::vector<FileChange> changes;
  for (uint64_t record : bases) CompareBase(record, &changes, damaged);
  std::stable_sort(changes.begin(), changes.end(),
                   [](const FileChange& a, const FileChange& b) { return a.path < b.path; });
  return changes;
}

bool ChangeFinder::BytesDiffer(const DataStream& stream, const tolvarcore::BitMap& changed, uint64_t blockSize) {
  std::vector<uint8_t> a(static_cast<std::size_t>(blockSize));
  std::vector<uint8_t> b(static_cast<std::size_t>(blockSize));
  for (const ntfsparsercore::Run& run : stream.runs) {
    if (run.volumeOffset == 0 || run.length == 0) continue;
    const uint64_t end = run.volumeOffset + run.length;
    for (uint64_t block = changed.NextSet(run.volumeOffset / blockSize);
         block < changed.BitCount() && block * blockSize < end; block = changed.NextSet(block + 1)) {
      const uint64_t from = std::max(block * blockSize, run.volumeOffset);
      const uint64_t n = std::min((block + 1) * blockSize, end) - from;
      const uint64_t gotA = older_.GetVolume().Read(a.data(), n, from);
      const uint64_t gotB = newer_.GetVolume().Read(b.data(), n, from);
      if (gotA != gotB || !std::equal(a.begin(), a.begin() + static_cast<std::ptrdiff_t>(gotA), b.begin())) return true;
    }
  }
  return false;
}

void ChangeFinder::AddContentChanges(const tolvarcore::BitMap& changed, uint64_t blockSize,
                                     std::vector<FileChange>* changes, std::vector<uint64_t>* damaged) {
  std::set<uint64_t> known(damaged->begin(), damaged->end());
  for (FileChange& change : *changes) {
    known.insert(change.record);
    if (change.kind != FileChange::kMetadata || !change.newer) continue;
    const DataStream* data = change.newer->UnnamedData();
    if (data && !data->resident && BytesDiffer(*data, changed, blockSize)) change.kind = FileChange::kModified;
  }
  std::vector<FileChange> added;
  const uint64_t count = RecordCount(newer_);
  for (uint64_t record = 0; record < count; ++record) {
    if (known.count(record)) continue;
    // Read without keeping: the walk passes every record once.
    auto info = std::make_shared<const FileRecordInfo>(newer_.ReadRecord(record));
    if (!Live(*info)) continue;
    const DataStream* data = info->UnnamedData();
    if (!data || data->resident || !BytesDiffer(*data, changed, blockSize)) continue;
    // Its record did not change, so the older version is the same record.
    added.push_back(Make(FileChange::kModified, info, info));
  }
  changes->insert(changes->end(), added.begin(), added.end());
  std::stable_sort(changes->begin(), changes->end(),
                   [](const FileChange& a, const FileChange& b) { return a.path < b.path; });
}

}  // namespace tolvarcli
