#include "core/fileprocessors/file_version_comparer.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

namespace tolvarcore {
namespace fileprocessors {

using ntfsparsercore::attributes::readers::Extent;

namespace {
constexpr uint8_t kAllChanged = 0xFF;  // every bit of a map byte set
}  // namespace

FileVersionComparer::FileVersionComparer(std::shared_ptr<ntfsparsercore::io::NtfsFile> olderFile,
                                         std::shared_ptr<ntfsparsercore::io::NtfsFile> newerFile, uint64_t blockSize)
    : blockSize_(blockSize), olderFile_(std::move(olderFile)), newerFile_(std::move(newerFile)) {}

void FileVersionComparer::Compare(BitMap& fileBitmap, uint64_t clusterSize) {
  if (!Comparable()) {
    std::memset(fileBitmap.Data(), kAllChanged, fileBitmap.SizeInBytes());
    return;
  }
  const uint64_t step = std::min(blockSize_, clusterSize);
  // A step of 0 would never move the walk on.
  if (step == 0) return;
  CompareExtents(fileBitmap, step);
}

bool FileVersionComparer::Comparable() {
  if (!olderFile_ || newerFile_->IsResident()) return false;
  return olderFile_->IsResident() == newerFile_->IsResident() &&
         olderFile_->IsCompressed() == newerFile_->IsCompressed();
}

void FileVersionComparer::CompareExtents(BitMap& fileBitmap, uint64_t step) {
  ExtentCursor older{olderFile_->GetExtents()};
  ExtentCursor newer{newerFile_->GetExtents()};
  uint64_t position = 0;
  while (!newer.AtEnd()) {
    auto& n = newer.Current();
    if (older.AtEnd()) {
      // Steps that end no extent give the same outcome each time; with a
      // small cluster size there can be billions of them: they go together.
      const uint64_t repeats = Repeats(n, nullptr, position, step);
      if (repeats > 0) {
        MarkSteps(fileBitmap, position, step, repeats);
        Skip(n, step, repeats, &position);
        continue;
      }
      fileBitmap.Set(position / blockSize_);
      Advance(newer, step, &position);
      continue;
    }
    auto& a = older.Current();
    a.storedSize = n.storedSize;
    if (a == n) {
      position += n.logicalSize;
      ++newer.index;
      ++older.index;
      continue;
    }
    const bool differs = a.volumeOffset != n.volumeOffset;
    // As above: the extents stay unequal, and their offsets as far apart, for
    // every step that ends neither of them.
    const uint64_t repeats = Repeats(n, &a, position, step);
    if (repeats > 0) {
      if (differs) MarkSteps(fileBitmap, position, step, repeats);
      Skip(n, step, repeats, &position);
      Skip(a, step, repeats, nullptr);
      continue;
    }
    if (differs) fileBitmap.Set(position / blockSize_);
    Advance(newer, step, &position);
    Advance(older, step, nullptr);
  }
}

uint64_t FileVersionComparer::Repeats(const Extent& n, const Extent* a, uint64_t position, uint64_t step) {
  const uint64_t top = std::numeric_limits<uint64_t>::max();
  // Every step but the last of the shorter extent leaves both with a step
  // or more to go; the last one, which may end an extent, is taken alone.
  uint64_t steps = n.logicalSize / step;
  if (a != nullptr) steps = std::min(steps, a->logicalSize / step);
  if (steps < 2) return 0;
  steps -= 1;
  // Neither the position nor a stored extent's offset may wrap round within
  // the steps taken together; a wrap is left to the single steps.
  steps = std::min(steps, (top - position) / step);
  if (n.volumeOffset != 0) steps = std::min(steps, (top - n.volumeOffset) / step);
  if (a != nullptr && a->volumeOffset != 0) steps = std::min(steps, (top - a->volumeOffset) / step);
  return steps;
}

void FileVersionComparer::MarkSteps(BitMap& fileBitmap, uint64_t position, uint64_t step, uint64_t steps) const {
  // A step is at most one block long, so the steps' positions fall in every
  // block from the first to the last; blocks past the map's end hold no bit.
  const uint64_t first = position / blockSize_;
  const uint64_t last = std::min((position + (steps - 1) * step) / blockSize_, fileBitmap.BitCount() - 1);
  for (uint64_t block = first; block <= last && block < fileBitmap.BitCount(); ++block) fileBitmap.Set(block);
}

void FileVersionComparer::Skip(Extent& e, uint64_t step, uint64_t steps, uint64_t* position) {
  e.logicalSize -= steps * step;
  if (position) *position += steps * step;
  if (e.volumeOffset != 0) e.volumeOffset += steps * step;
}

void FileVersionComparer::Advance(ExtentCursor& cursor, uint64_t step, uint64_t* position) {
  auto& e = cursor.Current();
  if (step > e.logicalSize) {
    if (position) *position += e.logicalSize;
    e.logicalSize = 0;
  } else {
    e.logicalSize -= step;
    if (position) *position += step;
    if (e.volumeOffset != 0) e.volumeOffset += step;
  }
  if (e.logicalSize == 0) ++cursor.index;
}

}  // namespace fileprocessors
}  // namespace tolvarcore
