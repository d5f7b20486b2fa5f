// Turns names into opened things: a volume path into that volume's
// shadow-copy store, a store into the store of the volume that holds its
// shadow copies (the storage), and a snapshot into a byte source over its
// shadow copy. Every device is read through a cache proxy of 16 KiB lines.
#ifndef TOLVAR_CORE_VOLUME_PROVIDER_H_
#define TOLVAR_CORE_VOLUME_PROVIDER_H_

#include <cstdint>
#include <memory>
#include <string>

#include "core/volume_enumerator.h"
#include "core/vss/snapshot.h"
#include "core/vss/vss_volume.h"
#include "ntfsparsercore/io/i_source.h"
#include "ntfsparsercore/io/source_factory.h"

namespace tolvarcore {

namespace vss {
class StoreStack;
}

class VolumeProvider {
 public:
  // Cache line size of every source it opens.
  static constexpr uint64_t kLineSize = 16384;

  explicit VolumeProvider(std::shared_ptr<ntfsparsercore::io::SourceFactory> factory);
  // With another volume enumeration (the seam for tests).
  VolumeProvider(std::shared_ptr<ntfsparsercore::io::SourceFactory> factory, VolumeEnumerator enumerator);

  VolumeProvider(const VolumeProvider&) = delete;
  VolumeProvider& operator=(const VolumeProvider&) = delete;

  // The store of the volume at path (one trailing backslash dropped), or
  // empty: when the device does not open, or (reported) when the store
  // names no storage.
  virtual std::shared_ptr<vss::VssVolume> OpenVolume(const std::string& path);

  // The store of the volume that holds volume's shadow copies: volume
  // itself, or another volume of the system with the wanted identifier.
  virtual std::shared_ptr<vss::VssVolume> FindStorage(const std::shared_ptr<vss::VssVolume>& volume);

  // A new byte source over the snapshot's shadow copy, or null. On Windows
  // the shadow-copy device; on POSIX a view rebuilt from storage's store.
  virtual std::unique_ptr<ntfsparsercore::io::ISource> OpenShadowCopy(const std::shared_ptr<vss::Snapshot>& snapshot,
                                                                      const std::shared_ptr<vss::VssVolume>& storage);

  virtual ~VolumeProvider();

 private:
  // Opens path through the factory behind a cache proxy; null on failure.
  std::unique_ptr<ntfsparsercore::io::ISource> OpenDevice(const std::string& path);

  uint64_t lineSize_ = kLineSize;                               // cache line size for every source it opens
  std::shared_ptr<ntfsparsercore::io::SourceFactory> factory_;  // shared with Init, which creates it
  VolumeEnumerator enumerator_;                                 // the system's volumes
  // POSIX: the stores that shadow copies are rebuilt from, and whose.
  std::shared_ptr<const vss::StoreStack> stores_;
  std::shared_ptr<vss::VssVolume> storesOf_;
};

}  // namespace tolvarcore

#endif  // TOLVAR_CORE_VOLUME_PROVIDER_H_
