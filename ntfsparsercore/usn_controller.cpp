#include "ntfsparsercore/usn_controller.h"

#include "common/error_queue.h"
#include "ntfsparsercore/io/little_endian.h"

using tolvarcommon::kErrorFormat;
using tolvarcommon::ReportError;

namespace ntfsparsercore {

using io::LoadLe16;
using io::LoadLe32;

UsnController::UsnController(IVolume* volume, std::shared_ptr<io::ISource> source, uint64_t baseOffset,
                             uint32_t expectedMagic)
    : volume_(volume), source_(std::move(source)), baseOffset_(baseOffset) {
  uint8_t header[kHeaderSize] = {};
  if (!source_ || source_->Read(header, kHeaderSize, baseOffset_) != kHeaderSize) {
    ReportError(kErrorFormat, "MultiSectorHeader read failed");
    return;
  }
  magic_ = LoadLe32(header + kMagicOffset);
  if (magic_ != expectedMagic) {
    ReportError(kErrorFormat, "Unexpected record type. Was expected(%u), actual(%u)", expectedMagic, magic_);
    return;
  }
  LoadFixupBytes(LoadLe16(header + kUsaOffsetOffset), LoadLe16(header + kUsaCountOffset));
}

void UsnController::LoadFixupBytes(uint16_t arrayOffset, uint16_t arrayCount) {
  const uint32_t arrayBytes = 2u * arrayCount;
  fixup_.reserve(arrayBytes);
  if (arrayBytes < 3) return;
  // The first word is the update sequence number itself; the originals follow.
  // The index is an 8-bit counter: with 128 words or more it would wrap from
  // 255 to 0 and re-read the array forever, so the load ends at the wrap.
  for (uint8_t i = 2; i < arrayBytes; ++i) {
    uint8_t byte = 0;
    if (source_->Read(&byte, 1, baseOffset_ + arrayOffset + i) != 1) break;
    fixup_.push_back(byte);
    if (i == 255) break;
  }
}

uint64_t UsnController::Read(void* buffer, uint64_t count, uint64_t offset) {
  if (!source_) return 0;
  uint8_t* out = static_cast<uint8_t*>(buffer);
  const uint64_t p = baseOffset_ + offset;
  const uint64_t n = source_->Read(buffer, count, p);
  const uint64_t s = volume_ ? volume_->GetSectorSize() : 0;
  // A sector size of 0 (no geometry yet) would divide by zero: bytes stay raw.
  if (s == 0) return n;
  const uint64_t first = p - p % s;
  const uint64_t end = ((p + n) / s + 1) * s;  // an exact multiple still moves up one sector
  for (uint64_t q = first; q < end; q += s) {
    const uint64_t index = q > baseOffset_ ? 2 * ((q - baseOffset_) / s) : 0;
    // Unsigned on purpose: for a range starting on a sector's last byte the
    // target is one before the buffer and only target + 1 lands in it.
    const uint64_t target = q + s - 2 - p;
    // A sector past the saved fix-up bytes is left as read.
    if (target < n && index < fixup_.size()) out[target] = fixup_[index];
    if (target + 1 < n && index + 1 < fixup_.size()) out[target + 1] = fixup_[index + 1];
  }
  return n;
}

}  // namespace ntfsparsercore
