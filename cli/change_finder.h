// Which files changed between two snapshots, found from the MFT records
// that lie in changed blocks: each such record is read in both snapshots
// and compared (an extension record stands for its base record). The full
// comparison of every record of both MFTs is here too, as the baseline it
// saves.
#ifndef TOLVAR_CLI_CHANGE_FINDER_H_
#define TOLVAR_CLI_CHANGE_FINDER_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "cli/file_record_info.h"
#include "cli/snapshot_tree.h"
#include "core/bit_map.h"

namespace tolvarcli {

// One changed file or directory.
struct FileChange {
  enum Kind { kAdded, kDeleted, kModified, kRenamed, kMetadata };

  Kind kind = kMetadata;
  uint64_t record = 0;
  uint16_t sequence = 0;                        // of the newer version; of the older for a deleted file
  std::string path;                             // in the newer snapshot; in the older for a deleted file
  std::string oldPath;                          // in the older snapshot, for a renamed file
  std::shared_ptr<const FileRecordInfo> older;  // the older version; null for an added file
  std::shared_ptr<const FileRecordInfo> newer;  // the newer version; null for a deleted file

  static const char* KindName(Kind kind);
};

class ChangeFinder {
 public:
  // Both trees are borrowed for the finder's life.
  ChangeFinder(SnapshotTree& older, SnapshotTree& newer);

  // The records, in either snapshot's MFT, of which a byte lies in a block
  // set in changed (blocks of blockSize bytes), ascending.
  std::vector<uint64_t> RecordsInBlocks(const tolvarcore::BitMap& changed, uint64_t blockSize);
  // Every record of either snapshot's MFT, ascending.
  std::vector<uint64_t> AllRecords();

  // The changes among records: each record whose bytes differ between the
  // snapshots is read in both and compared; an extension record that
  // differs brings in its base record. A record damaged in either
  // snapshot is added to *damaged and not compared. Sorted by path.
  std::vector<FileChange> Compare(const std::vector<uint64_t>& records, std::vector<uint64_t>* damaged);

  // With the content looked at: a change among *changes reported as
  // metadata becomes modified, and files whose MFT record did not change
  // are added as modified, when their unnamed data stream has bytes in
  // changed blocks that read differently in the two snapshots. Reads every
  // record of the newer MFT to find whose data lies where.
  void AddContentChanges(const tolvarcore::BitMap& changed, uint64_t blockSize, std::vector<FileChange>* changes,
                         std::vector<uint64_t>* damaged);

  // Whether the unnamed data streams differ in size, runs or resident value.
  static bool DataDiffers(const FileRecordInfo& older, const FileRecordInfo& newer);
  // Whether the names other than DOS short names (with their parents) differ.
  static bool NamesDiffer(const FileRecordInfo& older, const FileRecordInfo& newer);
  // Whether the $STANDARD_INFORMATION times or file attributes differ.
  static bool MetadataDiffers(const FileRecordInfo& older, const FileRecordInfo& newer);
  // How a record in use in both snapshots with the same sequence changed,
  // or false when nothing compared differs.
  static bool Classify(const FileRecordInfo& older, const FileRecordInfo& newer, FileChange::Kind* kind);

 private:
  // Number of records the MFT of tree holds, from $MFT's data size.
  uint64_t RecordCount(SnapshotTree& tree);
  void AddRecordsInBlocks(SnapshotTree& tree, const tolvarcore::BitMap& changed, uint64_t blockSize,
                          std::vector<uint64_t>* records);
  void CompareBase(uint64_t record, std::vector<FileChange>* changes, std::vector<uint64_t>* damaged);
  FileChange Make(FileChange::Kind kind, std::shared_ptr<const FileRecordInfo> older,
                  std::shared_ptr<const FileRecordInfo> newer);
  // Whether the stream's bytes that lie in changed blocks read differently in the older snapshot.
  bool BytesDiffer(const DataStream& stream, const tolvarcore::BitMap& changed, uint64_t blockSize);

  SnapshotTree& older_;
  SnapshotTree& newer_;
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_CHANGE_FINDER_H_
