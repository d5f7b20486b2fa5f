// The fixed 128-byte header at the start of an increment file.
//
// An increment file holds the blocks that changed between two shadow
// copies of one volume, all little-endian:
//   header (128 bytes, below)
//   the changed-block bitmap as GetDiffBitmap gave it (bitmapLength bytes)
//   blockCount records, version 1: the block's index (8 bytes), then
//   blockSize bytes; version 2: the index, the record's flags, the XXH3-64
//   of the block in the older shadow copy, the XXH3-64 of its new contents,
//   the stored length (8 bytes each), then the stored bytes
//   (zstd-compressed with the compressed flag, else the blockSize bytes
//   themselves). Record flag 1: the block lies partly in the store's own
//   files or in clusters free in the older snapshot, whose bytes no image
//   of it is bound to hold; apply does not check it, and its old hash is
//   0 (backup does not read the older block for it).
//   trailer: blockCount again (8 bytes), then the checksum (8 bytes) of
//   every byte of the file before it: CRC-64 in version 1, XXH3-64 in 2
#ifndef TOLVAR_CLI_INCREMENT_HEADER_H_
#define TOLVAR_CLI_INCREMENT_HEADER_H_

#include <cstdint>
#include <string>

namespace tolvarcli {

struct IncrementHeader {
  static constexpr uint64_t kSize = 128;
  static constexpr char kMagic[9] = "TOLVINCR";  // 8 bytes on disk, no NUL
  static constexpr uint32_t kVersion1 = 1;
  static constexpr uint32_t kVersion2 = 2;
  static constexpr uint64_t kFlagCompressed = 1;  // version 2: records are zstd frames
  // Offsets of the fields within the header.
  static constexpr uint64_t kMagicOffset = 0;          // 8 bytes "TOLVINCR"
  static constexpr uint64_t kVersionOffset = 8;        // 4 bytes
  static constexpr uint64_t kHeaderSizeOffset = 12;    // 4 bytes: 128
  static constexpr uint64_t kVolumeSizeOffset = 16;    // 8 bytes
  static constexpr uint64_t kBlockSizeOffset = 24;     // 8 bytes
  static constexpr uint64_t kBitmapLengthOffset = 32;  // 8 bytes
  static constexpr uint64_t kFlagsOffset = 40;         // 8 bytes: version 1 zero, version 2 flags
  static constexpr uint64_t kFromOffset = 48;          // 40 bytes: older shadow copy ID, NUL-padded
  static constexpr uint64_t kToOffset = 88;            // 40 bytes: newer shadow copy ID, NUL-padded
  static constexpr uint64_t kIdentifierField = 40;
  // Bytes of one block record besides the block itself, and of the trailer.
  static constexpr uint64_t kRecordIndexSize = 8;
  static constexpr uint64_t kRecordHeaderSizeV2 = 40;  // index, flags, old hash, new hash, stored length
  static constexpr uint64_t kRecordUnchecked = 1;      // record flag: old contents not promised
  // A version 2 record header's fields, 8 bytes each (version 1 has the index only).
  static constexpr uint64_t kRecordIndexOffset = 0;
  static constexpr uint64_t kRecordFlagsOffset = 8;
  static constexpr uint64_t kRecordOldHashOffset = 16;
  static constexpr uint64_t kRecordNewHashOffset = 24;
  static constexpr uint64_t kRecordStoredLengthOffset = 32;
  static constexpr uint64_t kTrailerSize = 16;

  uint32_t version = kVersion1;
  uint64_t flags = 0;         // version 2: kFlagCompressed
  uint64_t volumeSize = 0;    // bytes of the volume the blocks belong to
  uint64_t blockSize = 0;     // bytes of every block in the file
  uint64_t bitmapLength = 0;  // bytes of the bitmap after the header
  std::string from;           // the older shadow copy's ID
  std::string to;             // the newer shadow copy's ID

  // The 128 header bytes.
  void Encode(uint8_t* out) const;

  // Reads a header; false, with *error saying why, when the bytes are not
  // a version this build reads (2 only with the hash library).
  static bool Decode(const uint8_t* in, IncrementHeader* header, std::string* error);

  bool Compressed() const { return (flags & kFlagCompressed) != 0; }
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_INCREMENT_HEADER_H_
