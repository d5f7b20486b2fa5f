// The reference counts of a qcow2 image whose clusters are all used once:
// a refcount table (contiguous clusters of 8-byte pointers) and refcount
// blocks (one cluster each of 16-bit counts), stored after every other
// cluster of the file and counting themselves too.
#ifndef TOLVAR_CLI_QCOW2_REFCOUNTS_H_
#define TOLVAR_CLI_QCOW2_REFCOUNTS_H_

#include <cstdint>
#include <vector>

namespace tolvarcli {

class Qcow2Refcounts {
 public:
  static constexpr uint64_t kCountSize = 2;       // bytes per refcount (refcount order 4)
  static constexpr uint64_t kTableEntrySize = 8;  // bytes per refcount table entry
  static constexpr uint16_t kUsedOnce = 1;

  // Lays the table and blocks out from cluster `firstFree` on; clusters
  // 0 to firstFree - 1 are the rest of the file.
  Qcow2Refcounts(uint64_t clusterSize, uint64_t firstFree);

  uint64_t TableOffset() const { return firstFree_ * clusterSize_; }
  uint32_t TableClusters() const { return static_cast<uint32_t>(tableClusters_); }
  // Clusters of the whole file, these structures included.
  uint64_t TotalClusters() const { return firstFree_ + tableClusters_ + blockCount_; }

  // The table, then the blocks, as stored from TableOffset().
  std::vector<uint8_t> Encode() const;

 private:
  uint64_t clusterSize_;
  uint64_t countsPerBlock_;  // refcounts in one block
  uint64_t firstFree_;       // cluster where the table starts
  uint64_t tableClusters_ = 1;
  uint64_t blockCount_ = 1;
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_QCOW2_REFCOUNTS_H_
