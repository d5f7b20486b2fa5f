#include "cli/qcow2_refcounts.h"

#include <algorithm>

#include "cli/big_endian.h"

namespace tolvarcli {

namespace {

uint64_t DivideUp(uint64_t value, uint64_t divisor) { return (value + divisor - 1) / divisor; }

}  // namespace

Qcow2Refcounts::Qcow2Refcounts(uint64_t clusterSize, uint64_t firstFree)
    : clusterSize_(clusterSize), countsPerBlock_(clusterSize / kCountSize), firstFree_(firstFree) {
  // The blocks count every cluster, their own and the table's among them:
  // grow both until they cover the file they make.
  for (;;) {
    const uint64_t blocks = std::max(blockCount_, DivideUp(TotalClusters(), countsPerBlock_));
    const uint64_t table = std::max(tableClusters_, DivideUp(blocks * kTableEntrySize, clusterSize_));
    if (blocks == blockCount_ && table == tableClusters_) break;
    blockCount_ = blocks;
    tableClusters_ = table;
  }
}

std::vector<uint8_t> Qcow2Refcounts::Encode() const {
  std::vector<uint8_t> bytes((tableClusters_ + blockCount_) * clusterSize_, 0);
  const uint64_t firstBlock = firstFree_ + tableClusters_;
  for (uint64_t block = 0; block < blockCount_; ++block) {
    StoreBe64(bytes.data() + block * kTableEntrySize, (firstBlock + block) * clusterSize_);
  }
  uint8_t* counts = bytes.data() + tableClusters_ * clusterSize_;
  for (uint64_t cluster = 0; cluster < TotalClusters(); ++cluster) {
    StoreBe16(counts + cluster * kCountSize, kUsedOnce);
  }
  return bytes;
}

}  // namespace tolvarcli
