// A shadow copy rebuilt from the shadow-copy store, for platforms without
// shadow-copy devices: the bytes of one snapshot's view of the volume,
// exactly as libvshadow reads them.
#ifndef TOLVAR_CORE_VSS_STORE_SNAPSHOT_SOURCE_H_
#define TOLVAR_CORE_VSS_STORE_SNAPSHOT_SOURCE_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "core/vss/block_descriptor.h"
#include "core/vss/store_layers.h"
#include "ntfsparsercore/io/i_source.h"

namespace tolvarcore {
namespace vss {

class StoreSnapshotSource : public ntfsparsercore::io::ISource {
 public:
  // volume: the current volume, which also holds the stores' data blocks.
  // stores: every store of the catalog, oldest first. snapshotIndex: the
  // store whose shadow copy this source shows. volumeSize: the size of the
  // view; reads end there.
  StoreSnapshotSource(std::shared_ptr<ntfsparsercore::io::ISource> volume, std::shared_ptr<const StoreLayers> stores,
                      std::size_t snapshotIndex, uint64_t volumeSize);

  StoreSnapshotSource(const StoreSnapshotSource&) = delete;
  StoreSnapshotSource& operator=(const StoreSnapshotSource&) = delete;

  // Delivers the view's bytes from offset on, up to size and the view's
  // end. A read that meets an unreadable store or a failed volume read
  // stops there and delivers what came before.
  uint64_t Read(void* buffer, uint64_t size, uint64_t offset) override;
  uint64_t GetSize() override { return volumeSize_; }
  // The volume the view reads, which Map's offsets are on.
  const std::shared_ptr<ntfsparsercore::io::ISource>& GetVolume() const { return volume_; }

  // A stretch of the view's bytes: zeros, or bytes of the volume from at on.
  struct Stretch {
    bool zeros;     // the stretch reads as zeros
    uint64_t at;    // !zeros: where its bytes start on the volume
    uint64_t size;  // its length in bytes
  };

  // Where the bytes that Read would deliver from offset on lie, read from
  // nowhere: the stretches in order, each joined with the ones that
  // continue it. They end early where a read would stop without reading
  // the volume (an unreadable store, an offset past the signed range); a
  // volume read that comes back short is for whoever reads the stretches.
  std::vector<Stretch> Map(uint64_t size, uint64_t offset) const;

 private:
  // Where the bytes of one stretch of a store's view come from.
  struct Piece {
    enum Kind { kNextStore, kVolume, kZeros };
    Kind kind;      // the next newer store's view, the current volume, or zeros
    uint64_t at;    // offset in the next store's view or on the volume
    uint64_t size;  // bytes at most that this piece covers
  };

  // A run of sectors of an overlay that are all kept or all not kept.
  struct SectorRun {
    bool kept;       // the run's sectors come from the overlay's data block
    uint64_t bytes;  // length of the run in bytes
  };

  uint64_t ReadFromStore(std::size_t store, uint8_t* buffer, uint64_t size, uint64_t offset);
  uint64_t MapStore(std::size_t store, uint64_t size, uint64_t offset, std::vector<Stretch>* stretches) const;
  uint64_t ReadPieceByPiece(std::size_t store, uint8_t* buffer, uint64_t size, uint64_t offset);
  Piece JoinedRun(std::size_t store, uint64_t offset, uint64_t size) const;
  uint64_t Deliver(const Piece& piece, std::size_t store, uint8_t* buffer, uint64_t size);
  Piece Locate(std::size_t store, uint64_t offset) const;
  Piece LocateUnmapped(std::size_t store, uint64_t offset, uint64_t size) const;
  Piece LocateMapped(std::size_t store, const BlockDescriptor& descriptor, uint64_t dataOffset, uint64_t offset,
                     uint64_t size) const;
  bool IsZeroFilled(const StoreLayer& layer, uint64_t offset) const;
  static SectorRun OverlayRun(const BlockDescriptor& overlay, uint64_t offset);

  std::shared_ptr<ntfsparsercore::io::ISource> volume_;  // the current volume with the store data
  std::shared_ptr<const StoreLayers> stores_;            // every store of the catalog, oldest first
  std::size_t snapshotIndex_;                            // the store whose view this is
  uint64_t volumeSize_;                                  // the view's size in bytes
};

}  // namespace vss
}  // namespace tolvarcore

#endif  // TOLVAR_CORE_VSS_STORE_SNAPSHOT_SOURCE_H_
