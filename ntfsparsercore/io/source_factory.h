// Creates the byte sources that the library reads devices through.
#ifndef TOLVAR_NTFSPARSERCORE_IO_SOURCE_FACTORY_H_
#define TOLVAR_NTFSPARSERCORE_IO_SOURCE_FACTORY_H_

#include <cstdint>

#include "ntfsparsercore/io/i_source.h"

namespace ntfsparsercore {
namespace io {

class SourceFactory {
 public:
  virtual ~SourceFactory() = default;

  // A new SystemFile over path, or null (with "Open file(%s) failed - %d."
  // on the error queue). The caller owns the result.
  virtual ISource* Open(const char* path);

  // A new CacheProxy in front of source, which it takes over. Null, and
  // source not taken over, when source is null or lineSize is 0.
  virtual ISource* CreateCacheProxy(ISource* source, uint64_t lineSize);
};

}  // namespace io
}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_IO_SOURCE_FACTORY_H_
