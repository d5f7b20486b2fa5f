// How libvshadow folds a store's block list into its block map. The block
// list is every 32-byte slot of every page of the store's block-list
// record, pages in chain order, slots front to back; each descriptor is
// taken in that order:
//
//  1. An all-zero slot is skipped; it does not end the list, the slots after
//     it are still read.
//  2. A forwarder (flag 0x1) whose store data offset is not 0 is an error:
//     the store's block list cannot be read, so no read of the store, nor of
//     an older store whose read reaches it, succeeds.
//  3. A "not used" descriptor (flag 0x4) is skipped, whatever else it says.
//  4. A descriptor that is not an overlay (flag 0x2 clear) is checked
//     against the reverse list, the forwarders met so far keyed by their
//     relative offset: if one has a relative offset equal to this
//     descriptor's original offset, this descriptor takes that forwarder's
//     original offset instead and the forwarder leaves the reverse list.
//     A chain X->Y, Y->Z thus folds into X->Z, and a descriptor for Y placed
//     after a forwarder X->Y describes X.
//  5. A forwarder whose original offset now equals its relative offset
//     points at itself and is dropped (X->Y, Y->X folds into X->X).
//  6. The descriptor then goes into the map under its original offset:
//     - nothing there yet: it is the block's mapping;
//     - an overlay meeting an overlay mapping, or a non-overlay mapping that
//       already carries an overlay: the allocation bitmaps are ORed into
//       that overlay; its store data offset stays the first overlay's;
//     - an overlay meeting a non-overlay mapping without overlay: it is
//       attached to that mapping as its overlay;
//     - a non-overlay meeting anything: the later descriptor wins and
//       replaces the mapping, keeping the overlay in force (an overlay
//       mapping becomes the attached overlay of the new one, an attached
//       overlay moves over to it).
//     An overlay that met an existing mapping stops here.
//  7. A forwarder that reached the map joins the reverse list under its
//     relative offset, replacing any earlier forwarder with the same one.
//     A forwarder stays in the reverse list even when a later descriptor
//     replaces it in the map, until a descriptor for its target takes it
//     out (step 4).
//
// A descriptor flagged both forwarder and overlay (never seen on real
// disks) can make libvshadow free a descriptor that an overlay still
// refers to, and then read freed memory; here such a descriptor keeps the
// values it was given.
//
// Keys are compared exactly while building; reads look a block up by the
// 16 KiB range starting at each key. The map and the reverse list are
// ordered maps, so building costs O(log n) per descriptor and a lookup
// O(log n). Reading through these maps is in store_snapshot_source.cpp.
#include "core/vss/store_block_map.h"

namespace tolvarcore {
namespace vss {

namespace {

// The entry of a map keyed by range starts whose range [key, key + size)
// holds offset, or end().
template <typename Map>
typename Map::const_iterator FindRange(const Map& map, uint64_t offset, uint64_t size) {
  auto it = map.upper_bound(offset);
  if (it == map.begin()) return map.end();
  --it;
  // Compared as a distance so that a key near 2^64 cannot overflow.
  return offset - it->first < size ? it : map.end();
}

}  // namespace

const BlockDescriptor* StoreBlockMap::Mapping::OverlayOf() const {
  if (descriptor.IsOverlay()) return &descriptor;
  return hasOverlay ? &overlay : nullptr;
}

StoreBlockMap::StoreBlockMap(const std::vector<BlockDescriptor>& blockList) {
  for (const BlockDescriptor& descriptor : blockList) Add(descriptor);
}

void StoreBlockMap::Add(const BlockDescriptor& descriptor) {
  if (!usable_ || descriptor.IsEmpty()) return;
  if (descriptor.IsForwarder() && descriptor.storeDataOffset != 0) {
    usable_ = false;
    return;
  }
  if (descriptor.IsNotUsed()) return;

  BlockDescriptor incoming = descriptor;
  if (!incoming.IsOverlay()) {
    auto waiting = reverse_.find(incoming.originalOffset);
    if (waiting != reverse_.end()) {
      incoming.originalOffset = waiting->second;
      reverse_.erase(waiting);
    }
  }
  if (incoming.IsForwarder() && incoming.originalOffset == incoming.relativeOffset) return;

  auto existing = forward_.find(incoming.originalOffset);
  if (existing == forward_.end()) {
    forward_[incoming.originalOffset].descriptor = incoming;
  } else if (incoming.IsOverlay()) {
    AddOverlay(incoming, existing->second);
    return;
  } else {
    Mapping replaced = existing->second;
    Mapping& mapping = existing->second;
    mapping.descriptor = incoming;
    mapping.hasOverlay = replaced.OverlayOf() != nullptr;
    if (mapping.hasOverlay) mapping.overlay = *replaced.OverlayOf();
  }
  if (incoming.IsForwarder()) reverse_[incoming.relativeOffset] = incoming.originalOffset;
}

void StoreBlockMap::AddPayload(const uint8_t* payload, uint64_t size) {
  for (uint64_t at = 0; size - at >= BlockDescriptor::kSize; at += BlockDescriptor::kSize) {
    Add(BlockDescriptor::Parse(payload + at));
  }
}

void StoreBlockMap::AddOverlay(const BlockDescriptor& descriptor, Mapping& existing) {
  if (existing.descriptor.IsOverlay()) {
    existing.descriptor.allocationBitmap |= descriptor.allocationBitmap;
  } else if (existing.hasOverlay) {
    existing.overlay.allocationBitmap |= descriptor.allocationBitmap;
  } else {
    existing.hasOverlay = true;
    existing.overlay = descriptor;
  }
}

const StoreBlockMap::Mapping* StoreBlockMap::Find(uint64_t offset) const {
  auto it = FindRange(forward_, offset, kBlockSize);
  return it == forward_.end() ? nullptr : &it->second;
}

bool StoreBlockMap::IsForwardTarget(uint64_t offset) const {
  return FindRange(reverse_, offset, kBlockSize) != reverse_.end();
}

}  // namespace vss
}  // namespace tolvarcore
