// The one byte-source interface: every byte the library reads (volume,
// shadow-copy device, store, MFT, file data) comes through it.
#ifndef TOLVAR_NTFSPARSERCORE_IO_I_SOURCE_H_
#define TOLVAR_NTFSPARSERCORE_IO_I_SOURCE_H_

#include <cstdint>
#include <memory>

namespace ntfsparsercore {
namespace io {

class ISource {
 public:
  // Copies up to size bytes from the absolute offset into buffer and
  // returns how many were delivered. A short count is the only failure
  // signal; Read never throws for an I/O failure.
  virtual uint64_t Read(void* buffer, uint64_t size, uint64_t offset) = 0;

  // The size of the source in bytes; 0 when unknown.
  virtual uint64_t GetSize() = 0;

  // Read for a caller that never looks at buffer past the count returned,
  // such as the block walk: a source that keeps a cache may then hand whole
  // pieces straight over, a copy less. Returns and reports what Read does.
  virtual uint64_t ReadDirect(void* buffer, uint64_t size, uint64_t offset) { return Read(buffer, size, offset); }

  // The source this one is a cache in front of, for a reader that keeps a
  // cache of its own over the same bytes; null for a source that caches
  // nothing.
  virtual std::shared_ptr<ISource> GetCachedSource() const { return nullptr; }

  virtual ~ISource() = default;
};

}  // namespace io
}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_IO_I_SOURCE_H_
