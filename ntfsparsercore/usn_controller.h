// Reader of one multi-sector protected record ("FILE" or "INDX"): checks
// the record's magic, loads its update sequence array and patches the last
// two bytes of every sector that a read touches with the saved originals.
#ifndef TOLVAR_NTFSPARSERCORE_USN_CONTROLLER_H_
#define TOLVAR_NTFSPARSERCORE_USN_CONTROLLER_H_

#include <cstdint>
#include <memory>
#include <vector>

#include "ntfsparsercore/i_volume.h"
#include "ntfsparsercore/io/i_source.h"

namespace ntfsparsercore {

class UsnController {
 public:
  static constexpr uint32_t kFileMagic = 0x454C4946;  // "FILE": MFT records
  static constexpr uint32_t kIndxMagic = 0x58444E49;  // "INDX": index buffers

  // Reads the multi-sector header at baseOffset of source. A short header
  // read or a magic other than expectedMagic is reported (level 3) and
  // leaves no fix-up bytes, so reads then return raw bytes. The volume
  // supplies the sector size at every read and must outlive the controller.
  UsnController(IVolume* volume, std::shared_ptr<io::ISource> source, uint64_t baseOffset, uint32_t expectedMagic);

  // Reads count bytes at offset from the record's start and patches the
  // sector ends inside the range, unconditionally (the trailing sequence
  // number is not compared). Returns the bytes the source delivered.
  uint64_t Read(void* buffer, uint64_t count, uint64_t offset);

  // The magic found in the header; 0 when the header could not be read.
  uint32_t GetMagic() const { return magic_; }
  // The update sequence array without its first element: two bytes per sector.
  const std::vector<uint8_t>& GetFixupBytes() const { return fixup_; }
  uint64_t GetBaseOffset() const { return baseOffset_; }

  // Multi-sector header, at the record's first byte.
  static constexpr uint64_t kMagicOffset = 0x00;      // 4 bytes: record magic
  static constexpr uint64_t kUsaOffsetOffset = 0x04;  // 2 bytes: update sequence array offset
  static constexpr uint64_t kUsaCountOffset = 0x06;   // 2 bytes: array length in 16-bit words
  static constexpr uint64_t kHeaderSize = 8;

 private:
  void LoadFixupBytes(uint16_t arrayOffset, uint16_t arrayCount);

  IVolume* volume_;                      // supplies the fix-up stride (sector size)
  std::shared_ptr<io::ISource> source_;  // holds the record
  uint64_t baseOffset_;                  // position of the record's first byte in source_
  uint32_t magic_ = 0;                   // record type found in the header
  std::vector<uint8_t> fixup_;           // saved sector-end bytes, sector 0 first
};

}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_USN_CONTROLLER_H_
