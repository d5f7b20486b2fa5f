#include "cli/qcow2_image_writer.h"

#include <utility>
#include <vector>

#include "cli/qcow2_refcounts.h"

namespace tolvarcli {

namespace {

constexpr uint64_t kSmallestCluster = 4096;
constexpr uint64_t kLargestCluster = 2 << 20;

uint32_t Log2(uint64_t value) {
  uint32_t bits = 0;
  while ((uint64_t{1} << bits) < value) ++bits;
  return bits;
}

}  // namespace

Qcow2ImageWriter::Qcow2ImageWriter(std::string path, uint64_t clusterSize, std::string backingFile,
                                   std::string backingFormat)
    : out_(std::move(path)), clusterSize_(clusterSize) {
  header_.clusterBits = Log2(clusterSize);
  header_.backingFile = std::move(backingFile);
  header_.backingFormat = std::move(backingFormat);
}

bool Qcow2ImageWriter::IsClusterSize(uint64_t size) {
  return size >= kSmallestCluster && size <= kLargestCluster && (size & (size - 1)) == 0;
}

bool Qcow2ImageWriter::Open(uint64_t size) {
  header_.size = size;
  map_ = std::make_unique<Qcow2ClusterMap>(clusterSize_, size);
  // The header cluster stays a hole until Commit writes it.
  if (!out_.Open() || !out_.WriteZeros(clusterSize_)) return false;
  nextHost_ = clusterSize_;
  return true;
}

bool Qcow2ImageWriter::Put(uint64_t offset, const uint8_t* data, std::size_t size) {
  if (offset % clusterSize_ != 0) return false;
  // The clusters follow one another in the file as in the image: one write.
  const uint64_t clusters = (size + clusterSize_ - 1) / clusterSize_;
  if (!out_.Write(data, size) || !out_.WriteZeros(clusters * clusterSize_ - size)) return false;
  for (uint64_t cluster = 0; cluster < clusters; ++cluster) {
    map_->MapData(offset / clusterSize_ + cluster, nextHost_);
    nextHost_ += clusterSize_;
  }
  return true;
}

bool Qcow2ImageWriter::PutZeros(uint64_t offset, uint64_t size) {
  if (offset % clusterSize_ != 0) return false;
  for (uint64_t at = offset; at < offset + size; at += clusterSize_) map_->MapZeros(at / clusterSize_);
  return true;
}

bool Qcow2ImageWriter::Commit() {
  const uint64_t firstL2 = nextHost_;
  const std::vector<uint8_t> l2Tables = map_->EncodeL2Tables();
  const uint64_t l1Offset = firstL2 + l2Tables.size();
  const std::vector<uint8_t> l1Table = map_->EncodeL1Table(firstL2);
  const Qcow2Refcounts refcounts(clusterSize_, (l1Offset + l1Table.size()) / clusterSize_);
  const std::vector<uint8_t> refcountBytes = refcounts.Encode();

  header_.l1Size = map_->L1Size();
  header_.l1TableOffset = l1Offset;
  header_.refcountTableOffset = refcounts.TableOffset();
  header_.refcountTableClusters = refcounts.TableClusters();
  std::vector<uint8_t> headerCluster;
  if (!header_.Encode(&headerCluster)) return false;
  return out_.Write(l2Tables.data(), l2Tables.size()) && out_.Write(l1Table.data(), l1Table.size()) &&
         out_.Write(refcountBytes.data(), refcountBytes.size()) &&
         out_.WriteAt(0, headerCluster.data(), headerCluster.size()) && out_.Commit();
}

}  // namespace tolvarcli
