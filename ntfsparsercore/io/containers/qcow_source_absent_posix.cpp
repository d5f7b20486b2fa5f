// Built without libqcow: qcow images are recognised but cannot be read.
#include "common/error_queue.h"
#include "ntfsparsercore/io/containers/container_sources.h"

namespace ntfsparsercore {
namespace io {

std::unique_ptr<ISource> QcowSource::Open(const std::string& path) {
  tolvarcommon::ReportError(tolvarcommon::kErrorIo, "%s: qcow image, but this tolvar was built without libqcow",
                            path.c_str());
  return nullptr;
}

}  // namespace io
}  // namespace ntfsparsercore
