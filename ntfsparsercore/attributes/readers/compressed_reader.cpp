#include "ntfsparsercore/attributes/readers/compressed_reader.h"

#include <algorithm>
#include <cstring>

#include "ntfsparsercore/attributes/readers/lznt1_decoder.h"

namespace ntfsparsercore {
namespace attributes {
namespace readers {

namespace {

constexpr unsigned kShiftWidth = 64;
// The largest compression unit any NTFS volume can hold: 16 clusters of
// 2 MiB. A damaged exponent asking for more leaves no units, rather than an
// allocation of that size.
constexpr uint64_t kMaxUnitSize = uint64_t{1} << 25;

// Cuts plain extents into compression units one at a time, so that a read
// needs no list of all units and can pass over long runs of full units at once.
class UnitCutter {
 public:
  UnitCutter(ExtentList plain, uint64_t unitSize) : plain_(std::move(plain)), unitSize_(unitSize) {}

  // The next unit in file order; false after the last.
  bool Next(Extent* unit) {
    for (;;) {
      if (!Load()) return false;
      if (logical_ >= unitSize_) {
        *unit = Extent{unitSize_, offset_, unitSize_};
        Advance(1);
        return true;
      }
      inExtent_ = false;
      ++next_;
      if (logical_ == 0) continue;
      *unit = Extent{AbsorbSparse(), offset_, stored_};
      return true;
    }
  }

  // Passes over the full units left in the current extent.
  void PassFullUnits() {
    if (inExtent_) Advance(logical_ / unitSize_);
  }

  // Takes the full units left in the current extent as one extent; false
  // when none is left.
  bool TakeFullUnits(Extent* run) {
    if (!inExtent_ || logical_ < unitSize_) return false;
    const uint64_t bytes = logical_ / unitSize_ * unitSize_;
    *run = Extent{bytes, offset_, bytes};
    Advance(logical_ / unitSize_);
    return true;
  }

  // Passes over as many full units of the current extent as fit in skip and
  // returns the bytes passed.
  uint64_t SkipFullUnits(uint64_t skip) {
    if (!Load()) return 0;
    const uint64_t count = std::min(skip / unitSize_, logical_ / unitSize_);
    Advance(count);
    return count * unitSize_;
  }

 private:
  // Makes the next plain extent current if none is; false when none is left.
  bool Load() {
    if (inExtent_) return true;
    if (next_ >= plain_.size()) return false;
    logical_ = plain_[next_].logicalSize;
    offset_ = plain_[next_].volumeOffset;
    stored_ = plain_[next_].storedSize;
    inExtent_ = true;
    return true;
  }

  void Advance(uint64_t units) {
    logical_ -= units * unitSize_;
    stored_ -= units * unitSize_;
    if (offset_ != 0) offset_ += units * unitSize_;  // sparse units keep offset 0
  }

  // The logical size of a remainder shorter than a unit: it takes in the
  // sparse extent that follows, up to a whole unit.
  uint64_t AbsorbSparse() {
    if (next_ >= plain_.size() || plain_[next_].volumeOffset != 0) return logical_;
    Extent& sparse = plain_[next_];
    if (logical_ + sparse.logicalSize < unitSize_) {
      ++next_;  // used up
      return logical_ + sparse.logicalSize;
    }
    sparse.logicalSize = logical_ + sparse.logicalSize - unitSize_;
    if (sparse.logicalSize == 0) ++next_;
    return unitSize_;
  }

  ExtentList plain_;       // the plain extents; a partly absorbed sparse one is shortened in place
  uint64_t unitSize_;      // bytes per unit
  std::size_t next_ = 0;   // index of the next plain extent to load
  bool inExtent_ = false;  // an extent is being cut
  uint64_t logical_ = 0;   // what is left of the current extent's logical size
  uint64_t offset_ = 0;    // volume offset of its next unit
  uint64_t stored_ = 0;    // what is left of its stored size
};

}  // namespace

CompressedReader::CompressedReader(IVolume* volume, std::shared_ptr<PlainAttributeReader> inner,
                                   const Attribute& attribute)
    : volume_(volume), inner_(std::move(inner)), attribute_(attribute) {
  const uint64_t clusterSize = volume_ ? volume_->GetClusterSize() : 0;
  const unsigned exponent = attribute_.GetCompressionUnit();
  // An exponent of the type's width or more would shift past it, and a unit
  // larger than any volume can use would be allocated whole: no units then.
  if (exponent < kShiftWidth && clusterSize <= (kMaxUnitSize >> exponent)) unitSize_ = clusterSize << exponent;
}

uint64_t CompressedReader::GetSize() { return attribute_.GetSize(); }

ExtentList CompressedReader::GetExtents() {
  ExtentList units;
  // A unit size of 0 would cut every extent forever.
  if (unitSize_ == 0 || !inner_) return units;
  UnitCutter cutter(inner_->GetExtents(), unitSize_);
  // The volume's end, or the end of the source beneath it when a damaged
  // boot sector makes the volume larger than that.
  const uint64_t volumeSize = volume_ ? std::min(volume_->GetSize(), volume_->GetSourceSize()) : 0;
  uint64_t position = 0;
  Extent unit;
  while (cutter.Next(&unit)) {
    units.push_back(unit);
    position += unit.logicalSize;
    // A damaged size or run would list one unit per unit of it: the rest of
    // a run stored past the volume's end, and sparse units lying beyond a
    // file position of the volume's size, are listed as one extent instead.
    const bool whole = unit.storedSize == unit.logicalSize;
    const bool pastVolume = unit.volumeOffset != 0 && unit.volumeOffset >= volumeSize;
    const bool farSparse = unit.volumeOffset == 0 && position >= volumeSize;
    Extent rest;
    if (whole && (pastVolume || farSparse) && cutter.TakeFullUnits(&rest)) {
      units.push_back(rest);
      position += rest.logicalSize;
    }
  }
  return units;
}

uint64_t CompressedReader::Read(void* buffer, uint64_t size, uint64_t offset) {
  if (attribute_.IsResident()) return inner_ ? inner_->Read(buffer, size, offset) : 0;
  const uint64_t total = GetSize();
  if (offset > total) return 0;
  if (size > total - offset) size = total - offset;
  // A null buffer would be written through; a unit size of 0 leaves no units.
  if (buffer == nullptr || unitSize_ == 0 || !volume_ || !inner_) return 0;
  uint8_t* out = static_cast<uint8_t*>(buffer);
  scratch_.assign(static_cast<std::size_t>(unitSize_), 0);
  UnitCutter cutter(inner_->GetExtents(), unitSize_);
  uint64_t done = 0;
  uint64_t skip = offset;
  Extent unit;
  while (done < size) {
    skip -= cutter.SkipFullUnits(skip);
    if (!cutter.Next(&unit)) break;
    if (unit.logicalSize <= skip) {
      skip -= unit.logicalSize;
      continue;
    }
    const uint64_t n = std::min(size - done, unit.logicalSize);
    const uint64_t delivered = ReadUnit(unit, out + done, size - done, skip, n);
    done += delivered;
    skip = 0;
    // A unit stored whole past the end of the volume delivers nothing, and
    // so do the full units after it in the same run; a damaged run of that
    // kind could hold billions of them. The same goes for a unit that
    // delivered nothing past the end of the source beneath the volume: the
    // units after it are not read, so their failures go unreported.
    const bool whole = unit.storedSize == unit.logicalSize;
    const bool pastVolume = unit.volumeOffset >= volume_->GetSize();
    const bool pastSource = delivered == 0 && unit.volumeOffset >= volume_->GetSourceSize();
    if (whole && (pastVolume || pastSource)) cutter.PassFullUnits();
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
