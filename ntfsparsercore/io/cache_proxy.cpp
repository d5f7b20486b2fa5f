#include "ntfsparsercore/io/cache_proxy.h"

#include <algorithm>
#include <cstring>

#include "api/error_queue.h"

namespace ntfsparsercore {
namespace io {

CacheProxy::CacheProxy(std::shared_ptr<ISource> source, uint64_t lineSize)
    : source_(std::move(source)), lineSize_(lineSize) {}

uint64_t CacheProxy::Read(void* buffer, uint64_t size, uint64_t offset) {
  // A line size of 0 would divide by zero; such a proxy delivers nothing.
  if (size == 0 || lineSize_ == 0) return 0;
  uint8_t* out = static_cast<uint8_t*>(buffer);
  uint64_t done = 0;
  for (;;) {
    const uint64_t position = offset + done;
    const uint64_t remainder = position % lineSize_;
    if (!line_) {
      line_.reset(new uint8_t[lineSize_]);
      std::memset(line_.get(), 0xFF, static_cast<std::size_t>(lineSize_));
      lineStart_ = position + lineSize_;  // so that the first lookup misses
    }
    if (!Holds(position)) {
      lineStart_ = position - remainder;
      if (source_->Read(line_.get(), lineSize_, lineStart_) != lineSize_) {
        ReportError(kErrorIo, "Failed read cluster, position %lu", Low32(position));
        return done;
      }
    }
    const uint64_t n = std::min(size - done, lineStart_ + lineSize_ - position);
    std::memcpy(out + done, line_.get() + (position - lineStart_), static_cast<std::size_t>(n));
    done += n;
    if (n == 0 || done == size) return done;
  }
}

uint64_t CacheProxy::GetSize() { return source_->GetSize(); }

}  // namespace io
}  // namespace ntfsparsercore
