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
//   Version 3 is version 2 laid out on 64-byte boundaries: zeros after the
//   bitmap up to the next multiple of 64 bytes from the file's start,
//   record headers of 64 bytes (version 2's five fields, then 24 zero
//   bytes), and zeros after each record's stored bytes up to the next
//   multiple of 64. Every block of an uncompressed file then starts on a
//   cache line, which is where the kernel copies writes into the page cache
//   fastest: 64 KiB blocks after 40-byte headers went to a new file at
//   1.6-1.9 GB/s, after 64-byte headers at 2.4 GB/s.
//   trailer: blockCount again (8 bytes), then the checksum (8 bytes) of
//   every byte of the file before it: CRC-64 in version 1, XXH3-64 in 2 and 3
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
  static constexpr uint32_t kVersion3 = 3;
  static constexpr uint64_t kFlagCompressed = 1;  // versions 2 and 3: records are zstd frames
  // Offsets of the fields within the header.
  static constexpr uint64_t kMagicOffset = 0;          // 8 bytes "TOLVINCR"
  static constexpr uint64_t kVersionOffset = 8;        // 4 bytes
  static constexpr uint64_t kHeaderSizeOffset = 12;    // 4 bytes: 128
  static constexpr uint64_t kVolumeSizeOffset = 16;    // 8 bytes
  static constexpr uint64_t kBlockSizeOffset = 24;     // 8 bytes
  static constexpr uint64_t kBitmapLengthOffset = 32;  // 8 bytes
  static constexpr uint64_t kFlagsOffset = 40;         // 8 bytes: version 1 zero, versions 2 and 3 flags
  static constexpr uint64_t kFromOffset = 48;          // 40 bytes: older shadow copy ID, NUL-padded
  static constexpr uint64_t kToOffset = 88;            // 40 bytes: newer shadow copy ID, NUL-padded
  static constexpr uint64_t kIdentifierField = 40;
  // Bytes of one block record besides the block itself, and of the trailer.
  static constexpr uint64_t kRecordIndexSize = 8;
  static constexpr uint64_t kRecordHeaderSizeV2 = 40;  // index, flags, old hash, new hash, stored length
  static constexpr uint64_t kRecordHeaderSizeV3 = 64;  // the same, then zeros
  static constexpr uint64_t kRecordAlignment = 64;     // version 3: where records and blocks start
  static constexpr uint64_t kRecordUnchecked = 1;      // record flag: old contents not promised
  // A version 2 or 3 record header's fields, 8 bytes each (version 1 has the index only).
  static constexpr uint64_t kRecordIndexOffset = 0;
  static constexpr uint64_t kRecordFlagsOffset = 8;
  static constexpr uint64_t kRecordOldHashOffset = 16;
  static constexpr uint64_t kRecordNewHashOffset = 24;
  static constexpr uint64_t kRecordStoredLengthOffset = 32;
  static constexpr uint64_t kTrailerSize = 16;

  uint32_t version = kVersion1;
  uint64_t flags = 0;         // versions 2 and 3: kFlagCompressed
  uint64_t volumeSize = 0;    // bytes of the volume the blocks belong to
  uint64_t blockSize = 0;     // bytes of every block in the file
  uint64_t bitmapLength = 0;  // bytes of the bitmap after the header
  std::string from;           // the older shadow copy's ID
  std::string to;             // the newer shadow copy's ID

  // The 128 header bytes.
  void Encode(uint8_t* out) const;

  // Reads a header; false, with *error saying why, when the bytes are not
  // a version this build reads (2 and 3 only with the hash library).
  static bool Decode(const uint8_t* in, IncrementHeader* header, std::string* error);

  bool Compressed() const { return (flags & kFlagCompressed) != 0; }
  // Records carry the blocks' fingerprints (versions 2 and 3).
  bool Fingerprinted() const { return version != kVersion1; }
  // The bytes of a record before the stored ones.
  uint64_t RecordHeaderSize() const;
  // The zero bytes that follow a part of the file ending at offset.
  uint64_t PaddingAfter(uint64_t offset) const;
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_INCREMENT_HEADER_H_
