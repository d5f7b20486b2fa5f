// A read-through cache of one aligned line in front of another source.
// The source is always read in whole lines at multiples of the line size,
// which satisfies the alignment that raw devices demand.
#ifndef TOLVAR_NTFSPARSERCORE_IO_CACHE_PROXY_H_
#define TOLVAR_NTFSPARSERCORE_IO_CACHE_PROXY_H_

#include <cstdint>
#include <memory>

#include "common/aligned_bytes.h"
#include "ntfsparsercore/io/i_source.h"

namespace ntfsparsercore {
namespace io {

class CacheProxy : public ISource {
 public:
  CacheProxy(std::shared_ptr<ISource> source, uint64_t lineSize);

  CacheProxy(const CacheProxy&) = delete;
  CacheProxy& operator=(const CacheProxy&) = delete;

  // A line whose source read failed stays current: later reads inside it
  // are served from whatever the failed read left in the buffer.
  uint64_t Read(void* buffer, uint64_t size, uint64_t offset) override;

  // Read for a caller that never looks past the count returned: whole lines
  // inside the request go straight into buffer, a copy less, and only the
  // last one through the line. It returns and reports what Read does and
  // leaves the line as Read leaves it; only buffer past the count may
  // differ, holding what a failed read delivered.
  uint64_t ReadDirect(void* buffer, uint64_t size, uint64_t offset) override;
  uint64_t GetSize() override;

  // The source behind the line, for a reader that keeps a line of its own
  // in front of the same bytes and would only pay for a second copy here.
  std::shared_ptr<ISource> GetCachedSource() const override { return source_; }

 private:
  uint64_t ReadLines(void* buffer, uint64_t size, uint64_t offset, bool direct);
  bool LoadLine(const uint8_t* lineBefore);
  bool Holds(uint64_t position) const { return lineStart_ <= position && position - lineStart_ < lineSize_; }

  std::shared_ptr<ISource> source_;  // the source that is cached
  tolvarcommon::AlignedArray line_;  // one line of lineSize_ bytes; absent until the first read
  uint64_t lineStart_ = 0;           // absolute offset of the first byte held in line_
  uint64_t lineSize_;                // the unit in which the source is read
};

}  // namespace io
}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_IO_CACHE_PROXY_H_
