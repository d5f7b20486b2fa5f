#include "cli/used_clusters.h"

#include <algorithm>

#include "ntfsparsercore/io/ntfs_file.h"
#include "ntfsparsercore/mft_record.h"
#include "ntfsparsercore/ntfs_volume.h"

namespace tolvarcli {

bool UsedClusters::Read(const std::shared_ptr<ntfsparsercore::io::ISource>& source) {
  std::unique_ptr<ntfsparsercore::NtfsVolume> volume(ntfsparsercore::NtfsVolume::Create(source, kCacheBytes));
  if (!volume) return false;
  std::shared_ptr<ntfsparsercore::MftRecord> record = volume->GetMftTable()->GetRecord(kBitmapRecordNumber, false);
  if (!record) return false;
  ntfsparsercore::io::NtfsFile file(record);
  bitmap_.assign(file.GetSize(), 0);
  if (bitmap_.empty() || file.Read(bitmap_.data(), bitmap_.size(), 0) != bitmap_.size()) return false;
  clusterSize_ = volume->GetClusterSize();
  clusterCount_ = std::min<uint64_t>(volume->GetSize() / clusterSize_, bitmap_.size() * 8);
  return true;
}

bool UsedClusters::IsUsed(uint64_t cluster) const {
  return cluster >= clusterCount_ || ((bitmap_[cluster / 8] >> (cluster % 8)) & 1) != 0;
}

bool UsedClusters::MayHoldData(uint64_t offset, uint64_t size) const {
  if (size == 0) return false;
  const uint64_t last = (offset + size - 1) / clusterSize_;
  for (uint64_t cluster = offset / clusterSize_; cluster <= last; ++cluster) {
    if (IsUsed(cluster)) return true;
  }
  return false;
}

bool UsedClusters::AllUsed(uint64_t offset, uint64_t size) const {
  if (size == 0) return true;
  const uint64_t last = (offset + size - 1) / clusterSize_;
  for (uint64_t cluster = offset / clusterSize_; cluster <= last; ++cluster) {
    if (!IsUsed(cluster)) return false;
  }
  return true;
}

uint64_t UsedClusters::UnusedClusters() const {
  uint64_t unused = 0;
  for (uint64_t cluster = 0; cluster < clusterCount_; ++cluster) unused += IsUsed(cluster) ? 0 : 1;
  return unused;
}

}  // namespace tolvarcli
