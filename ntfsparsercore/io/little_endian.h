// Little-endian loads from on-disk structures. Every multi-byte field of
// the shadow-copy store and of NTFS is read through these.
#ifndef TOLVAR_NTFSPARSERCORE_IO_LITTLE_ENDIAN_H_
#define TOLVAR_NTFSPARSERCORE_IO_LITTLE_ENDIAN_H_

#include <cstdint>

namespace ntfsparsercore {
namespace io {

inline uint16_t LoadLe16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }

inline uint32_t LoadLe32(const uint8_t* p) {
  return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) | (static_cast<uint32_t>(p[2]) << 16) |
         (static_cast<uint32_t>(p[3]) << 24);
}

inline uint64_t LoadLe64(const uint8_t* p) {
  return static_cast<uint64_t>(LoadLe32(p)) | (static_cast<uint64_t>(LoadLe32(p + 4)) << 32);
}

inline void StoreLe16(uint8_t* p, uint16_t v) {
  p[0] = static_cast<uint8_t>(v);
  p[1] = static_cast<uint8_t>(v >> 8);
}

inline void StoreLe32(uint8_t* p, uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}

inline void StoreLe64(uint8_t* p, uint64_t v) {
  for (int i = 0; i < 8; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}

}  // namespace io
}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_IO_LITTLE_ENDIAN_H_
