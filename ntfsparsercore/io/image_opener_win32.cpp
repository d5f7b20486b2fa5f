// Windows: volumes are named by the operating system's own paths; the
// file or device opens as it is.
#include "ntfsparsercore/io/image_opener.h"
#include "ntfsparsercore/io/system_file.h"

namespace ntfsparsercore {
namespace io {

VolumeName ImageOpener::ParseName(const std::string& name) {
  VolumeName parsed;
  parsed.path = name;
  return parsed;
}

std::unique_ptr<ISource> ImageOpener::OpenContainer(const std::string& path) { return SystemFile::Open(path.c_str()); }

std::unique_ptr<ISource> ImageOpener::OpenVolume(const std::string& name) { return OpenContainer(name); }

}  // namespace io
}  // namespace ntfsparsercore
