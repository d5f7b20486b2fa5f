#include "cli/run_source.h"

#include <algorithm>
#include <cstring>

namespace tolvarcli {

RunSource::RunSource(ntfsparsercore::IVolume* volume, ntfsparsercore::RunList runs, uint64_t size)
    : volume_(volume), runs_(std::move(runs)), size_(size) {
  uint64_t position = 0;
  for (const ntfsparsercore::Run& run : runs_) {
    starts_.push_back(position);
    // Lengths of a damaged run list could pass 64 bits: the positions stop there.
    position = run.length > UINT64_MAX - position ? UINT64_MAX : position + run.length;
  }
}

uint64_t RunSource::Read(void* buffer, uint64_t size, uint64_t offset) {
  if (offset >= size_ || buffer == nullptr || !volume_) return 0;
  size = std::min(size, size_ - offset);
  uint8_t* out = static_cast<uint8_t*>(buffer);
  uint64_t done = 0;
  // The run that holds offset: the last one starting at or before it.
  std::size_t i = static_cast<std::size_t>(std::upper_bound(starts_.begin(), starts_.end(), offset) - starts_.begin());
  if (i == 0) return 0;
  for (--i; i < runs_.size() && done < size; ++i) {
    const uint64_t position = offset + done;
    const uint64_t skip = position - starts_[i];
    if (skip >= runs_[i].length) continue;
    const uint64_t n = std::min(size - done, runs_[i].length - skip);
    if (runs_[i].volumeOffset == 0) {
      std::memset(out + done, 0, static_cast<std::size_t>(n));
    } else if (volume_->Read(out + done, n, runs_[i].volumeOffset + skip) != n) {
      break;
    }
    done += n;
  }
  return done;
}

}  // namespace tolvarcli
