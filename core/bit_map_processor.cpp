#include "core/bit_map_processor.h"

#include <algorithm>
#include <cstring>

#include "common/error_queue.h"
#include "core/vss/store_format.h"

using tolvarcommon::kErrorIo;
using tolvarcommon::ReportError;

namespace tolvarcore {

namespace {

// One bit per 16 KiB block, eight blocks a byte.
constexpr unsigned kBitmapBytesShift = 17;

// A new bitmap of volumeSize >> 17 bytes, read whole from the payload of the
// record at offset. Returns false when the read falls short; the bitmap then
// holds what was read; it is cut short only when neither the record nor the
// volume could hold it.
bool ReadBitmap(const vss::VssVolume& volume, uint64_t offset, uint64_t volumeSize, std::unique_ptr<BitMap>* bitmap) {
  std::shared_ptr<vss::VssRecord> record = volume.OpenRecord(offset);
  const uint64_t length = volumeSize >> kBitmapBytesShift;
  // A volume size from the catalog can ask for terabytes: allocate no more
  // than the record's pages or a bitmap of the whole store volume hold.
  // Reading that much makes the same page reads and messages as the longer
  // read, which falls short in the same way.
  const uint64_t capacity = record->PageCount() * vss::format::kPagePayloadSize;
  const uint64_t limit = std::max(capacity, volume.GetSize() >> kBitmapBytesShift);
  *bitmap = std::make_unique<BitMap>(std::min(length, limit));
  const uint64_t held = (*bitmap)->SizeInBytes();
  return record->Read((*bitmap)->Data(), held, 0) == held && held == length;
}

void Apply(const BitMap* held, BitMap* target) {
  if (held == nullptr || target == nullptr) return;
  // Bytewise OR over the common bytes sets exactly the held bits below the
  // target's bit count.
  const uint64_t common = std::min(held->SizeInBytes(), target->SizeInBytes());
  const uint8_t* from = held->Data();
  uint8_t* to = target->Data();
  uint64_t k = 0;
  // Eight bytes at a time, then the tail: the maps of large volumes run to
  // megabytes.
  for (; k + sizeof(uint64_t) <= common; k += sizeof(uint64_t)) {
    uint64_t mine;
    uint64_t held;
    std::memcpy(&mine, to + k, sizeof mine);
    std::memcpy(&held, from + k, sizeof held);
    mine |= held;
    std::memcpy(to + k, &mine, sizeof mine);
  }
  for (; k < common; ++k) to[k] = static_cast<uint8_t>(to[k] | from[k]);
}

std::unique_ptr<BitMap> Take(std::unique_ptr<BitMap>* held, uint64_t byteCount) {
  if (*held && (*held)->SizeInBytes() == byteCount) return std::move(*held);
  auto map = std::make_unique<BitMap>(byteCount);
  Apply(held->get(), map.get());
  return map;
}

}  // namespace

BitMapProcessor::BitMapProcessor() = default;

BitMapProcessor::~BitMapProcessor() = default;

bool BitMapProcessor::Load(const std::shared_ptr<vss::VssVolume>& volume, const std::shared_ptr<vss::Snapshot>& first,
                           const std::shared_ptr<vss::Snapshot>& last) {
  if (!volume || !last) return false;
  if (!ReadBitmap(*volume, last->GetBitmapOffset(), last->GetVolumeSize(), &current_)) {
    ReportError(kErrorIo, "Read last vss-bitmap data failed");
    return false;
  }
  if (first && first != last) {
    if (!ReadBitmap(*volume, first->GetBitmapOffset(), first->GetVolumeSize(), &reference_)) {
      ReportError(kErrorIo, "Read first vss-bitmap data failed");
      return false;
    }
  } else if (last->GetPreviousBitmapOffset() != 0) {
    if (!ReadBitmap(*volume, last->GetPreviousBitmapOffset(), last->GetVolumeSize(), &reference_)) {
      ReportError(kErrorIo, "Read first vss-bitmap data failed");
      return false;
    }
  }
  if (reference_) {
    current_->AndNot(*reference_);
    reference_->Invert();
  } else {
    current_->Invert();
  }
  return true;
}

void BitMapProcessor::ApplyCurrent(BitMap* target) const { Apply(current_.get(), target); }

void BitMapProcessor::ApplyReference(BitMap* target) const { Apply(reference_.get(), target); }

std::unique_ptr<BitMap> BitMapProcessor::TakeCurrent(uint64_t byteCount) { return Take(&current_, byteCount); }

std::unique_ptr<BitMap> BitMapProcessor::TakeReference(uint64_t byteCount) { return Take(&reference_, byteCount); }

}  // namespace tolvarcore
