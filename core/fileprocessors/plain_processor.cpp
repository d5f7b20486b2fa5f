#include "core/fileprocessors/plain_processor.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace tolvarcore {
namespace fileprocessors {

PlainProcessor::PlainProcessor(std::shared_ptr<ntfsparsercore::io::NtfsFile> file, std::shared_ptr<BitMap> fileBitmap,
                               uint64_t blockSize)
    : blockSize_(blockSize), fileBitmap_(std::move(fileBitmap)), file_(std::move(file)) {}

PlainProcessor::~PlainProcessor() = default;

void PlainProcessor::Process(const BitMap& changedBitmap) {
  for (const auto& extent : file_->GetExtents()) WalkPiece(changedBitmap, extent.volumeOffset, extent.storedSize);
}

void PlainProcessor::MarkCurrent() {
  // A block size of 0 has no blocks to mark.
  if (blockSize_ == 0) return;
  fileBitmap_->Set(position_ / blockSize_);
}

bool PlainProcessor::Touches(const BitMap& changedBitmap, uint64_t volumeOffset, uint64_t length) const {
  // A block size of 0 has no blocks to test.
  if (blockSize_ == 0) return false;
  const uint64_t top = std::numeric_limits<uint64_t>::max();
  // The end is raised to a block boundary; sums that would wrap stop at the top.
  uint64_t end = length > top - volumeOffset ? top : volumeOffset + length;
  const uint64_t remainder = end % blockSize_;
  if (remainder != 0) end = end - remainder > top - blockSize_ ? top : end - remainder + blockSize_;
  // Bits past the bitmap's end are clear, so the test stops there.
  const uint64_t firstBlock = volumeOffset / blockSize_;
  const uint64_t endBlock = std::min(end / blockSize_ + (end % blockSize_ != 0 ? 1 : 0), changedBitmap.BitCount());
  if (firstBlock >= endBlock) return false;
  // Only the piece's own blocks are looked at: a search for the next set
  // bit would run on to the end of a mostly clear bitmap for every block.
  return changedBitmap.AnySet(firstBlock, endBlock - firstBlock);
}

void PlainProcessor::WalkPiece(const BitMap& changedBitmap, uint64_t volumeOffset, uint64_t length) {
  if (file_->IsResident()) return;
  if (volumeOffset == 0 && file_->IsSparse()) {
    position_ += length;
    return;
  }
  // A block size of 0 would never finish the steps below.
  if (blockSize_ == 0) return;
  const uint64_t lead = position_ % blockSize_;
  if (lead != 0) {
    const uint64_t step = std::min(length, blockSize_ - lead);
    if (Touches(changedBitmap, volumeOffset, step)) MarkCurrent();
    position_ += step;
    if (step == length) return;
    volumeOffset += step;
    length -= step;
  }
  if (length <= std::numeric_limits<uint64_t>::max() - volumeOffset) {
    // While no sum wraps past 64 bits, the touch test of a whole block is a
    // test of the volume block it starts in and, when it starts inside one,
    // of the next.
    const bool straddles = volumeOffset % blockSize_ != 0;
    uint64_t volumeBlock = volumeOffset / blockSize_;
    while (length >= blockSize_) {
      if (changedBitmap.Test(volumeBlock) || (straddles && changedBitmap.Test(volumeBlock + 1))) MarkCurrent();
      position_ += blockSize_;
      volumeOffset += blockSize_;
      length -= blockSize_;
      ++volumeBlock;
    }
  }
  while (length >= blockSize_) {
    if (Touches(changedBitmap, volumeOffset, blockSize_)) MarkCurrent();
    position_ += blockSize_;
    volumeOffset += blockSize_;
    length -= blockSize_;
  }
  if (length > 0) {
    if (Touches(changedBitmap, volumeOffset, length)) MarkCurrent();
    position_ += length;
  }
}

}  // namespace fileprocessors
}  // namespace tolvarcore
