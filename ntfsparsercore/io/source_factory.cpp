#include "ntfsparsercore/io/source_factory.h"

#include <memory>

#include "ntfsparsercore/io/cache_proxy.h"
#include "ntfsparsercore/io/system_file.h"

namespace ntfsparsercore {
namespace io {

ISource* SourceFactory::Open(const char* path) { return SystemFile::Open(path); }

ISource* SourceFactory::CreateCacheProxy(ISource* source, uint64_t lineSize) {
  if (source == nullptr || lineSize == 0) return nullptr;
  return new CacheProxy(std::shared_ptr<ISource>(source), lineSize);
}

}  // namespace io
}  // namespace ntfsparsercore
