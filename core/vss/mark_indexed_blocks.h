// Marks the 16 KiB volume blocks that a snapshot's index record (its list of
// 32-byte block descriptors) names.
#ifndef TOLVAR_CORE_VSS_MARK_INDEXED_BLOCKS_H_
#define TOLVAR_CORE_VSS_MARK_INDEXED_BLOCKS_H_

#include <cstdint>
#include <memory>

#include "core/bit_map.h"
#include "core/vss/block_descriptor.h"
#include "core/vss/vss_record.h"

namespace tolvarcore {
namespace vss {

// Walks the descriptors from payload offset 0 until one cannot be read whole,
// which is then reported as "Failed to read index record" (code 1): at the end
// of every walk, a complete one included. Descriptors flagged "not used", or
// with both offsets zero, are skipped. Without overlayOnly each block named is
// set in result; with it, a block is set only by an overlay descriptor that
// follows an earlier descriptor of the same block while the block is still
// clear in result. A null record reads as an empty one.
void MarkIndexedBlocks(const std::shared_ptr<VssRecord>& record, BitMap& result, bool overlayOnly);

}  // namespace vss
}  // namespace tolvarcore

#endif  // TOLVAR_CORE_VSS_MARK_INDEXED_BLOCKS_H_
