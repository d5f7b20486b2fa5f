#include "ntfsparsercore/io/source_factory.h"

#include <memory>

#include "ntfsparsercore/io/cache_proxy.h"
#include "ntfsparsercore/io/image_opener.h"

namespace ntfsparsercore {
namespace io {

std::unique_ptr<ISource> SourceFactory::Open(const char* path) { return ImageOpener::OpenVolume(path); }

std::unique_ptr<ISource> SourceFactory::CreateCacheProxy(std::shared_ptr<ISource> source, uint64_t lineSize) {
  if (!source || lineSize == 0) return nullptr;
  return std::make_unique<CacheProxy>(std::move(source), lineSize);
}

}  // namespace io
}  // namespace ntfsparsercore
