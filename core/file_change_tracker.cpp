#include "core/file_change_tracker.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "core/fileprocessors/compressed_processor.h"
#include "core/fileprocessors/file_version_comparer.h"
#include "core/fileprocessors/plain_processor.h"
#include "ntfsparsercore/path_lookup.h"

namespace tolvarcore {

using ntfsparsercore::attributes::readers::Extent;
using ntfsparsercore::attributes::readers::ExtentList;

FileChangeTracker::FileChangeTracker(BlockProcessor* blockProcessor,
                                     std::shared_ptr<ntfsparsercore::NtfsVolume> olderVolume,
                                     std::shared_ptr<ntfsparsercore::NtfsVolume> newerVolume)
    : blockProcessor_(blockProcessor), olderVolume_(std::move(olderVolume)), newerVolume_(std::move(newerVolume)) {}

FileChangeTracker::~FileChangeTracker() {
  newerVolume_.reset();
  olderVolume_.reset();
}

std::shared_ptr<ntfsparsercore::io::NtfsFile> FileChangeTracker::Find(
    const std::shared_ptr<ntfsparsercore::NtfsVolume>& volume, const char* path) {
  if (!volume) return nullptr;
  return std::shared_ptr<ntfsparsercore::io::NtfsFile>(ntfsparsercore::FindFile(volume, path));
}

WorkerResult FileChangeTracker::ExcludeFiles(const char* const* paths, std::unique_ptr<BlockProcessor>* processorOut) {
  if (paths == nullptr || processorOut == nullptr) return WorkerResult::kBadArgument;
  if (!newerVolume_) return WorkerResult::kNoView;
  ExtentList combined;
  for (const char* const* path = paths; *path != nullptr; ++path) {
    auto file = Find(newerVolume_, *path);
    if (!file) return WorkerResult::kNotFound;
    if (file->IsResident()) continue;
    ExtentList extents = file->GetExtents();
    combined.insert(combined.end(), extents.begin(), extents.end());
  }
  auto copy = std::make_unique<BlockProcessor>(*blockProcessor_);
  auto changed = copy->GetBitmap();
  // A processor that never computed a bitmap has no blocks to clear.
  if (changed) ClearExtents(std::move(combined), *changed, copy->GetBlockSize());
  *processorOut = std::move(copy);
  return WorkerResult::kOk;
}

void FileChangeTracker::ClearExtents(ExtentList extents, BitMap& changed, uint64_t blockSize) {
  // A block size of 0 has no blocks to clear.
  if (blockSize == 0) return;
  extents.erase(std::remove_if(extents.begin(), extents.end(), [](const Extent& e) { return e.volumeOffset == 0; }),
                extents.end());
  const auto byOffset = [](const Extent& a, const Extent& b) { return a.volumeOffset < b.volumeOffset; };
  // A file's extents mostly come in ascending order already, which the
  // stable sort would leave as they are.
  if (!std::is_sorted(extents.begin(), extents.end(), byOffset)) {
    std::stable_sort(extents.begin(), extents.end(), byOffset);
  }
  size_t next = 0;
  while (next < extents.size()) {
    uint64_t start = extents[next].volumeOffset;
    uint64_t length = extents[next].storedSize;
    ++next;
    while (next < extents.size() && extents[next].volumeOffset == start + length) {
      length += extents[next].storedSize;
      ++next;
    }
    const uint64_t lead = start % blockSize;
    if (lead != 0) start += blockSize - lead;
    const uint64_t end = start + (length - length % blockSize);
    // Clearing stops at the bitmap's end, where there is nothing left to clear.
    const uint64_t lastBlock = std::min(end / blockSize, changed.BitCount());
    for (uint64_t block = start / blockSize; block < lastBlock; ++block) changed.Clear(block);
  }
}

uint64_t FileChangeTracker::MapLength(uint64_t fileSize, uint64_t blockSize) {
  // A block size of 0 has no blocks.
  if (blockSize == 0) return 0;
  const uint64_t bits = fileSize / blockSize + (fileSize % blockSize != 0 ? 1 : 0);
  return bits / 8 + (bits % 8 != 0 ? 1 : 0);
}

WorkerResult FileChangeTracker::GetFileChangesMap(const char* path, uint8_t* buffer, uint64_t* size) {
  if (!newerVolume_) return WorkerResult::kNoView;
  auto newer = Find(newerVolume_, path);
  if (!newer) return WorkerResult::kNotFound;
  const uint64_t blockSize = blockProcessor_->GetBlockSize();
  const uint64_t length = MapLength(newer->GetSize(), blockSize);
  if (buffer == nullptr) {
    *size = length;
    return WorkerResult::kOk;
  }
  if (*size < length) return WorkerResult::kBadArgument;
  auto fileBitmap = std::make_shared<BitMap>(length);
  auto older = Find(olderVolume_, path);
  fileprocessors::FileVersionComparer(older, newer, blockSize).Compare(*fileBitmap, newerVolume_->GetClusterSize());
  std::unique_ptr<fileprocessors::PlainProcessor> processor;
  if (newer->IsCompressed()) {
    processor = std::make_unique<fileprocessors::CompressedProcessor>(newer, fileBitmap, blockSize);
  } else {
    processor = std::make_unique<fileprocessors::PlainProcessor>(newer, fileBitmap, blockSize);
  }
  auto changed = blockProcessor_->GetBitmap();
  // A processor that never computed a bitmap has no changed blocks to project.
  if (changed) processor->Process(*changed);
  // The map of an empty file has no bytes, though the bitmap keeps one.
  std::memcpy(buffer, fileBitmap->Data(), length);
  return WorkerResult::kOk;
}

}  // namespace tolvarcore
