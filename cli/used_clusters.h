// Which clusters of an NTFS volume are in use, from the volume's own
// allocation bitmap (the data of $Bitmap, MFT record 6: bit c, least
// significant first in byte c / 8, is cluster c).
#ifndef TOLVAR_CLI_USED_CLUSTERS_H_
#define TOLVAR_CLI_USED_CLUSTERS_H_

#include <cstdint>
#include <memory>
#include <vector>

#include "ntfsparsercore/io/i_source.h"

namespace tolvarcli {

class UsedClusters {
 public:
  static constexpr uint64_t kBitmapRecordNumber = 6;
  static constexpr uint64_t kCacheBytes = 8 << 20;

  // Reads the bitmap of the NTFS file system in source. False when source
  // holds no NTFS file system or its bitmap cannot be read whole (the
  // reason is on the error queue, or none when the record is unreadable).
  bool Read(const std::shared_ptr<ntfsparsercore::io::ISource>& source);

  // Whether the bytes [offset, offset + size) may hold data: true unless
  // every cluster they touch lies in the file system and its bit is clear.
  // Bytes past the clusters the bitmap covers (the backup boot sector at
  // the end of the volume) count as used.
  bool MayHoldData(uint64_t offset, uint64_t size) const;

  // Whether every cluster that [offset, offset + size) touches is in use
  // (or past the clusters the bitmap covers).
  bool AllUsed(uint64_t offset, uint64_t size) const;

  uint64_t ClusterSize() const { return clusterSize_; }
  // Clusters of the file system (the bitmap's meaningful bits).
  uint64_t ClusterCount() const { return clusterCount_; }
  // Clusters whose bit is clear.
  uint64_t UnusedClusters() const;

 private:
  bool IsUsed(uint64_t cluster) const;

  std::vector<uint8_t> bitmap_;  // $Bitmap's data
  uint64_t clusterSize_ = 0;     // bytes per cluster
  uint64_t clusterCount_ = 0;    // clusters of the file system, at most the bitmap's bits
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_USED_CLUSTERS_H_
