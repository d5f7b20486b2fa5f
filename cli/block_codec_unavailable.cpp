#include "cli/block_codec.h"

namespace tolvarcli {

bool BlockCodec::Available() { return false; }

bool BlockCodec::Compress(const uint8_t*, std::size_t, std::vector<uint8_t>*) { return false; }

bool BlockCodec::Decompress(const uint8_t*, std::size_t, uint8_t*, std::size_t) { return false; }

}  // namespace tolvarcli
