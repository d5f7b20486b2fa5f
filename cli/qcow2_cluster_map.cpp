#include "cli/qcow2_cluster_map.h"

#include "cli/big_endian.h"

namespace tolvarcli {

Qcow2ClusterMap::Qcow2ClusterMap(uint64_t clusterSize, uint64_t virtualSize)
    : clusterSize_(clusterSize),
      entriesPerTable_(clusterSize / kEntrySize),
      guestClusters_((virtualSize + clusterSize - 1) / clusterSize) {}

void Qcow2ClusterMap::MapData(uint64_t guest, uint64_t host) {
  std::vector<uint64_t>& table = tables_[guest / entriesPerTable_];
  table.resize(entriesPerTable_, 0);
  table[guest % entriesPerTable_] = host | kCopiedFlag;
}

void Qcow2ClusterMap::MapZeros(uint64_t guest) {
  std::vector<uint64_t>& table = tables_[guest / entriesPerTable_];
  table.resize(entriesPerTable_, 0);
  table[guest % entriesPerTable_] = kZeroFlag;
}

uint32_t Qcow2ClusterMap::L1Size() const {
  return static_cast<uint32_t>((guestClusters_ + entriesPerTable_ - 1) / entriesPerTable_);
}

uint64_t Qcow2ClusterMap::L1Clusters() const {
  const uint64_t bytes = uint64_t{L1Size()} * kEntrySize;
  return bytes == 0 ? 1 : (bytes + clusterSize_ - 1) / clusterSize_;
}

std::vector<uint8_t> Qcow2ClusterMap::EncodeL2Tables() const {
  std::vector<uint8_t> bytes(tables_.size() * clusterSize_, 0);
  uint8_t* p = bytes.data();
  for (const auto& table : tables_) {
    for (uint64_t entry : table.second) {
      StoreBe64(p, entry);
      p += kEntrySize;
    }
  }
  return bytes;
}

std::vector<uint8_t> Qcow2ClusterMap::EncodeL1Table(uint64_t firstL2) const {
  std::vector<uint8_t> bytes(L1Clusters() * clusterSize_, 0);
  uint64_t l2 = firstL2;
  for (const auto& table : tables_) {
    StoreBe64(bytes.data() + table.first * kEntrySize, l2 | kCopiedFlag);
    l2 += clusterSize_;
  }
  return bytes;
}

}  // namespace tolvarcli
