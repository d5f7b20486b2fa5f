// Lists the volumes of the system, for finding the volume that holds
// another volume's shadow copies.
#ifndef TOLVAR_CORE_VOLUME_ENUMERATOR_H_
#define TOLVAR_CORE_VOLUME_ENUMERATOR_H_

#include <functional>
#include <string>

namespace tolvarcore {

class VolumeEnumerator {
 public:
  // The operating-system calls it makes; each platform defines it
  // (volume_enumerator_api_win32.h, volume_enumerator_api_posix.h).
  class Api;

  // Called with each volume's path; returns true to stop the enumeration.
  using Visitor = std::function<bool(const std::string& path)>;

  // The platform's own enumeration.
  VolumeEnumerator();
  explicit VolumeEnumerator(Api& api);

  // Visits the volumes in the platform's order until visit returns true.
  // Returns false when the enumeration could not be started.
  bool ForEach(const Visitor& visit) const;

 private:
  Api* api_;  // the calls it makes
};

}  // namespace tolvarcore

#endif  // TOLVAR_CORE_VOLUME_ENUMERATOR_H_
