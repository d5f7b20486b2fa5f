#include "ntfsparsercore/io/cache_proxy.h"

#include <algorithm>
#include <cstring>

#include "common/error_queue.h"

using tolvarcommon::kErrorIo;
using tolvarcommon::Low32;
using tolvarcommon::ReportError;

namespace ntfsparsercore {
namespace io {

CacheProxy::CacheProxy(std::shared_ptr<ISource> source, uint64_t lineSize)
    : source_(std::move(source)), lineSize_(lineSize) {}

uint64_t CacheProxy::Read(void* buffer, uint64_t size, uint64_t offset) {
  return ReadLines(buffer, size, offset, false);
}

uint64_t CacheProxy::ReadDirect(void* buffer, uint64_t size, uint64_t offset) {
  return ReadLines(buffer, size, offset, true);
}

uint64_t CacheProxy::ReadLines(void* buffer, uint64_t size, uint64_t offset, bool direct) {
  // A line size of 0 would divide by zero; such a proxy delivers nothing.
  if (size == 0 || lineSize_ == 0) return 0;
  uint8_t* out = static_cast<uint8_t*>(buffer);
  uint64_t done = 0;
  const uint8_t* lineBefore = nullptr;  // the line just read straight into out, if it was
  for (;;) {
    const uint64_t position = offset + done;
    const uint64_t remainder = position % lineSize_;
    if (!line_) {
      line_ = tolvarcommon::AllocateAligned(static_cast<std::size_t>(lineSize_));
      std::memset(line_.get(), 0xFF, static_cast<std::size_t>(lineSize_));
      lineStart_ = position + lineSize_;  // so that the first lookup misses
    }
    if (!Holds(position)) {
      lineStart_ = position - remainder;
      // A whole line that more of the request follows may go straight into
      // the caller's buffer: the last line of a request always passes
      // through line_, which then holds what reading line by line leaves.
      if (direct && remainder == 0 && size - done > lineSize_ &&
          source_->Read(out + done, lineSize_, lineStart_) == lineSize_) {
        done += lineSize_;
        lineBefore = out + done - lineSize_;
        continue;
      }
      if (!LoadLine(lineBefore)) {
        ReportError(kErrorIo, "Failed read cluster, position %lu", Low32(position));
        return done;
      }
    }
    lineBefore = nullptr;
    const uint64_t n = std::min(size - done, lineStart_ + lineSize_ - position);
    std::memcpy(out + done, line_.get() + (position - lineStart_), static_cast<std::size_t>(n));
    done += n;
    if (n == 0 || done == size) return done;
  }
}

// A failed read leaves line_ holding whatever it wrote over the line before.
// When that line went straight to the caller, line_ still holds an older one:
// it is put back and the read made once more, so that a line that fails the
// same way each time is left exactly as reading line by line leaves it.
bool CacheProxy::LoadLine(const uint8_t* lineBefore) {
  if (source_->Read(line_.get(), lineSize_, lineStart_) == lineSize_) return true;
  if (lineBefore == nullptr) return false;
  std::memcpy(line_.get(), lineBefore, static_cast<std::size_t>(lineSize_));
  return source_->Read(line_.get(), lineSize_, lineStart_) == lineSize_;
}

uint64_t CacheProxy::GetSize() { return source_->GetSize(); }

}  // namespace io
}  // namespace ntfsparsercore
