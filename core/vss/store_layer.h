// One store of the catalog as the store-backed snapshot source sees it:
// its block map and, for the newest store, its two bitmaps, already read
// from the volume.
#ifndef TOLVAR_CORE_VSS_STORE_LAYER_H_
#define TOLVAR_CORE_VSS_STORE_LAYER_H_

#include <cstdint>
#include <memory>
#include <vector>

#include "core/vss/store_block_map.h"

namespace tolvarcore {
namespace vss {

struct StoreLayer {
  // True when bit (offset >> 14) of bitmap is set; blocks past its end are clear.
  static bool IsBlockSet(const std::vector<uint8_t>& bitmap, uint64_t offset);

  std::shared_ptr<const StoreBlockMap> blockMap;  // the store's folded block list; null: the store cannot be read
  std::vector<uint8_t> currentBitmap;   // payload of every page of the store's bitmap, in chain order (newest store only)
  bool hasPreviousBitmap = false;       // the store declares a previous bitmap (its offset is not 0)
  std::vector<uint8_t> previousBitmap;  // payload of every page of that previous bitmap, in chain order
};

inline bool StoreLayer::IsBlockSet(const std::vector<uint8_t>& bitmap, uint64_t offset) {
  const uint64_t block = offset / StoreBlockMap::kBlockSize;
  if (block / 8 >= bitmap.size()) return false;
  return ((bitmap[static_cast<std::size_t>(block / 8)] >> (block % 8)) & 1) != 0;
}

}  // namespace vss
}  // namespace tolvarcore

#endif  // TOLVAR_CORE_VSS_STORE_LAYER_H_
