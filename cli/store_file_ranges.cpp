#include "cli/store_file_ranges.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <string>
#include <vector>

#include "ntfsparsercore/io/ntfs_file.h"
#include "ntfsparsercore/mft_record.h"
#include "ntfsparsercore/ntfs_format.h"
#include "ntfsparsercore/ntfs_volume.h"
#include "ntfsparsercore/path_lookup.h"

namespace tolvarcli {

namespace {

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

bool EndsWith(const std::string& text, const std::string& tail) {
  return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

// The directory entry of folder named name (compared in lower case), or null.
std::shared_ptr<ntfsparsercore::MftRecord> FindEntry(ntfsparsercore::MftTable* table,
                                                     const std::shared_ptr<ntfsparsercore::MftRecord>& folder,
                                                     const std::string& name) {
  for (uint64_t number : ntfsparsercore::ListDirectory(folder)) {
    std::shared_ptr<ntfsparsercore::MftRecord> record = table->GetRecord(number, false);
    if (record && Lower(ntfsparsercore::GetFileName(record)) == name) return record;
  }
  return nullptr;
}

}  // namespace

std::size_t StoreFileRanges::Add(const std::shared_ptr<ntfsparsercore::io::ISource>& volume) {
  std::unique_ptr<ntfsparsercore::NtfsVolume> ntfs(ntfsparsercore::NtfsVolume::Create(volume, kCacheBytes));
  if (!ntfs) return 0;
  ntfsparsercore::MftTable* table = ntfs->GetMftTable();
  std::shared_ptr<ntfsparsercore::MftRecord> root =
      table->GetRecord(ntfsparsercore::format::kRootDirectoryRecord, false);
  std::shared_ptr<ntfsparsercore::MftRecord> folder = root ? FindEntry(table, root, kFolder) : nullptr;
  if (!folder || !folder->IsDirectory()) return 0;
  std::size_t found = 0;
  std::vector<uint64_t> numbers = ntfsparsercore::ListDirectory(folder);
  std::sort(numbers.begin(), numbers.end());
  numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
  for (uint64_t number : numbers) {
    std::shared_ptr<ntfsparsercore::MftRecord> record = table->GetRecord(number, false);
    if (!record || record->IsDirectory() || !EndsWith(Lower(ntfsparsercore::GetFileName(record)), kStoreGuid)) {
      continue;
    }
    ntfsparsercore::io::NtfsFile file(record);
    for (const auto& extent : file.GetExtents()) {
      if (extent.volumeOffset == 0 || extent.storedSize == 0) continue;
      uint64_t& end = ranges_[extent.volumeOffset];
      end = std::max(end, extent.volumeOffset + extent.storedSize);
    }
    ++found;
  }
  Merge();
  return found;
}

void StoreFileRanges::Merge() {
  std::map<uint64_t, uint64_t> merged;
  for (const auto& range : ranges_) {
    if (!merged.empty() && range.first <= merged.rbegin()->second) {
      merged.rbegin()->second = std::max(merged.rbegin()->second, range.second);
    } else {
      merged.insert(range);
    }
  }
  ranges_.swap(merged);
}

bool StoreFileRanges::Overlaps(uint64_t offset, uint64_t size) const {
  auto after = ranges_.lower_bound(offset + size);
  return after != ranges_.begin() && offset < std::prev(after)->second;
}

bool StoreFileRanges::Covers(uint64_t offset) const {
  auto after = ranges_.upper_bound(offset);
  return after != ranges_.begin() && offset < std::prev(after)->second;
}

}  // namespace tolvarcli
