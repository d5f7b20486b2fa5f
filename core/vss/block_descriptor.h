// One 32-byte entry of a store's block list: which volume block it
// describes and where that block's old contents are kept.
#ifndef TOLVAR_CORE_VSS_BLOCK_DESCRIPTOR_H_
#define TOLVAR_CORE_VSS_BLOCK_DESCRIPTOR_H_

#include <cstdint>

namespace tolvarcore {
namespace vss {

struct BlockDescriptor {
  static constexpr uint64_t kSize = 32;  // bytes of one descriptor in the block list

  static constexpr uint32_t kFlagForwarder = 0x1;  // the old contents are another block's, see relativeOffset
  static constexpr uint32_t kFlagOverlay = 0x2;    // only the 512-byte sectors of allocationBitmap are kept
  static constexpr uint32_t kFlagNotUsed = 0x4;    // the descriptor describes nothing

  // Reads the descriptor from kSize bytes at data.
  static BlockDescriptor Parse(const uint8_t* data);

  // True when all 32 bytes were zero: an empty slot of the block list.
  bool IsEmpty() const;

  bool IsForwarder() const { return (flags & kFlagForwarder) != 0; }
  bool IsOverlay() const { return (flags & kFlagOverlay) != 0; }
  bool IsNotUsed() const { return (flags & kFlagNotUsed) != 0; }

  uint64_t originalOffset = 0;    // volume offset of the block whose old contents this describes
  uint64_t relativeOffset = 0;    // offset of the data within the store; a forwarder's target block
  uint64_t storeDataOffset = 0;   // volume offset of the 16 KiB data block holding the old contents
  uint32_t flags = 0;             // kFlag* bits; other bits occur on real disks and mean nothing here
  uint32_t allocationBitmap = 0;  // overlays: one bit per 512 bytes of the block, least significant first
};

}  // namespace vss
}  // namespace tolvarcore

#endif  // TOLVAR_CORE_VSS_BLOCK_DESCRIPTOR_H_
