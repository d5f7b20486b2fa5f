// Linux: opens a disk-image container by its signature and serves the disk
// inside it, read-only.
#ifndef TOLVAR_NTFSPARSERCORE_IO_CONTAINER_OPENER_H_
#define TOLVAR_NTFSPARSERCORE_IO_CONTAINER_OPENER_H_

#include <memory>
#include <string>

#include "ntfsparsercore/io/i_source.h"

namespace ntfsparsercore {
namespace io {

class ContainerOpener {
 public:
  // The disk inside the container at path, or null with the reason on the
  // error queue ("Open file(%s) failed - %d." when the file does not open).
  static std::unique_ptr<ISource> Open(const std::string& path);
};

}  // namespace io
}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_IO_CONTAINER_OPENER_H_
