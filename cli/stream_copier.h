// Writes a data stream's value as a file of that snapshot holds it:
// resident values, plain and sparse runs, LZNT1 compression units (the
// stored clusters of one unit may lie in several runs), and zeros past the
// initialized size.
#ifndef TOLVAR_CLI_STREAM_COPIER_H_
#define TOLVAR_CLI_STREAM_COPIER_H_

#include <cstdint>
#include <cstdio>
#include <string>

#include "cli/file_record_info.h"
#include "ntfsparsercore/ntfs_volume.h"

namespace tolvarcli {

class StreamCopier {
 public:
  // Bytes read from the volume at a time, for plain values.
  static constexpr uint64_t kChunkSize = 1 << 20;

  enum Result { kCopied, kReadFailed, kWriteFailed };

  // Writes stream's size bytes to out; after a failure *error holds a
  // one-line reason.
  static Result Copy(ntfsparsercore::NtfsVolume& volume, const DataStream& stream, std::FILE* out, std::string* error);
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_STREAM_COPIER_H_
