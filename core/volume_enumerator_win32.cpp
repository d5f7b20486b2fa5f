// Volume enumeration through FindFirstVolumeA and FindNextVolumeA.
#include <windows.h>

#include "core/volume_enumerator.h"
#include "core/volume_enumerator_api_win32.h"

namespace tolvarcore {

namespace {

// Room for one volume name, in characters.
constexpr DWORD kNameLength = 256;

}  // namespace

VolumeEnumerator::Api& VolumeEnumerator::Api::Default() {
  static Api api;
  return api;
}

HANDLE VolumeEnumerator::Api::FindFirstVolumeA(LPSTR name, DWORD length) { return ::FindFirstVolumeA(name, length); }
BOOL VolumeEnumerator::Api::FindNextVolumeA(HANDLE find, LPSTR name, DWORD length) {
  return ::FindNextVolumeA(find, name, length);
}
BOOL VolumeEnumerator::Api::FindVolumeClose(HANDLE find) { return ::FindVolumeClose(find); }

VolumeEnumerator::VolumeEnumerator() : api_(&Api::Default()) {}

VolumeEnumerator::VolumeEnumerator(Api& api) : api_(&api) {}

bool VolumeEnumerator::ForEach(const Visitor& visit) const {
  char name[kNameLength] = {};
  HANDLE find = api_->FindFirstVolumeA(name, kNameLength);
  if (find == INVALID_HANDLE_VALUE) return false;
  do {
    // A name that fills the buffer is cut at its last character.
    name[kNameLength - 1] = '\0';
    if (visit(name)) break;
  } while (api_->FindNextVolumeA(find, name, kNameLength));
  api_->FindVolumeClose(find);
  return true;
}

}  // namespace tolvarcore
