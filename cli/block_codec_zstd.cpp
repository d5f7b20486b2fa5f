#include <zstd.h>

#include "cli/block_codec.h"

namespace tolvarcli {

bool BlockCodec::Available() { return true; }

bool BlockCodec::Compress(const uint8_t* data, std::size_t size, std::vector<uint8_t>* out) {
  out->resize(ZSTD_compressBound(size));
  const std::size_t written = ZSTD_compress(out->data(), out->size(), data, size, kLevel);
  if (ZSTD_isError(written)) return false;
  out->resize(written);
  return true;
}

bool BlockCodec::Decompress(const uint8_t* data, std::size_t size, uint8_t* out, std::size_t expectedSize) {
  const std::size_t made = ZSTD_decompress(out, expectedSize, data, size);
  return !ZSTD_isError(made) && made == expectedSize;
}

}  // namespace tolvarcli
