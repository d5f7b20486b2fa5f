#include "cli/zero_bytes.h"

#include <cstring>

namespace tolvarcli {

bool IsAllZero(const uint8_t* data, std::size_t size) {
  // Eight bytes at a time, or-ed together so the loop has no branch to
  // mispredict; the tail byte by byte.
  constexpr std::size_t kWord = sizeof(uint64_t);
  std::size_t i = 0;
  while (i + 8 * kWord <= size) {
    uint64_t words[8];
    std::memcpy(words, data + i, sizeof words);
    const uint64_t any = words[0] | words[1] | words[2] | words[3] | words[4] | words[5] | words[6] | words[7];
    if (any != 0) return false;
    i += sizeof words;
  }
  for (; i < size; ++i) {
    if (data[i] != 0) return false;
  }
  return true;
}

}  // namespace tolvarcli
