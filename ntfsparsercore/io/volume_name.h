// How a volume is named on Linux: the path of an image or device, then
// optionally a suffix that picks the volume inside it:
//   IMAGE@partition=N     partition N of the disk (1-based, numbered as
//                         Linux and fdisk number them)
//   IMAGE@offset=BYTES    the volume that starts BYTES bytes into the image
// A name that is itself an existing file is that file, suffix or not.
#ifndef TOLVAR_NTFSPARSERCORE_IO_VOLUME_NAME_H_
#define TOLVAR_NTFSPARSERCORE_IO_VOLUME_NAME_H_

#include <cstdint>
#include <functional>
#include <string>

namespace ntfsparsercore {
namespace io {

struct VolumeName {
  enum class Pick { kWhole, kPartition, kOffset };

  static constexpr const char* kPartitionSuffix = "@partition=";
  static constexpr const char* kOffsetSuffix = "@offset=";

  // Splits text into the image's path and the pick. exists tells whether a
  // file of a given name is there.
  static VolumeName Parse(const std::string& text, const std::function<bool(const std::string&)>& exists);

  // The name that Parse turns back into this one.
  std::string ToString() const;

  std::string path;          // the image or device
  Pick pick = Pick::kWhole;  // what inside it
  uint64_t value = 0;        // the partition number or the byte offset
};

}  // namespace io
}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_IO_VOLUME_NAME_H_
