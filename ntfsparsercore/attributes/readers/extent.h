// One piece of an attribute's value as it lies on the volume.
#ifndef TOLVAR_NTFSPARSERCORE_ATTRIBUTES_READERS_EXTENT_H_
#define TOLVAR_NTFSPARSERCORE_ATTRIBUTES_READERS_EXTENT_H_

#include <cstdint>
#include <vector>

namespace ntfsparsercore {
namespace attributes {
namespace readers {

struct Extent {
  uint64_t logicalSize = 0;   // bytes of the value that the piece covers
  uint64_t volumeOffset = 0;  // byte position on the volume; 0 when not stored (sparse)
  uint64_t storedSize = 0;    // bytes it occupies on the volume; differs from logicalSize when compressed

  bool operator==(const Extent& other) const {
    return logicalSize == other.logicalSize && volumeOffset == other.volumeOffset && storedSize == other.storedSize;
  }
};

using ExtentList = std::vector<Extent>;

}  // namespace readers
}  // namespace attributes
}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_ATTRIBUTES_READERS_EXTENT_H_
