#include "ntfsparsercore/io/crc32.h"

namespace ntfsparsercore {
namespace io {

namespace {
constexpr uint32_t kPolynomial = 0xEDB88320u;
}

// Bit by bit: partition tables are a few KiB, read once.
uint32_t Crc32(const uint8_t* bytes, std::size_t size) {
  uint32_t crc = 0xFFFFFFFFu;
  for (std::size_t i = 0; i < size; ++i) {
    crc ^= bytes[i];
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (kPolynomial & (0u - (crc & 1u)));
  }
  return ~crc;
}

}  // namespace io
}  // namespace ntfsparsercore
