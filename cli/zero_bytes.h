// Whether a run of bytes is all zero (such blocks become holes or stay
// unallocated in the images the command writes).
#ifndef TOLVAR_CLI_ZERO_BYTES_H_
#define TOLVAR_CLI_ZERO_BYTES_H_

#include <cstddef>
#include <cstdint>

namespace tolvarcli {

bool IsAllZero(const uint8_t* data, std::size_t size);

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_ZERO_BYTES_H_
