// One shadow copy of a volume as a byte source, opened through the
// library's core the way Init opens the newer one: the volume's store, the
// storage that holds its shadow copies, the snapshot found by its shadow
// copy ID, and its view (on POSIX rebuilt from the store).
#ifndef TOLVAR_CLI_SNAPSHOT_READER_H_
#define TOLVAR_CLI_SNAPSHOT_READER_H_

#include <cstdint>
#include <memory>
#include <string>

#include "core/volume_provider.h"
#include "core/vss/vss_volume.h"
#include "ntfsparsercore/io/i_source.h"

namespace tolvarcli {

class SnapshotReader {
 public:
  SnapshotReader() = default;
  SnapshotReader(const SnapshotReader&) = delete;
  SnapshotReader& operator=(const SnapshotReader&) = delete;

  // Opens shadow copy snapshot of volume. On failure prints the error
  // queue's records and "tolvar: cannot open shadow copy S of V", and
  // returns false.
  bool Open(const std::string& volume, const std::string& snapshot);

  // The shadow copy's bytes; valid after Open succeeded.
  const std::shared_ptr<ntfsparsercore::io::ISource>& Source() const { return view_; }
  // The shadow copy's size in bytes.
  uint64_t Size() const { return view_ ? view_->GetSize() : 0; }

  // Reads exactly size bytes at offset; on a short read prints the error
  // queue and "tolvar: cannot read shadow copy S at byte N" and returns false.
  bool ReadExactly(void* buffer, uint64_t size, uint64_t offset);

 private:
  bool OpenView(const std::string& volume, const std::string& snapshot);

  std::unique_ptr<tolvarcore::VolumeProvider> provider_;  // keeps the stores the view reads
  std::shared_ptr<tolvarcore::vss::VssVolume> storage_;   // the store of the shadow copies
  std::shared_ptr<ntfsparsercore::io::ISource> view_;     // the shadow copy
  std::string snapshot_;                                  // its ID, for messages
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_SNAPSHOT_READER_H_
