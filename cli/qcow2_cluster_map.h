// The guest-to-host mapping of a qcow2 image: one L1 table of pointers to
// L2 tables, each L2 table one cluster of 8-byte entries, one entry per
// guest cluster. Only L2 tables that hold an entry are written.
#ifndef TOLVAR_CLI_QCOW2_CLUSTER_MAP_H_
#define TOLVAR_CLI_QCOW2_CLUSTER_MAP_H_

#include <cstdint>
#include <map>
#include <vector>

namespace tolvarcli {

class Qcow2ClusterMap {
 public:
  static constexpr uint64_t kEntrySize = 8;
  // L1 and L2 entries: the table or cluster it points at has refcount one.
  static constexpr uint64_t kCopiedFlag = uint64_t{1} << 63;
  // Standard cluster descriptor bit 0: the cluster reads as zeros, and
  // nothing is read from the backing file.
  static constexpr uint64_t kZeroFlag = 1;

  Qcow2ClusterMap(uint64_t clusterSize, uint64_t virtualSize);

  // Guest cluster `guest` is stored at host offset `host`.
  void MapData(uint64_t guest, uint64_t host);
  // Guest cluster `guest` reads as zeros.
  void MapZeros(uint64_t guest);

  // Entries of the L1 table, one per L2 table the virtual size needs.
  uint32_t L1Size() const;
  uint64_t L1Clusters() const;
  // L2 tables that hold at least one entry.
  uint64_t L2TableCount() const { return tables_.size(); }

  // The L2 tables that hold an entry, in ascending L1 order, one cluster
  // each, as they are stored one after another from firstL2.
  std::vector<uint8_t> EncodeL2Tables() const;
  // The L1 table (L1Clusters() whole clusters) for L2 tables stored from firstL2.
  std::vector<uint8_t> EncodeL1Table(uint64_t firstL2) const;

 private:
  uint64_t clusterSize_;
  uint64_t entriesPerTable_;                          // cluster size / 8
  uint64_t guestClusters_;                            // clusters of the virtual disk
  std::map<uint64_t, std::vector<uint64_t>> tables_;  // L1 index → that L2 table's entries
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_QCOW2_CLUSTER_MAP_H_
