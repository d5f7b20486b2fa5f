// Where the bytes of a mounted file lie in the file or device the volume
// is read from: the volume itself, or one shadow copy rebuilt over it. The
// mount hands such ranges to the kernel, which copies them from the page
// cache into the reply (splice) instead of through the view's buffers.
// Only a volume read straight from a plain file or device, or from a window
// (a partition) of one, has a layout; container images are read instead.
#ifndef TOLVAR_CLI_VOLUME_FILE_LAYOUT_H_
#define TOLVAR_CLI_VOLUME_FILE_LAYOUT_H_

#include <cstdint>
#include <memory>
#include <vector>

#include "core/vss/store_snapshot_source.h"
#include "ntfsparsercore/io/i_source.h"

namespace tolvarcli {

class VolumeFileLayout {
 public:
  // A stretch of a mounted file: zeros, or bytes of the volume's file.
  struct Stretch {
    bool zeros;     // the stretch reads as zeros
    uint64_t at;    // !zeros: where its bytes start in the file
    uint64_t size;  // its length in bytes

    bool operator==(const Stretch& other) const { return zeros == other.zeros && at == other.at && size == other.size; }
  };

  // The layout of volume itself, or of view, a shadow copy rebuilt from
  // the store; null when the volume is not read from a plain file.
  static std::shared_ptr<const VolumeFileLayout> OfVolume(std::shared_ptr<ntfsparsercore::io::ISource> volume);
  static std::shared_ptr<const VolumeFileLayout> OfShadowCopy(
      std::shared_ptr<const tolvarcore::vss::StoreSnapshotSource> view);

  // The operating system's handle of the file, open for as long as the layout.
  std::intptr_t Handle() const { return handle_; }

  // The stretches that hold the size bytes from offset on, in order; a
  // shadow copy's bytes are those of a read from the start of their page,
  // whatever offset is. Empty when they cannot all be told, or some lie
  // outside the volume: then the bytes are to be read through the view,
  // which says what fails.
  std::vector<Stretch> Locate(uint64_t size, uint64_t offset) const;

 private:
  static std::shared_ptr<const VolumeFileLayout> Of(std::shared_ptr<ntfsparsercore::io::ISource> volume,
                                                    std::shared_ptr<const tolvarcore::vss::StoreSnapshotSource> view);
  VolumeFileLayout(std::shared_ptr<ntfsparsercore::io::ISource> file, std::intptr_t handle, uint64_t start,
                   uint64_t length, std::shared_ptr<const tolvarcore::vss::StoreSnapshotSource> view);

  std::shared_ptr<ntfsparsercore::io::ISource> file_;                 // the open file or device, kept open
  std::intptr_t handle_;                                              // its handle
  uint64_t start_;                                                    // where the volume starts in it
  uint64_t length_;                                                   // the volume's length in bytes
  std::shared_ptr<const tolvarcore::vss::StoreSnapshotSource> view_;  // the shadow copy, or null: the volume
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_VOLUME_FILE_LAYOUT_H_
