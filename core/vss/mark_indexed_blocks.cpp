#include "core/vss/mark_indexed_blocks.h"

#include "common/error_queue.h"
#include "core/vss/store_format.h"

using tolvarcommon::kErrorIo;
using tolvarcommon::ReportError;

namespace tolvarcore {
namespace vss {

void MarkIndexedBlocks(const std::shared_ptr<VssRecord>& record, BitMap& result, bool overlayOnly) {
  std::unique_ptr<BitMap> seen;
  if (overlayOnly) seen = std::make_unique<BitMap>(result.SizeInBytes());
  uint8_t bytes[format::kDescriptorSize];
  uint64_t offset = 0;
  while (record && record->Read(bytes, sizeof(bytes), offset) == sizeof(bytes)) {
    const BlockDescriptor descriptor = BlockDescriptor::Parse(bytes);
    offset += sizeof(bytes);
    // The second offset (the relative offset) is examined only for being zero.
    if (descriptor.IsNotUsed()) continue;
    if (descriptor.originalOffset == 0 && descriptor.relativeOffset == 0) continue;
    const uint64_t block = descriptor.originalOffset >> format::kBlockShift;
    if (overlayOnly && !seen->Test(block)) {
      seen->Set(block);
      continue;
    }
    // Every block of a full pass; in the overlay-only pass, an overlay of a
    // block met before and not marked yet.
    if (!overlayOnly || (!result.Test(block) && descriptor.IsOverlay())) result.Set(block);
  }
  ReportError(kErrorIo, "Failed to read index record");
}

}  // namespace vss
}  // namespace tolvarcore
