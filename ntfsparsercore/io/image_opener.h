// Opens what a volume name names, read-only. On Linux: the container at
// the name's path (a raw file or device, or the disk inside a split raw,
// EWF, qcow, VHD, VHDX or VMDK image), then the volume that the name's
// suffix picks in it (see volume_name.h). On Windows: the file or device
// itself, as the operating system names it.
#ifndef TOLVAR_NTFSPARSERCORE_IO_IMAGE_OPENER_H_
#define TOLVAR_NTFSPARSERCORE_IO_IMAGE_OPENER_H_

#include <memory>
#include <string>

#include "ntfsparsercore/io/i_source.h"
#include "ntfsparsercore/io/volume_name.h"

namespace ntfsparsercore {
namespace io {

class ImageOpener {
 public:
  // The name split into path and pick, as this platform reads names.
  static VolumeName ParseName(const std::string& name);

  // The container at path, or null with the reason on the error queue.
  static std::unique_ptr<ISource> OpenContainer(const std::string& path);

  // The volume that name names, or null with the reason on the error queue.
  static std::unique_ptr<ISource> OpenVolume(const std::string& name);
};

}  // namespace io
}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_IO_IMAGE_OPENER_H_
