// Linux: a name is a path with an optional suffix that picks the volume;
// the path's container is recognised by its signature.
#include <sys/stat.h>

#include "ntfsparsercore/io/container_opener.h"
#include "ntfsparsercore/io/image_opener.h"
#include "ntfsparsercore/io/volume_locator.h"

namespace ntfsparsercore {
namespace io {

namespace {

bool Exists(const std::string& path) {
  struct stat status;
  return ::stat(path.c_str(), &status) == 0;
}

}  // namespace

VolumeName ImageOpener::ParseName(const std::string& name) { return VolumeName::Parse(name, Exists); }

std::unique_ptr<ISource> ImageOpener::OpenContainer(const std::string& path) { return ContainerOpener::Open(path); }

std::unique_ptr<ISource> ImageOpener::OpenVolume(const std::string& name) {
  const VolumeName parsed = ParseName(name);
  std::shared_ptr<ISource> container = OpenContainer(parsed.path);
  if (!container) return nullptr;
  return VolumeLocator::Locate(container, parsed);
}

}  // namespace io
}  // namespace ntfsparsercore
