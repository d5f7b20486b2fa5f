// One 32-byte entry of a store's block list: which volume block it
// describes and where that block's old contents are kept.
#ifndef TOLVAR_CORE_VSS_BLOCK_DESCRIPTOR_H_
#define TOLVAR_CORE_VSS_BLOCK_DESCRIPTOR_H_

#include <cstdint>

#include "core/vss/store_format.h"

namespace tolvarcore {
namespace vss {

struct BlockDescriptor {
  // Reads the descriptor from format::kDescriptorSize bytes at data.
  static BlockDescriptor Parse(const uint8_t* data);

  // True when all 32 bytes were zero: an empty slot of the block list.
  bool IsEmpty() const;

  bool IsForwarder() const { return (flags & format::kDescriptorFlagForwarder) != 0; }
  bool IsOverlay() const { return (flags & format::kDescriptorFlagOverlay) != 0; }
  bool IsNotUsed() const { return (flags & format::kDescriptorFlagNotUsed) != 0; }

  uint64_t originalOffset = 0;    // volume offset of the block whose old contents this describes
  uint64_t relativeOffset = 0;    // offset of the data within the store; a forwarder's target block
  uint64_t storeDataOffset = 0;   // volume offset of the 16 KiB data block holding the old contents
  uint32_t flags = 0;             // format::kDescriptorFlag* bits; other bits occur on real disks and mean nothing here
  uint32_t allocationBitmap = 0;  // overlays: one bit per 512 bytes of the block, least significant first
};

}  // namespace vss
}  // namespace tolvarcore

#endif  // TOLVAR_CORE_VSS_BLOCK_DESCRIPTOR_H_
