#include "ntfsparsercore/io/window_source.h"

#include <algorithm>

namespace ntfsparsercore {
namespace io {

WindowSource::WindowSource(std::shared_ptr<ISource> source, uint64_t start, uint64_t length)
    : source_(std::move(source)), start_(start), length_(length) {}

uint64_t WindowSource::Read(void* buffer, uint64_t size, uint64_t offset) {
  if (offset >= length_) return 0;
  const uint64_t count = std::min(size, length_ - offset);
  return source_->Read(buffer, count, start_ + offset);
}

}  // namespace io
}  // namespace ntfsparsercore
