#include "cli/zero_bytes.h"

#include <cstring>

namespace tolvarcli {

bool IsAllZero(const uint8_t* data, std::size_t size) {
  // All zero when the first byte is and every byte equals the one before
  // it: one memcmp of the run with itself shifted by a byte, which the C
  // library does with its widest loads.
  return size == 0 || (data[0] == 0 && std::memcmp(data, data + 1, size - 1) == 0);
}

}  // namespace tolvarcli
