#include "core/vss/mark_indexed_blocks.h"

#include "api/error_queue.h"
#include "ntfsparsercore/io/little_endian.h"

namespace tolvarcore {
namespace vss {

using ntfsparsercore::io::LoadLe32;
using ntfsparsercore::io::LoadLe64;

BlockDescriptor BlockDescriptor::FromBytes(const uint8_t* bytes) {
  BlockDescriptor descriptor;
  descriptor.blockOffset = LoadLe64(bytes);
  descriptor.secondOffset = LoadLe64(bytes + 8);
  descriptor.flags = LoadLe32(bytes + 24);
  return descriptor;
}

void MarkIndexedBlocks(const std::shared_ptr<VssRecord>& record, BitMap& result, bool overlayOnly) {
  std::unique_ptr<BitMap> seen;
  if (overlayOnly) seen = std::make_unique<BitMap>(result.SizeInBytes());
  uint8_t bytes[BlockDescriptor::kSize];
  uint64_t offset = 0;
  while (record && record->Read(bytes, sizeof(bytes), offset) == sizeof(bytes)) {
    const BlockDescriptor descriptor = BlockDescriptor::FromBytes(bytes);
    offset += sizeof(bytes);
    if ((descriptor.flags & BlockDescriptor::kFlagNotUsed) != 0) continue;
    if (descriptor.blockOffset == 0 && descriptor.secondOffset == 0) continue;
    const uint64_t block = descriptor.blockOffset >> BlockDescriptor::kBlockShift;
    if (!overlayOnly) {
      result.Set(block);
    } else if (!seen->Test(block)) {
      seen->Set(block);
    } else if (!result.Test(block) && (descriptor.flags & BlockDescriptor::kFlagOverlay) != 0) {
      result.Set(block);
    }
  }
  ReportError(kErrorIo, "Failed to read index record");
}

}  // namespace vss
}  // namespace tolvarcore
