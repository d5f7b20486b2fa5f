#include "ntfsparsercore/io/split_raw_source.h"

#include <algorithm>

namespace ntfsparsercore {
namespace io {

SplitRawSource::SplitRawSource(std::vector<std::unique_ptr<ISource>> pieces) : pieces_(std::move(pieces)) {
  starts_.push_back(0);
  for (const auto& piece : pieces_) starts_.push_back(starts_.back() + piece->GetSize());
}

uint64_t SplitRawSource::Read(void* buffer, uint64_t size, uint64_t offset) {
  uint8_t* out = static_cast<uint8_t*>(buffer);
  uint64_t count = 0;
  // The piece that holds offset: the last one starting at or before it.
  std::size_t piece =
      static_cast<std::size_t>(std::upper_bound(starts_.begin(), starts_.end(), offset) - starts_.begin()) - 1;
  while (count < size && piece < pieces_.size()) {
    const uint64_t at = offset + count - starts_[piece];
    const uint64_t want = std::min(size - count, starts_[piece + 1] - starts_[piece] - at);
    const uint64_t got = pieces_[piece]->Read(out + count, want, at);
    count += got;
    if (got != want) break;
    ++piece;
  }
  return count;
}

}  // namespace io
}  // namespace ntfsparsercore
