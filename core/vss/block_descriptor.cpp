#include "core/vss/block_descriptor.h"

#include "ntfsparsercore/io/little_endian.h"

namespace tolvarcore {
namespace vss {

namespace {

// Field offsets inside the 32-byte descriptor.
constexpr uint64_t kOriginalOffsetAt = 0;
constexpr uint64_t kRelativeOffsetAt = 8;
constexpr uint64_t kStoreDataOffsetAt = 16;
constexpr uint64_t kFlagsAt = 24;
constexpr uint64_t kAllocationBitmapAt = 28;

}  // namespace

BlockDescriptor BlockDescriptor::Parse(const uint8_t* data) {
  using ntfsparsercore::io::LoadLe32;
  using ntfsparsercore::io::LoadLe64;
  BlockDescriptor descriptor;
  descriptor.originalOffset = LoadLe64(data + kOriginalOffsetAt);
  descriptor.relativeOffset = LoadLe64(data + kRelativeOffsetAt);
  descriptor.storeDataOffset = LoadLe64(data + kStoreDataOffsetAt);
  descriptor.flags = LoadLe32(data + kFlagsAt);
  descriptor.allocationBitmap = LoadLe32(data + kAllocationBitmapAt);
  return descriptor;
}

bool BlockDescriptor::IsEmpty() const {
  return originalOffset == 0 && relativeOffset == 0 && storeDataOffset == 0 && flags == 0 && allocationBitmap == 0;
}

}  // namespace vss
}  // namespace tolvarcore
