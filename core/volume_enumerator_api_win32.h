// The Win32 calls of the volume enumeration, as a seam for tests.
#ifndef TOLVAR_CORE_VOLUME_ENUMERATOR_API_WIN32_H_
#define TOLVAR_CORE_VOLUME_ENUMERATOR_API_WIN32_H_

#include <windows.h>

#include "core/volume_enumerator.h"

namespace tolvarcore {

class VolumeEnumerator::Api {
 public:
  static Api& Default();

  virtual ~Api() = default;
  virtual HANDLE FindFirstVolumeA(LPSTR name, DWORD length);
  virtual BOOL FindNextVolumeA(HANDLE find, LPSTR name, DWORD length);
  virtual BOOL FindVolumeClose(HANDLE find);
};

}  // namespace tolvarcore

#endif  // TOLVAR_CORE_VOLUME_ENUMERATOR_API_WIN32_H_
