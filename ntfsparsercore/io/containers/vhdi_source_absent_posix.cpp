// Built without libvhdi: VHD/VHDX images are recognised but cannot be read.
#include "common/error_queue.h"
#include "ntfsparsercore/io/containers/container_sources.h"

namespace ntfsparsercore {
namespace io {

std::unique_ptr<ISource> VhdiSource::Open(const std::string& path) {
  tolvarcommon::ReportError(tolvarcommon::kErrorIo, "%s: VHD/VHDX image, but this tolvar was built without libvhdi",
                            path.c_str());
  return nullptr;
}

}  // namespace io
}  // namespace ntfsparsercore
