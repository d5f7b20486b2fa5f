// Volume enumeration over the block devices that /sys/class/block lists,
// opened as /dev/NAME, in name order.
#include <dirent.h>

#include <algorithm>

#include "core/volume_enumerator.h"
#include "core/volume_enumerator_api_posix.h"

namespace tolvarcore {

VolumeEnumerator::Api& VolumeEnumerator::Api::Default() {
  static Api api;
  return api;
}

bool VolumeEnumerator::Api::ListBlockDevices(std::vector<std::string>* names) {
  DIR* directory = opendir("/sys/class/block");
  if (directory == nullptr) return false;
  while (const dirent* entry = readdir(directory)) {
    std::string name = entry->d_name;
    if (name != "." && name != "..") names->push_back(name);
  }
  closedir(directory);
  return true;
}

std::string VolumeEnumerator::Api::DevicePath(const std::string& name) { return "/dev/" + name; }

VolumeEnumerator::VolumeEnumerator() : api_(&Api::Default()) {}

VolumeEnumerator::VolumeEnumerator(Api& api) : api_(&api) {}

bool VolumeEnumerator::ForEach(const Visitor& visit) const {
  std::vector<std::string> names;
  if (!api_->ListBlockDevices(&names)) return false;
  std::sort(names.begin(), names.end());
  for (const std::string& name : names) {
    if (visit(api_->DevicePath(name))) break;
  }
  return true;
}

}  // namespace tolvarcore
