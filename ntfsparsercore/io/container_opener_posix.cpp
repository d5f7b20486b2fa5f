#include "ntfsparsercore/io/container_opener.h"
#include "ntfsparsercore/io/system_file.h"

namespace ntfsparsercore {
namespace io {

std::unique_ptr<ISource> ContainerOpener::Open(const std::string& path) { return SystemFile::Open(path.c_str()); }

}  // namespace io
}  // namespace ntfsparsercore
