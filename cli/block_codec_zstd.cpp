#include <zstd.h>

#include <memory>

#include "cli/block_codec.h"

namespace tolvarcli {

namespace {

struct CompressionContextFree {
  void operator()(ZSTD_CCtx* context) const { ZSTD_freeCCtx(context); }
};
struct DecompressionContextFree {
  void operator()(ZSTD_DCtx* context) const { ZSTD_freeDCtx(context); }
};

// One context per thread, made once: a context of its own for every block
// would set up zstd's tables again each time.
ZSTD_CCtx* CompressionContext() {
  thread_local std::unique_ptr<ZSTD_CCtx, CompressionContextFree> context(ZSTD_createCCtx());
  return context.get();
}

ZSTD_DCtx* DecompressionContext() {
  thread_local std::unique_ptr<ZSTD_DCtx, DecompressionContextFree> context(ZSTD_createDCtx());
  return context.get();
}

}  // namespace

bool BlockCodec::Available() { return true; }

bool BlockCodec::Compress(const uint8_t* data, std::size_t size, std::vector<uint8_t>* out) {
  ZSTD_CCtx* context = CompressionContext();
  if (context == nullptr) return false;
  out->resize(ZSTD_compressBound(size));
  const std::size_t written = ZSTD_compressCCtx(context, out->data(), out->size(), data, size, kLevel);
  if (ZSTD_isError(written)) return false;
  out->resize(written);
  return true;
}

bool BlockCodec::Decompress(const uint8_t* data, std::size_t size, uint8_t* out, std::size_t expectedSize) {
  ZSTD_DCtx* context = DecompressionContext();
  if (context == nullptr) return false;
  const std::size_t made = ZSTD_decompressDCtx(context, out, expectedSize, data, size);
  return !ZSTD_isError(made) && made == expectedSize;
}

}  // namespace tolvarcli
