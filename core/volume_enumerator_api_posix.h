// Where the POSIX volume enumeration looks, as a seam for tests.
#ifndef TOLVAR_CORE_VOLUME_ENUMERATOR_API_POSIX_H_
#define TOLVAR_CORE_VOLUME_ENUMERATOR_API_POSIX_H_

#include <string>
#include <vector>

#include "core/volume_enumerator.h"

namespace tolvarcore {

class VolumeEnumerator::Api {
 public:
  static Api& Default();

  virtual ~Api() = default;
  // The entries of /sys/class/block; false when it cannot be read.
  virtual bool ListBlockDevices(std::vector<std::string>* names);
  // The path a block device is opened by: /dev/NAME.
  virtual std::string DevicePath(const std::string& name);
};

}  // namespace tolvarcore

#endif  // TOLVAR_CORE_VOLUME_ENUMERATOR_API_POSIX_H_
