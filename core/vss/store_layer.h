// One store of the catalog as the store-backed snapshot source sees it:
// its block map and, for the newest store, the blocks its bitmaps mark
// unused, already read from the volume.
#ifndef TOLVAR_CORE_VSS_STORE_LAYER_H_
#define TOLVAR_CORE_VSS_STORE_LAYER_H_

#include <cstdint>
#include <memory>
#include <vector>

#include "core/vss/store_block_map.h"
#include "core/vss/store_format.h"

namespace tolvarcore {
namespace vss {

struct StoreLayer {
  // True when bit (offset >> format::kBlockShift) of bitmap is set; blocks past its end are clear.
  static bool IsBlockSet(const std::vector<uint8_t>& bitmap, uint64_t offset);

  // The blocks that both of the newest store's bitmaps mark unused: set in
  // current and, when the store declares a previous bitmap, in previous
  // too; blocks past the end of either are clear. One map instead of two.
  static std::vector<uint8_t> UnusedBlocks(std::vector<uint8_t> current, bool hasPrevious,
                                           const std::vector<uint8_t>& previous);

  std::shared_ptr<const StoreBlockMap> blockMap;  // the store's folded block list; null: the store cannot be read
  std::vector<uint8_t> unusedBitmap;              // UnusedBlocks of its bitmaps' payloads (newest store only)
};

inline bool StoreLayer::IsBlockSet(const std::vector<uint8_t>& bitmap, uint64_t offset) {
  const uint64_t block = offset >> format::kBlockShift;
  if (block / 8 >= bitmap.size()) return false;
  return ((bitmap[static_cast<std::size_t>(block / 8)] >> (block % 8)) & 1) != 0;
}

inline std::vector<uint8_t> StoreLayer::UnusedBlocks(std::vector<uint8_t> current, bool hasPrevious,
                                                     const std::vector<uint8_t>& previous) {
  if (!hasPrevious) return current;
  for (std::size_t k = 0; k < current.size(); ++k) {
    current[k] = static_cast<uint8_t>(k < previous.size() ? current[k] & previous[k] : 0);
  }
  return current;
}

}  // namespace vss
}  // namespace tolvarcore

#endif  // TOLVAR_CORE_VSS_STORE_LAYER_H_
