// The first cluster of a qcow2 image (version 3): the header, the header
// extensions (the backing file's format, then the end marker) and the
// backing file's name after them. All numbers big-endian.
#ifndef TOLVAR_CLI_QCOW2_HEADER_H_
#define TOLVAR_CLI_QCOW2_HEADER_H_

#include <cstdint>
#include <string>
#include <vector>

namespace tolvarcli {

struct Qcow2Header {
  static constexpr uint8_t kMagic[4] = {'Q', 'F', 'I', 0xFB};
  static constexpr uint32_t kVersion = 3;
  static constexpr uint32_t kLength = 104;       // the version 3 header, no optional fields
  static constexpr uint32_t kRefcountOrder = 4;  // 16-bit refcounts
  static constexpr uint32_t kNoEncryption = 0;
  // Offsets of the fields within the header.
  static constexpr uint64_t kMagicOffset = 0;                   // 4 bytes "QFI\xfb"
  static constexpr uint64_t kVersionOffset = 4;                 // 4 bytes
  static constexpr uint64_t kBackingFileOffsetOffset = 8;       // 8 bytes: where the name is, 0 without one
  static constexpr uint64_t kBackingFileSizeOffset = 16;        // 4 bytes: the name's length
  static constexpr uint64_t kClusterBitsOffset = 20;            // 4 bytes
  static constexpr uint64_t kSizeOffset = 24;                   // 8 bytes: virtual disk size
  static constexpr uint64_t kCryptMethodOffset = 32;            // 4 bytes
  static constexpr uint64_t kL1SizeOffset = 36;                 // 4 bytes: L1 entries
  static constexpr uint64_t kL1TableOffsetOffset = 40;          // 8 bytes
  static constexpr uint64_t kRefcountTableOffsetOffset = 48;    // 8 bytes
  static constexpr uint64_t kRefcountTableClustersOffset = 56;  // 4 bytes
  static constexpr uint64_t kSnapshotCountOffset = 60;          // 4 bytes, 0
  static constexpr uint64_t kSnapshotsOffsetOffset = 64;        // 8 bytes, 0
  static constexpr uint64_t kIncompatibleFeaturesOffset = 72;   // 8 bytes, 0: clean, nothing unusual
  static constexpr uint64_t kCompatibleFeaturesOffset = 80;     // 8 bytes, 0
  static constexpr uint64_t kAutoclearFeaturesOffset = 88;      // 8 bytes, 0
  static constexpr uint64_t kRefcountOrderOffset = 96;          // 4 bytes
  static constexpr uint64_t kHeaderLengthOffset = 100;          // 4 bytes
  // Header extensions: type (4 bytes), data length (4 bytes), data padded to 8.
  static constexpr uint32_t kExtensionEnd = 0x00000000;
  static constexpr uint32_t kExtensionBackingFormat = 0xE2792ACA;
  static constexpr uint64_t kExtensionHeaderSize = 8;
  static constexpr uint64_t kExtensionAlignment = 8;
  // qemu reads no backing file name longer than this.
  static constexpr std::size_t kLongestBackingName = 1023;

  uint32_t clusterBits = 16;
  uint64_t size = 0;                   // virtual disk size in bytes
  uint32_t l1Size = 0;                 // L1 entries
  uint64_t l1TableOffset = 0;          // cluster-aligned
  uint64_t refcountTableOffset = 0;    // cluster-aligned
  uint32_t refcountTableClusters = 0;  // clusters of the refcount table
  std::string backingFile;             // empty: no backing file
  std::string backingFormat;           // "raw" or "qcow2" with a backing file

  // The image's first cluster (1 << clusterBits bytes). False when the
  // extensions and the name do not fit in it.
  bool Encode(std::vector<uint8_t>* cluster) const;
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_QCOW2_HEADER_H_
