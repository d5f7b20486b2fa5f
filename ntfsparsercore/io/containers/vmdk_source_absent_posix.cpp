// Built without libvmdk: VMDK images are recognised but cannot be read.
#include "common/error_queue.h"
#include "ntfsparsercore/io/containers/container_sources.h"

namespace ntfsparsercore {
namespace io {

std::unique_ptr<ISource> VmdkSource::Open(const std::string& path) {
  tolvarcommon::ReportError(tolvarcommon::kErrorIo, "%s: VMDK image, but this tolvar was built without libvmdk",
                            path.c_str());
  return nullptr;
}

}  // namespace io
}  // namespace ntfsparsercore
