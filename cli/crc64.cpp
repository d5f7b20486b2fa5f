#include "cli/crc64.h"

#include <array>

namespace tolvarcli {

namespace {

// One remainder per byte value, built on first use.
const std::array<uint64_t, 256>& Table() {
  static const std::array<uint64_t, 256> table = [] {
    std::array<uint64_t, 256> entries{};
    for (uint64_t byte = 0; byte < entries.size(); ++byte) {
      uint64_t remainder = byte;
      for (int bit = 0; bit < 8; ++bit) {
        remainder = (remainder & 1) ? (remainder >> 1) ^ Crc64::kPolynomial : remainder >> 1;
      }
      entries[byte] = remainder;
    }
    return entries;
  }();
  return table;
}

}  // namespace

Crc64::Crc64() : state_(~0ull) {}

void Crc64::Update(const void* data, std::size_t size) {
  const std::array<uint64_t, 256>& table = Table();
  const uint8_t* bytes = static_cast<const uint8_t*>(data);
  uint64_t state = state_;
  for (std::size_t i = 0; i < size; ++i) {
    state = table[(state ^ bytes[i]) & 0xFF] ^ (state >> 8);
  }
  state_ = state;
}

}  // namespace tolvarcli
