#include "core/fileprocessors/file_version_comparer.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace tolvarcore {
namespace fileprocessors {

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
    if (a.volumeOffset != n.volumeOffset) fileBitmap.Set(position / blockSize_);
    Advance(newer, step, &position);
    Advance(older, step, nullptr);
  }
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
