// zstd compression of increment blocks (libzstd). block_codec_zstd.cpp holds
// it where the library is found (Linux); block_codec_unavailable.cpp says it
// is missing elsewhere.
#ifndef TOLVAR_CLI_BLOCK_CODEC_H_
#define TOLVAR_CLI_BLOCK_CODEC_H_

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tolvarcli {

class BlockCodec {
 public:
  static constexpr int kLevel = 3;  // zstd's default: fast, and most of what higher levels gain

  // Whether this build can compress.
  static bool Available();
  // The compressed form of size bytes at data into *out; false on failure.
  static bool Compress(const uint8_t* data, std::size_t size, std::vector<uint8_t>* out);
  // Decompresses exactly expectedSize bytes into out; false unless the
  // input is one whole frame of that size.
  static bool Decompress(const uint8_t* data, std::size_t size, uint8_t* out, std::size_t expectedSize);
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_BLOCK_CODEC_H_
