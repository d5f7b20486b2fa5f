#include "core/vss/block_descriptor.h"

#include "ntfsparsercore/io/little_endian.h"

namespace tolvarcore {
namespace vss {

BlockDescriptor BlockDescriptor::Parse(const uint8_t* data) {
  using ntfsparsercore::io::LoadLe32;
  using ntfsparsercore::io::LoadLe64;
  BlockDescriptor descriptor;
  descriptor.originalOffset = LoadLe64(data + format::kDescriptorOriginalOffset);
  descriptor.relativeOffset = LoadLe64(data + format::kDescriptorRelativeOffset);
  descriptor.storeDataOffset = LoadLe64(data + format::kDescriptorStoreDataOffset);
  descriptor.flags = LoadLe32(data + format::kDescriptorFlags);
  descriptor.allocationBitmap = LoadLe32(data + format::kDescriptorAllocationBitmap);
  return descriptor;
}

bool BlockDescriptor::IsEmpty() const {
  return originalOffset == 0 && relativeOffset == 0 && storeDataOffset == 0 && flags == 0 && allocationBitmap == 0;
}

}  // namespace vss
}  // namespace tolvarcore
