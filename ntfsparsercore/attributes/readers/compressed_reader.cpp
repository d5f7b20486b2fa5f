#include "ntfsparsercore/attributes/readers/compressed_reader.h"

#include <algorithm>
#include <cstring>

#include "ntfsparsercore/attributes/readers/lznt1_decoder.h"

namespace ntfsparsercore {
namespace attributes {
namespace readers {

namespace {

constexpr unsigned kShiftWidth = 64;

}  // namespace

CompressedReader::CompressedReader(IVolume* volume, std::shared_ptr<PlainAttributeReader> inner,
                                   const Attribute& attribute)
    : volume_(volume), inner_(std::move(inner)), attribute_(attribute) {
  const uint64_t clusterSize = volume_ ? volume_->GetClusterSize() : 0;
  // An exponent of the type's width or more would shift past it: no units then.
  if (attribute_.GetCompressionUnit() < kShiftWidth) unitSize_ = clusterSize << attribute_.GetCompressionUnit();
}

uint64_t CompressedReader::GetSize() { return attribute_.GetSize(); }

ExtentList CompressedReader::GetExtents() {
  ExtentList units;
  // A unit size of 0 would cut every extent forever.
  if (unitSize_ == 0 || !inner_) return units;
  const uint64_t u = unitSize_;
  ExtentList plain = inner_->GetExtents();
  for (std::size_t i = 0; i < plain.size(); ++i) {
    uint64_t logical = plain[i].logicalSize;
    uint64_t offset = plain[i].volumeOffset;
    uint64_t stored = plain[i].storedSize;
    while (logical >= u) {
      units.push_back(Extent{u, offset, u});
      logical -= u;
      stored -= u;
      if (offset != 0) offset += u;
    }
    if (logical == 0) continue;
    uint64_t unitLogical = logical;
    if (i + 1 < plain.size() && plain[i + 1].volumeOffset == 0) {
      Extent& sparse = plain[i + 1];
      if (logical + sparse.logicalSize < u) {
        unitLogical = logical + sparse.logicalSize;
        ++i;  // the sparse extent is used up
      } else {
        unitLogical = u;
        sparse.logicalSize = logical + sparse.logicalSize - u;
        if (sparse.logicalSize == 0) ++i;
      }
    }
    units.push_back(Extent{unitLogical, offset, stored});
  }
  return units;
}

uint64_t CompressedReader::Read(void* buffer, uint64_t size, uint64_t offset) {
  if (attribute_.IsResident()) return inner_ ? inner_->Read(buffer, size, offset) : 0;
  const uint64_t total = GetSize();
  if (offset > total) return 0;
  if (size > total - offset) size = total - offset;
  // A null buffer would be written through; a unit size of 0 leaves no units.
  if (buffer == nullptr || unitSize_ == 0 || !volume_) return 0;
  uint8_t* out = static_cast<uint8_t*>(buffer);
  scratch_.assign(static_cast<std::size_t>(unitSize_), 0);
  uint64_t done = 0;
  uint64_t skip = offset;
  for (const Extent& unit : GetExtents()) {
    if (done >= size) break;
    if (unit.logicalSize <= skip) {
      skip -= unit.logicalSize;
      continue;
    }
    const uint64_t n = std::min(size - done, unit.logicalSize);
    done += ReadUnit(unit, out + done, size - done, skip, n);
    skip = 0;
  }
  std::vector<uint8_t>().swap(scratch_);
  std::vector<uint8_t>().swap(expanded_);
  return done;
}

uint64_t CompressedReader::ReadUnit(const Extent& unit, uint8_t* out, uint64_t room, uint64_t skip, uint64_t n) {
  if (unit.storedSize == unit.logicalSize) return volume_->Read(out, n, unit.volumeOffset + skip);
  // Stored bytes larger than a unit would overrun the scratch buffer: such a unit adds nothing.
  if (unit.storedSize > unitSize_) return 0;
  if (volume_->Read(scratch_.data(), unit.storedSize, unit.volumeOffset) != unit.storedSize) return 0;
  return ExpandCompressedUnit(unit, out, room);
}

uint64_t CompressedReader::ExpandCompressedUnit(const Extent& unit, uint8_t* out, uint64_t room) {
  const uint64_t clusterSize = volume_->GetClusterSize();
  if (unit.logicalSize == unitSize_ && room >= unitSize_) {
    return Lznt1Decoder::ExpandUnit(scratch_.data(), unit.storedSize, out, unitSize_, unit.volumeOffset, clusterSize);
  }
  expanded_.assign(static_cast<std::size_t>(unitSize_), 0);
  const uint64_t expanded = Lznt1Decoder::ExpandUnit(scratch_.data(), unit.storedSize, expanded_.data(), unitSize_,
                                                     unit.volumeOffset, clusterSize);
  // A full unit counts its whole expansion; a shorter one at most its logical size.
  const uint64_t counted = unit.logicalSize == unitSize_ ? expanded : std::min(expanded, unit.logicalSize);
  // Only what fits the caller's room is written.
  std::memcpy(out, expanded_.data(), static_cast<std::size_t>(std::min(counted, room)));
  return counted;
}

}  // namespace readers
}  // namespace attributes
}  // namespace ntfsparsercore
