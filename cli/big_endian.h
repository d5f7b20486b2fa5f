// Big-endian stores and loads, for the one format the command writes that
// is big-endian: qcow2.
#ifndef TOLVAR_CLI_BIG_ENDIAN_H_
#define TOLVAR_CLI_BIG_ENDIAN_H_

#include <cstdint>

namespace tolvarcli {

inline void StoreBe16(uint8_t* p, uint16_t v) {
  for (int i = 0; i < 2; ++i) p[i] = static_cast<uint8_t>(v >> (8 * (1 - i)));
}

inline void StoreBe32(uint8_t* p, uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (8 * (3 - i)));
}

inline void StoreBe64(uint8_t* p, uint64_t v) {
  for (int i = 0; i < 8; ++i) p[i] = static_cast<uint8_t>(v >> (8 * (7 - i)));
}

inline uint32_t LoadBe32(const uint8_t* p) {
  return (static_cast<uint32_t>(p[0]) << 24) | (static_cast<uint32_t>(p[1]) << 16) |
         (static_cast<uint32_t>(p[2]) << 8) | static_cast<uint32_t>(p[3]);
}

inline uint64_t LoadBe64(const uint8_t* p) { return (static_cast<uint64_t>(LoadBe32(p)) << 32) | LoadBe32(p + 4); }

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_BIG_ENDIAN_H_
