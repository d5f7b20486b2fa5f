// The one byte-source interface: every byte the library reads (volume,
// shadow-copy device, store, MFT, file data) comes through it.
#ifndef TOLVAR_NTFSPARSERCORE_IO_I_SOURCE_H_
#define TOLVAR_NTFSPARSERCORE_IO_I_SOURCE_H_

#include <cstdint>

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

  virtual ~ISource() = default;
};

}  // namespace io
}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_IO_I_SOURCE_H_
