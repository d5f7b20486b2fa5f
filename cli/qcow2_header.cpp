#include "cli/qcow2_header.h"

#include <cstring>

#include "cli/big_endian.h"

namespace tolvarcli {

namespace {

uint64_t AlignUp(uint64_t value, uint64_t alignment) { return (value + alignment - 1) / alignment * alignment; }

}  // namespace

bool Qcow2Header::Encode(std::vector<uint8_t>* cluster) const {
  const uint64_t clusterSize = uint64_t{1} << clusterBits;
  cluster->assign(clusterSize, 0);
  uint8_t* p = cluster->data();
  std::memcpy(p + kMagicOffset, kMagic, sizeof kMagic);
  StoreBe32(p + kVersionOffset, kVersion);
  StoreBe32(p + kClusterBitsOffset, clusterBits);
  StoreBe64(p + kSizeOffset, size);
  StoreBe32(p + kCryptMethodOffset, kNoEncryption);
  StoreBe32(p + kL1SizeOffset, l1Size);
  StoreBe64(p + kL1TableOffsetOffset, l1TableOffset);
  StoreBe64(p + kRefcountTableOffsetOffset, refcountTableOffset);
  StoreBe32(p + kRefcountTableClustersOffset, refcountTableClusters);
  StoreBe32(p + kRefcountOrderOffset, kRefcountOrder);
  StoreBe32(p + kHeaderLengthOffset, kLength);

  uint64_t at = kLength;
  if (!backingFile.empty()) {
    const uint64_t formatSpace = kExtensionHeaderSize + AlignUp(backingFormat.size(), kExtensionAlignment);
    const uint64_t nameAt = at + formatSpace + kExtensionHeaderSize;
    if (backingFile.size() > kLongestBackingName || nameAt + backingFile.size() > clusterSize) return false;
    StoreBe32(p + at, kExtensionBackingFormat);
    StoreBe32(p + at + 4, static_cast<uint32_t>(backingFormat.size()));
    std::memcpy(p + at + kExtensionHeaderSize, backingFormat.data(), backingFormat.size());
    at += formatSpace;
    StoreBe32(p + at, kExtensionEnd);  // the end marker, length 0
    at += kExtensionHeaderSize;
    StoreBe64(p + kBackingFileOffsetOffset, at);
    StoreBe32(p + kBackingFileSizeOffset, static_cast<uint32_t>(backingFile.size()));
    std::memcpy(p + at, backingFile.data(), backingFile.size());
  } else {
    StoreBe32(p + at, kExtensionEnd);
  }
  return true;
}

}  // namespace tolvarcli
