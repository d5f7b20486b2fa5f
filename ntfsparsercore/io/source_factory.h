// Creates the byte sources that the library reads devices through.
#ifndef TOLVAR_NTFSPARSERCORE_IO_SOURCE_FACTORY_H_
#define TOLVAR_NTFSPARSERCORE_IO_SOURCE_FACTORY_H_

#include <cstdint>
#include <memory>

#include "ntfsparsercore/io/i_source.h"

namespace ntfsparsercore {
namespace io {

class SourceFactory {
 public:
  virtual ~SourceFactory() = default;

  // A new source over the volume that path names (image_opener.h: on
  // Windows a SystemFile, on Linux also a volume inside a disk image), or
  // null with the reason on the error queue ("Open file(%s) failed - %d."
  // when the file does not open).
  virtual std::unique_ptr<ISource> Open(const char* path);

  // A new CacheProxy in front of source, which it shares. Null when source
  // is null or lineSize is 0.
  virtual std::unique_ptr<ISource> CreateCacheProxy(std::shared_ptr<ISource> source, uint64_t lineSize);
};

}  // namespace io
}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_IO_SOURCE_FACTORY_H_
