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
// 16 KiB range starting at each key. The mappings sit in one array: while
// the keys come in ascending order (as block lists mostly do) both look-ups
// are binary searches over it; otherwise a hash index serves the exact
// look-ups and a key order, sorted once, the range look-ups. The reverse
// list is an ordered map. Building costs O(log n) per descriptor and a
// look-up O(log n). Reading through these maps is in
// store_snapshot_source.cpp.
#include "core/vss/store_block_map.h"
#include "core/vss/store_format.h"

#include <algorithm>

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

  Mapping* existing = FindExact(incoming.originalOffset);
  if (existing == nullptr) {
    Insert(incoming.originalOffset, incoming);
  } else if (incoming.IsOverlay()) {
    AddOverlay(incoming, *existing);
    return;
  } else {
    Mapping replaced = *existing;
    Mapping& mapping = *existing;
    mapping.descriptor = incoming;
    mapping.hasOverlay = replaced.OverlayOf() != nullptr;
    if (mapping.hasOverlay) mapping.overlay = *replaced.OverlayOf();
  }
  if (incoming.IsForwarder()) reverse_[incoming.relativeOffset] = incoming.originalOffset;
}

void StoreBlockMap::Reserve(std::size_t mappings) {
  keys_.reserve(mappings);
  mappings_.reserve(mappings);
}

void StoreBlockMap::AddPayload(const uint8_t* payload, uint64_t size) {
  for (uint64_t at = 0; size - at >= format::kDescriptorSize; at += format::kDescriptorSize) {
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

StoreBlockMap::Mapping* StoreBlockMap::FindExact(uint64_t key) {
  if (!ascending_) {
    auto it = index_.find(key);
    return it == index_.end() ? nullptr : &mappings_[it->second];
  }
  // A key above every key so far, the common case, needs no search.
  if (keys_.empty() || key > keys_.back()) return nullptr;
  auto it = std::lower_bound(keys_.begin(), keys_.end(), key);
  return it != keys_.end() && *it == key ? &mappings_[static_cast<std::size_t>(it - keys_.begin())] : nullptr;
}

void StoreBlockMap::Insert(uint64_t key, const BlockDescriptor& descriptor) {
  if (ascending_ && !keys_.empty() && key < keys_.back()) {
    ascending_ = false;
    index_.reserve(keys_.size() * 2);
    for (std::size_t position = 0; position < keys_.size(); ++position) {
      index_.emplace(keys_[position], static_cast<uint32_t>(position));
    }
  }
  if (!ascending_) index_.emplace(key, static_cast<uint32_t>(keys_.size()));
  keys_.push_back(key);
  mappings_.emplace_back();
  mappings_.back().descriptor = descriptor;
  keyOrderCurrent_ = false;
}

const std::vector<uint32_t>& StoreBlockMap::KeyOrder() const {
  if (!keyOrderCurrent_) {
    keyOrder_.resize(keys_.size());
    for (std::size_t position = 0; position < keys_.size(); ++position) {
      keyOrder_[position] = static_cast<uint32_t>(position);
    }
    std::sort(keyOrder_.begin(), keyOrder_.end(), [this](uint32_t a, uint32_t b) { return keys_[a] < keys_[b]; });
    keyOrderCurrent_ = true;
  }
  return keyOrder_;
}

void StoreBlockMap::PrepareLookups() const {
  if (!ascending_) KeyOrder();
}

const StoreBlockMap::Mapping* StoreBlockMap::Find(uint64_t offset) const {
  if (ascending_) {
    auto it = std::upper_bound(keys_.begin(), keys_.end(), offset);
    if (it == keys_.begin()) return nullptr;
    --it;
    // Compared as a distance so that a key near 2^64 cannot overflow.
    return offset - *it < format::kBlockSize ? &mappings_[static_cast<std::size_t>(it - keys_.begin())] : nullptr;
  }
  const std::vector<uint32_t>& order = KeyOrder();
  auto it = std::upper_bound(order.begin(), order.end(), offset,
                             [this](uint64_t wanted, uint32_t position) { return wanted < keys_[position]; });
  if (it == order.begin()) return nullptr;
  --it;
  return offset - keys_[*it] < format::kBlockSize ? &mappings_[*it] : nullptr;
}

bool StoreBlockMap::IsForwardTarget(uint64_t offset) const {
  return FindRange(reverse_, offset, format::kBlockSize) != reverse_.end();
}

}  // namespace vss
}  // namespace tolvarcore
