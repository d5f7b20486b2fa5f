// Where on the volume the shadow-copy store keeps its own files: every file
// in "System Volume Information" whose name ends with the store's GUID
// (the catalog, named just that, and one store file per snapshot, named
// {store identifier} followed by it), found through the NTFS parser. Their
// bytes change after a snapshot is taken (the store grows as the volume
// changes), so no image of a snapshot holds them as a later read does.
#ifndef TOLVAR_CLI_STORE_FILE_RANGES_H_
#define TOLVAR_CLI_STORE_FILE_RANGES_H_

#include <cstdint>
#include <map>
#include <memory>

#include "ntfsparsercore/io/i_source.h"

namespace tolvarcli {

class StoreFileRanges {
 public:
  static constexpr const char* kFolder = "system volume information";
  static constexpr const char* kStoreGuid = "{3808876b-c176-4e48-b7ae-04046e6cc752}";
  static constexpr uint64_t kCacheBytes = 8 << 20;

  // Adds the ranges of the store files of the NTFS file system in volume;
  // adds nothing when it holds none or cannot be parsed. Returns the
  // number of store files found.
  std::size_t Add(const std::shared_ptr<ntfsparsercore::io::ISource>& volume);

  // Whether any byte of [offset, offset + size) lies in a store file.
  bool Overlaps(uint64_t offset, uint64_t size) const;

  // Whether byte offset lies in a store file.
  bool Covers(uint64_t offset) const;

 private:
  // Joins overlapping and touching ranges.
  void Merge();

  std::map<uint64_t, uint64_t> ranges_;  // start → end (exclusive), disjoint after Add
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_STORE_FILE_RANGES_H_
