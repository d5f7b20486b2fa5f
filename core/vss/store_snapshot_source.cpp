// How libvshadow reads shadow copy k (the k-th store of the catalog, oldest
// first), which this source reproduces byte for byte. Block maps are built
// as store_block_map.cpp describes.
//
// Stores and view size
//  - The stores are all of the catalog's stores in ascending creation
//    time; store s+1 is the next newer one. A store whose declaration is
//    missing, or whose bitmaps or block list cannot be read, makes every
//    read that reaches it fail.
//  - The view is as long as the volume: the NTFS size from the boot sector
//    (total sectors * bytes per sector, rounded down to clusters, plus one
//    cluster) when the backup boot sector at that size minus 512 agrees,
//    else the volume size of the first store definition in the catalog.
//    A read from at or past the end delivers nothing; one that crosses it
//    is cut at the end. A read that fails anywhere fails as a whole there;
//    here it delivers the bytes before the failure, a short count.
//
// Reading store s of the view of store k at offset, one piece at a time
// (a piece normally runs to the next 16 KiB boundary, rel = offset mod
// 16 KiB):
//  1. Look the offset up in store s's map (by the 16 KiB range from each
//     mapping's original offset).
//  2. A mapping with an overlay in force:
//     - when s is not k, overlays are ignored: an overlay-only mapping
//       counts as no mapping, a plain mapping is used as if it had none;
//     - when s is k, the overlay's allocation bitmap is consulted at the
//       sector that starts at or after offset (the bitmap is shifted once
//       per 512 bytes from the block start while below offset, at most 32
//       times). If that bit is set, the piece is the run of set bits from
//       there and comes from the overlay's store data offset + rel. If it is
//       clear, the piece is the run of clear bits and comes from the plain
//       mapping, or, for an overlay-only mapping, as if unmapped. Runs are
//       counted in whole 512-byte sectors from offset itself, and the
//       counter is 8 bits wide: a read that starts inside the last sector,
//       past its first byte, finds no bits left and gets a run of 256
//       sectors (128 KiB), which may reach past the block.
//  3. A mapped piece that is a forwarder, with a newer store left, is read
//     from store s+1 at relative offset + rel (still as the view of k). Any
//     other mapped piece is read from the volume at its data offset + rel:
//     the store data offset, or the relative offset for a forwarder in the
//     newest store.
//  4. An unmapped piece is read from store s+1 at the same offset when a
//     newer store is left. In the newest store it reads as zeros when s is
//     k itself (the newest shadow copy), no forwarder left in the reverse
//     list targets the block, the store's current bitmap marks the block
//     (set bit: not in use) and, if the store has a previous bitmap, that
//     one marks it too. Each bitmap is the payload of every page of its
//     chain, one bit per 16 KiB block; blocks past its end are not marked. Otherwise it comes from the volume at the
//     offset. Views of older shadow copies never read zeros of their own.
//  5. Offsets are signed 64-bit in libvshadow: a data offset plus rel that
//     reaches 2^63 or more cannot be read.
// Forwarders always lead to the next newer store, so a read visits each
// store at most once along any path and always ends.
#include "core/vss/store_format.h"
#include "core/vss/store_snapshot_source.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace tolvarcore {
namespace vss {

namespace {

using format::kBlockSize;
using format::kOverlaySectors;
using format::kOverlaySectorSize;
constexpr uint64_t kLargestOffset = 0x7FFFFFFFFFFFFFFFull;  // last offset a signed 64-bit seek reaches

}  // namespace

StoreSnapshotSource::StoreSnapshotSource(std::shared_ptr<ntfsparsercore::io::ISource> volume,
                                         std::shared_ptr<const StoreLayers> stores, std::size_t snapshotIndex,
                                         uint64_t volumeSize)
    : volume_(std::move(volume)), stores_(std::move(stores)), snapshotIndex_(snapshotIndex), volumeSize_(volumeSize) {}

uint64_t StoreSnapshotSource::Read(void* buffer, uint64_t size, uint64_t offset) {
  // Guards a source built without a volume, stores, or with an index past them.
  if (!volume_ || !stores_ || snapshotIndex_ >= stores_->Count()) return 0;
  if (size == 0 || offset >= volumeSize_) return 0;
  size = std::min(size, volumeSize_ - offset);
  return ReadFromStore(snapshotIndex_, static_cast<uint8_t*>(buffer), size, offset);
}

// Pieces that continue one another (zeros after zeros, or the next bytes
// of the same place) are delivered with one read. When that read comes up
// short, the run is read again piece by piece, so that the count delivered
// is exactly the one single pieces give. Recursion goes only to the next
// newer store, so its depth is at most the number of stores.
uint64_t StoreSnapshotSource::ReadFromStore(std::size_t store, uint8_t* buffer, uint64_t size, uint64_t offset) {
  const StoreLayer& layer = stores_->At(store);
  if (!layer.blockMap || !layer.blockMap->IsUsable()) return 0;
  uint64_t delivered = 0;
  while (delivered < size) {
    const Piece run = JoinedRun(store, offset + delivered, size - delivered);
    const uint64_t got = Deliver(run, store, buffer + delivered, run.size);
    if (got != run.size) return delivered + ReadPieceByPiece(store, buffer + delivered, run.size, offset + delivered);
    delivered += got;
  }
  return delivered;
}

std::vector<StoreSnapshotSource::Stretch> StoreSnapshotSource::Map(uint64_t size, uint64_t offset) const {
  std::vector<Stretch> stretches;
  if (!volume_ || !stores_ || snapshotIndex_ >= stores_->Count()) return stretches;
  if (size == 0 || offset >= volumeSize_) return stretches;
  MapStore(snapshotIndex_, std::min(size, volumeSize_ - offset), offset, &stretches);
  return stretches;
}

// ReadFromStore's walk without the reads; returns the bytes mapped.
uint64_t StoreSnapshotSource::MapStore(std::size_t store, uint64_t size, uint64_t offset,
                                       std::vector<Stretch>* stretches) const {
  const StoreLayer& layer = stores_->At(store);
  if (!layer.blockMap || !layer.blockMap->IsUsable()) return 0;
  uint64_t mapped = 0;
  while (mapped < size) {
    const Piece run = JoinedRun(store, offset + mapped, size - mapped);
    if (run.at > kLargestOffset) return mapped;
    if (run.kind == Piece::kNextStore) {
      const uint64_t got = MapStore(store + 1, run.size, run.at, stretches);
      mapped += got;
      if (got != run.size) return mapped;
      continue;
    }
    const Stretch next{run.kind == Piece::kZeros, run.at, run.size};
    Stretch* last = stretches->empty() ? nullptr : &stretches->back();
    if (last != nullptr && last->zeros == next.zeros && (next.zeros || last->at + last->size == next.at)) {
      last->size += next.size;
    } else {
      stretches->push_back(next);
    }
    mapped += run.size;
  }
  return mapped;
}

uint64_t StoreSnapshotSource::ReadPieceByPiece(std::size_t store, uint8_t* buffer, uint64_t size, uint64_t offset) {
  uint64_t delivered = 0;
  while (delivered < size) {
    const Piece piece = Locate(store, offset + delivered);
    const uint64_t wanted = std::min(size - delivered, piece.size);
    const uint64_t got = Deliver(piece, store, buffer + delivered, wanted);
    delivered += got;
    if (got != wanted) break;
  }
  return delivered;
}

// The piece at offset, lengthened by the pieces after it that continue it,
// up to size bytes.
StoreSnapshotSource::Piece StoreSnapshotSource::JoinedRun(std::size_t store, uint64_t offset, uint64_t size) const {
  Piece run = Locate(store, offset);
  run.size = std::min(run.size, size);
  while (run.size < size && run.at <= kLargestOffset) {
    const Piece next = Locate(store, offset + run.size);
    const bool continues = next.kind == run.kind && (run.kind == Piece::kZeros || next.at == run.at + run.size);
    if (!continues) break;
    run.size += std::min(next.size, size - run.size);
  }
  return run;
}

uint64_t StoreSnapshotSource::Deliver(const Piece& piece, std::size_t store, uint8_t* buffer, uint64_t size) {
  // An offset past the signed 64-bit range cannot be sought to.
  if (piece.at > kLargestOffset) return 0;
  if (piece.kind == Piece::kZeros) {
    std::memset(buffer, 0, static_cast<std::size_t>(size));
    return size;
  }
  if (piece.kind == Piece::kNextStore) return ReadFromStore(store + 1, buffer, size, piece.at);
  return volume_->Read(buffer, size, piece.at);
}

StoreSnapshotSource::Piece StoreSnapshotSource::Locate(std::size_t store, uint64_t offset) const {
  const uint64_t toBlockEnd = kBlockSize - offset % kBlockSize;
  const StoreBlockMap::Mapping* mapping = stores_->At(store).blockMap->Find(offset);
  if (mapping == nullptr) return LocateUnmapped(store, offset, toBlockEnd);

  const BlockDescriptor& plain = mapping->descriptor;
  const uint64_t plainData = plain.IsForwarder() ? plain.relativeOffset : plain.storeDataOffset;
  const BlockDescriptor* overlay = mapping->OverlayOf();
  const bool overlayOnly = overlay == &plain;
  if (overlay == nullptr) return LocateMapped(store, plain, plainData, offset, toBlockEnd);
  if (store != snapshotIndex_) {
    if (overlayOnly) return LocateUnmapped(store, offset, toBlockEnd);
    return LocateMapped(store, plain, plainData, offset, toBlockEnd);
  }
  const SectorRun run = OverlayRun(*overlay, offset);
  if (run.kept) return LocateMapped(store, *overlay, overlay->storeDataOffset, offset, run.bytes);
  if (overlayOnly) return LocateUnmapped(store, offset, run.bytes);
  return LocateMapped(store, plain, plainData, offset, run.bytes);
}

StoreSnapshotSource::Piece StoreSnapshotSource::LocateMapped(std::size_t store, const BlockDescriptor& descriptor,
                                                             uint64_t dataOffset, uint64_t offset,
                                                             uint64_t size) const {
  // Unsigned wrap-around here equals libvshadow's signed sum; a result past
  // the signed range fails in Deliver.
  const uint64_t at = dataOffset + offset % kBlockSize;
  const bool newerLeft = store + 1 < stores_->Count();
  if (descriptor.IsForwarder() && newerLeft) return Piece{Piece::kNextStore, at, size};
  return Piece{Piece::kVolume, at, size};
}

StoreSnapshotSource::Piece StoreSnapshotSource::LocateUnmapped(std::size_t store, uint64_t offset,
                                                               uint64_t size) const {
  if (store + 1 < stores_->Count()) return Piece{Piece::kNextStore, offset, size};
  if (store == snapshotIndex_ && IsZeroFilled(stores_->At(store), offset)) return Piece{Piece::kZeros, offset, size};
  return Piece{Piece::kVolume, offset, size};
}

bool StoreSnapshotSource::IsZeroFilled(const StoreLayer& layer, uint64_t offset) const {
  if (layer.blockMap->IsForwardTarget(offset)) return false;
  return StoreLayer::IsBlockSet(layer.unusedBitmap, offset);
}

// The overlay's bit for the sector at or after offset, and how many sectors
// from offset on share its value.
StoreSnapshotSource::SectorRun StoreSnapshotSource::OverlayRun(const BlockDescriptor& overlay, uint64_t offset) {
  // offset lies in the overlay's block, so the distance is below 16 KiB.
  const uint64_t skipped =
      std::min(kOverlaySectors, (offset - overlay.originalOffset + kOverlaySectorSize - 1) / kOverlaySectorSize);
  // Shifting a 32-bit value by 32 is undefined; all bits are gone then.
  uint32_t bits = skipped < kOverlaySectors ? overlay.allocationBitmap >> skipped : 0;
  // 8 bits wide on purpose: from 0 it wraps to 255, so the loop below still
  // ends, after at most 256 sectors.
  uint8_t bitsLeft = static_cast<uint8_t>(kOverlaySectors - skipped);
  const bool kept = (bits & 1) != 0;
  uint64_t sectors = 0;
  while (((bits & 1) != 0) == kept) {
    bits >>= 1;
    ++sectors;
    --bitsLeft;
    if (bitsLeft == 0) break;
  }
  return SectorRun{kept, sectors * kOverlaySectorSize};
}

}  // namespace vss
}  // namespace tolvarcore
