// What the mount shows, apart from FUSE: a root directory with one file per
// shadow copy, vss1 ... vssN in creation order, the file volume (the
// current volume), and a directory by-id with the shadow copies' files
// again under their shadow copy IDs. Every file is read-only and reads
// through its own byte source, which several threads may read at once.
#ifndef TOLVAR_CLI_SHADOW_COPY_FILE_SYSTEM_H_
#define TOLVAR_CLI_SHADOW_COPY_FILE_SYSTEM_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "cli/volume_file_layout.h"
#include "ntfsparsercore/io/i_source.h"

namespace tolvarcli {

class ShadowCopyFileSystem {
 public:
  static constexpr const char* kVolumeName = "volume";
  static constexpr const char* kByIdName = "by-id";

  // A time stamp as stat gives it: seconds and nanoseconds since 1970.
  struct Time {
    int64_t seconds = 0;
    int64_t nanoseconds = 0;
  };

  // One file's contents and attributes.
  struct File {
    std::shared_ptr<ntfsparsercore::io::ISource> source;  // its bytes
    std::shared_ptr<const VolumeFileLayout> layout;       // where they lie in the volume's file; may be null
    uint64_t size = 0;                                    // its length in bytes
    Time time;                                            // its access, change and modification time
  };

  // What a path names.
  struct Node {
    enum Kind { kMissing, kDirectory, kFile };
    Kind kind = kMissing;
    std::size_t file = 0;  // kFile: the index of the file
  };

  // The FILETIME (100 ns since 1601) as a time since 1970; times before
  // 1970 come out as 0.
  static Time FromFileTime(uint64_t fileTime);

  // The current volume; directories carry its time too.
  explicit ShadowCopyFileSystem(File volume);

  // The next shadow copy in creation order, named vssN and by-id/ID.
  void AddShadowCopy(const std::string& id, File file);

  // The node at an absolute path ("/", "/vss1", "/by-id/ID").
  Node Lookup(const std::string& path) const;
  // The names in the directory at path, without "." and "..".
  std::vector<std::string> List(const std::string& path) const;
  const File& FileAt(std::size_t index) const { return files_[index]; }
  const Time& DirectoryTime() const { return files_.front().time; }

  // Makes every later read wait for the one before: for sources that
  // threads may not read at once.
  void SerialiseReads() { serialised_ = true; }

  // Reads up to size bytes of file index at offset: the count delivered,
  // which is short only at the end of the file, or -1 when the source
  // delivered less than the file holds there.
  int64_t Read(std::size_t index, void* buffer, uint64_t size, uint64_t offset) const;

 private:
  std::vector<File> files_;       // the volume, then each shadow copy in creation order
  std::vector<std::string> ids_;  // each shadow copy's ID, in creation order
  bool serialised_ = false;       // reads take turns (readMutex_)
  mutable std::mutex readMutex_;  // held by each read when serialised_
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_SHADOW_COPY_FILE_SYSTEM_H_
