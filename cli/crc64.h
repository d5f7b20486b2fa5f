// CRC-64 with the ECMA-182 polynomial in its reflected form, as xz uses it:
// initial value and final xor all ones. The check value of "123456789" is
// 0x995dc9bbdf1939fa.
#ifndef TOLVAR_CLI_CRC64_H_
#define TOLVAR_CLI_CRC64_H_

#include <cstddef>
#include <cstdint>

namespace tolvarcli {

class Crc64 {
 public:
  // The reflected ECMA-182 polynomial.
  static constexpr uint64_t kPolynomial = 0xC96C5795D7870F42ull;

  Crc64();

  // Adds size bytes at data to the running checksum.
  void Update(const void* data, std::size_t size);

  // The checksum of everything added so far.
  uint64_t Value() const { return ~state_; }

 private:
  uint64_t state_;  // the running remainder, before the final xor
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_CRC64_H_
