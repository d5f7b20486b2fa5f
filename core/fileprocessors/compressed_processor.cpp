#include "core/fileprocessors/compressed_processor.h"

namespace tolvarcore {
namespace fileprocessors {

void CompressedProcessor::Process(const BitMap& changedBitmap) {
  for (const auto& unit : file_->GetExtents()) {
    touched_ = false;
    const uint64_t start = position_;
    WalkPiece(changedBitmap, unit.volumeOffset, unit.storedSize);
    position_ = start;
    MarkUnit(unit.logicalSize);
  }
}

void CompressedProcessor::MarkCurrent() { touched_ = true; }

void CompressedProcessor::MarkUnit(uint64_t logicalSize) {
  // A block size of 0 has no blocks to mark; the unit still moves the position.
  if (blockSize_ == 0) {
    position_ += logicalSize;
    return;
  }
  uint64_t remaining = logicalSize;
  while (remaining > 0) {
    if (touched_) fileBitmap_->Set(position_ / blockSize_);
    if (remaining > blockSize_) {
      remaining -= blockSize_;
      position_ += blockSize_;
    } else {
      position_ += remaining;
      remaining = 0;
    }
  }
}

}  // namespace fileprocessors
}  // namespace tolvarcore
