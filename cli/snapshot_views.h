// Opens what the file commands read, through the library's core (the
// exports hand out no NTFS view): the NTFS view of one shadow copy, or of
// two with the blocks that changed between them.
#ifndef TOLVAR_CLI_SNAPSHOT_VIEWS_H_
#define TOLVAR_CLI_SNAPSHOT_VIEWS_H_

#include <cstdint>
#include <memory>
#include <string>

#include "core/bit_map.h"
#include "core/block_processor.h"
#include "core/volume_provider.h"
#include "core/vss/store_format.h"
#include "ntfsparsercore/ntfs_volume.h"

namespace tolvarcli {

class SnapshotViews {
 public:
  // Block size of the changed map: the store's own block.
  static constexpr uint64_t kBlockSize = tolvarcore::vss::format::kBlockSize;
  // MFT page cache of each NTFS view, as the exports use.
  static constexpr uint64_t kNtfsCacheBytes = 52428800;

  SnapshotViews();
  ~SnapshotViews();
  SnapshotViews(const SnapshotViews&) = delete;
  SnapshotViews& operator=(const SnapshotViews&) = delete;

  // The NTFS view of shadow copy id of volume. False after printing the
  // library's messages and what failed on stderr, or with quiet after
  // printing nothing.
  bool OpenOne(const std::string& volume, const std::string& id, bool quiet = false);
  // The NTFS views of from (older) and to (newer) and the changed blocks
  // between them. False after printing, as OpenOne.
  bool OpenPair(const std::string& volume, const std::string& from, const std::string& to);

  const std::shared_ptr<ntfsparsercore::NtfsVolume>& Older() const { return older_; }
  const std::shared_ptr<ntfsparsercore::NtfsVolume>& Newer() const { return newer_; }
  // The changed blocks (kBlockSize each); null after OpenOne.
  std::shared_ptr<tolvarcore::BitMap> Changed() const;

 private:
  // Prints the queue and what failed, unless quiet_; then drops the queue.
  bool Failed(const std::string& what);

  bool quiet_ = false;                                     // OpenOne prints nothing
  std::unique_ptr<tolvarcore::VolumeProvider> provider_;   // opens the volume, its store and shadow copies
  std::unique_ptr<tolvarcore::BlockProcessor> processor_;  // the changed blocks of a pair
  std::shared_ptr<ntfsparsercore::io::ISource> single_;    // the one shadow copy of OpenOne
  std::shared_ptr<ntfsparsercore::NtfsVolume> older_;
  std::shared_ptr<ntfsparsercore::NtfsVolume> newer_;
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_SNAPSHOT_VIEWS_H_
