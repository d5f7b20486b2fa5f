// The directory tree of one snapshot's NTFS view as the command shows it:
// directory listings with every name a file has in the directory (DOS short
// names left out), paths matched case-insensitively through the volume's
// $UpCase table, and each record's path from the root.
#ifndef TOLVAR_CLI_SNAPSHOT_TREE_H_
#define TOLVAR_CLI_SNAPSHOT_TREE_H_

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "cli/file_record_info.h"
#include "cli/up_case_table.h"
#include "ntfsparsercore/attributes/readers/readers_factory.h"
#include "ntfsparsercore/mft_table.h"
#include "ntfsparsercore/ntfs_volume.h"

namespace tolvarcli {

class SnapshotTree {
 public:
  static constexpr uint64_t kMftRecord = 0;
  static constexpr uint64_t kRootRecord = 5;

  // One name in a directory.
  struct Entry {
    std::u16string name;  // as stored
    std::shared_ptr<const FileRecordInfo> info;
  };

  // What a path names: a record and, after "name:stream", a stream name.
  struct Found {
    std::shared_ptr<const FileRecordInfo> info;
    std::u16string stream;   // empty for the unnamed stream
    bool hasStream = false;  // the path named a stream
  };

  // Reads the MFT of volume through its own runs (see RunSource).
  explicit SnapshotTree(std::shared_ptr<ntfsparsercore::NtfsVolume> volume);
  ~SnapshotTree();
  SnapshotTree(const SnapshotTree&) = delete;
  SnapshotTree& operator=(const SnapshotTree&) = delete;

  // The record's details (read once, then kept).
  std::shared_ptr<const FileRecordInfo> Info(uint64_t record);

  // The names in directory, folded-name order. Children whose record is
  // damaged are left out and their numbers added to *damaged.
  std::vector<Entry> List(uint64_t directory, std::vector<uint64_t>* damaged);

  // Looks up path ("/dir/name", "/" for the root, optional ":stream" on the
  // last component), each component compared with the names on disk through
  // $UpCase. False with *error a one-line reason.
  bool Resolve(const std::string& path, Found* found, std::string* error);

  // The record's path from the root ("/" for the root itself) through its
  // preferred names; empty when a parent cannot be found.
  std::string PathOf(uint64_t record);

  // path (matched as Resolve does) in the form the library's own lookup
  // matches: each component the file's name as that lookup reads it, in
  // ASCII lower case. A component not found is left as given, lower-cased.
  std::string LibraryPathOf(const std::string& path);

  const UpCaseTable& GetUpCase() const { return upCase_; }
  ntfsparsercore::NtfsVolume& GetVolume() { return *volume_; }
  ntfsparsercore::MftTable& GetMftTable() { return *mft_; }
  // Reads a record afresh, without keeping it.
  FileRecordInfo ReadRecord(uint64_t record);

 private:
  // The child of directory named component, or null.
  std::shared_ptr<const FileRecordInfo> FindChild(uint64_t directory, const std::u16string& component);

  std::shared_ptr<ntfsparsercore::NtfsVolume> volume_;
  std::shared_ptr<ntfsparsercore::attributes::readers::ReadersFactory> readers_;  // for the records of mft_
  std::unique_ptr<ntfsparsercore::MftTable> mft_;                                 // the MFT, read through its runs
  UpCaseTable upCase_;
  std::map<uint64_t, std::shared_ptr<const FileRecordInfo>> infos_;  // records read so far
  std::map<uint64_t, std::string> paths_;                            // paths worked out so far
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_SNAPSHOT_TREE_H_
