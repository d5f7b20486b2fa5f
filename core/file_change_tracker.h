// Carries one file-level call on a tracking handle: removes the blocks of
// named files from the changed-block bitmap, or builds one file's map of
// changed blocks. Files are looked up in the NTFS view of the newer shadow
// copy.
#ifndef TOLVAR_CORE_FILE_CHANGE_TRACKER_H_
#define TOLVAR_CORE_FILE_CHANGE_TRACKER_H_

#include <cstdint>
#include <memory>

#include "core/bit_map.h"
#include "core/block_processor.h"
#include "ntfsparsercore/attributes/readers/extent.h"
#include "ntfsparsercore/io/ntfs_file.h"
#include "ntfsparsercore/ntfs_volume.h"

namespace tolvarcore {

class FileChangeTracker {
 public:
  // blockProcessor is borrowed for the tracker's life.
  FileChangeTracker(BlockProcessor* blockProcessor, std::shared_ptr<ntfsparsercore::NtfsVolume> olderVolume,
                    std::shared_ptr<ntfsparsercore::NtfsVolume> newerVolume);
  FileChangeTracker(const FileChangeTracker&) = delete;
  FileChangeTracker& operator=(const FileChangeTracker&) = delete;
  virtual ~FileChangeTracker();

  // Clears the blocks of the files at paths (ended by a null pointer) in
  // the shared changed-block bitmap, through a copy of the block processor
  // handed out in *processorOut for the new handle. Nothing is cleared when
  // a path is not found.
  // kOk, kBadArgument (a null argument), kNoView or kNotFound.
  WorkerResult ExcludeFiles(const char* const* paths, std::unique_ptr<BlockProcessor>* processorOut);

  // Writes the change map of the file at path into buffer, or with a null
  // buffer its length in bytes into *size.
  // kOk, kBadArgument (a buffer too small), kNoView or kNotFound.
  WorkerResult GetFileChangesMap(const char* path, uint8_t* buffer, uint64_t* size);

  // Clears, for each run of adjoining stored extents, the whole blocks that
  // its length holds from its start raised to a block boundary.
  static void ClearExtents(ntfsparsercore::attributes::readers::ExtentList extents, BitMap& changed,
                           uint64_t blockSize);

  // ceil(ceil(fileSize / blockSize) / 8).
  static uint64_t MapLength(uint64_t fileSize, uint64_t blockSize);

 private:
  std::shared_ptr<ntfsparsercore::io::NtfsFile> Find(const std::shared_ptr<ntfsparsercore::NtfsVolume>& volume,
                                                     const char* path);

  BlockProcessor* blockProcessor_;                           // the handle's processor; not owned
  std::shared_ptr<ntfsparsercore::NtfsVolume> olderVolume_;  // NTFS view of the older shadow copy
  std::shared_ptr<ntfsparsercore::NtfsVolume> newerVolume_;  // NTFS view of the newer one, where paths are looked up
};

}  // namespace tolvarcore

#endif  // TOLVAR_CORE_FILE_CHANGE_TRACKER_H_
