// Where one store keeps the old contents of each volume block: its block
// list folded, in one pass, into a map from original offset to the
// descriptor that wins, with overlays attached and forwarders chained the
// way libvshadow reads them (see store_block_map.cpp).
#ifndef TOLVAR_CORE_VSS_STORE_BLOCK_MAP_H_
#define TOLVAR_CORE_VSS_STORE_BLOCK_MAP_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <unordered_map>
#include <vector>

#include "core/vss/block_descriptor.h"
#include "core/vss/store_format.h"

namespace tolvarcore {
namespace vss {

class StoreBlockMap {
 public:
  // What the store holds for one block.
  struct Mapping {
    // The descriptor that describes the block; its originalOffset is the key.
    BlockDescriptor descriptor;
    bool hasOverlay = false;  // overlay below holds sectors kept for this block
    BlockDescriptor overlay;  // an overlay attached to a non-overlay descriptor

    // The overlay in force for this block: the descriptor itself when it is
    // one, else the attached overlay, else null.
    const BlockDescriptor* OverlayOf() const;
  };

  StoreBlockMap() = default;
  // Folds a whole block list, in list order.
  explicit StoreBlockMap(const std::vector<BlockDescriptor>& blockList);

  // Makes room for up to this many mappings at once, so that a long list
  // does not move the map while it grows.
  void Reserve(std::size_t mappings);

  // Folds the next descriptor of the block list. Empty and not-used
  // descriptors change nothing; after a forwarder that names a store data
  // offset the store is unusable and the rest of the list is ignored.
  void Add(const BlockDescriptor& descriptor);

  // Folds every whole 32-byte slot of one block-list page payload, front to
  // back; a trailing part slot is ignored.
  void AddPayload(const uint8_t* payload, uint64_t size);

  // False when the block list holds a descriptor that makes the whole store
  // unreadable; every read that reaches such a store fails.
  bool IsUsable() const { return usable_; }

  // Builds what range look-ups need once the last descriptor is folded, so
  // that Find changes nothing afterwards: until the next Add, any number of
  // threads may then look up at once.
  void PrepareLookups() const;

  // The mapping whose 16 KiB range [original offset, +format::kBlockSize) holds
  // offset, or null. Valid until the next Add.
  const Mapping* Find(uint64_t offset) const;

  // True when a forwarder still waiting for its target names a 16 KiB range
  // [relative offset, +format::kBlockSize) that holds offset.
  bool IsForwardTarget(uint64_t offset) const;

  std::size_t MappingCount() const { return mappings_.size(); }
  std::size_t ForwardTargetCount() const { return reverse_.size(); }

 private:
  void AddOverlay(const BlockDescriptor& descriptor, Mapping& existing);
  Mapping* FindExact(uint64_t key);
  void Insert(uint64_t key, const BlockDescriptor& descriptor);
  const std::vector<uint32_t>& KeyOrder() const;

  // The mappings, one per original offset, in the order their keys first
  // came. Block lists are mostly written in ascending block order; while
  // they are, keys_ is sorted and exact and range look-ups are binary
  // searches over it. The first key below its predecessor switches to a
  // hash index for exact look-ups and a key order built when a range
  // look-up needs it.
  std::vector<uint64_t> keys_;                    // each mapping's original offset
  std::vector<Mapping> mappings_;                 // the mapping of each described block
  bool ascending_ = true;                         // keys_ has been sorted so far
  std::unordered_map<uint64_t, uint32_t> index_;  // key -> position, once keys_ is not sorted
  mutable std::vector<uint32_t> keyOrder_;        // positions by key, once keys_ is not sorted
  mutable bool keyOrderCurrent_ = false;          // keyOrder_ holds every key added
  std::map<uint64_t, uint64_t> reverse_;          // by forwarder's relative offset: that forwarder's original offset
  bool usable_ = true;                            // false once a descriptor made the store unreadable
};

}  // namespace vss
}  // namespace tolvarcore

#endif  // TOLVAR_CORE_VSS_STORE_BLOCK_MAP_H_
