#include "core/block_processor.h"

#include <cstring>
#include <iterator>

#include "common/error_queue.h"
#include "core/bit_map_processor.h"
#include "core/volume_provider.h"
#include "core/vss/mark_indexed_blocks.h"
#include "core/vss/records/catalog.h"
#include "core/vss/snapshot_sequence.h"
#include "core/vss/store_format.h"
#include "core/vss/vss_volume.h"

using tolvarcommon::kErrorIo;
using tolvarcommon::kErrorStore;
using tolvarcommon::ReportCodedError;
using tolvarcommon::ReportError;

namespace tolvarcore {

bool BlockProcessor::IsValidBlockSize(uint64_t blockSize) {
  return blockSize >= kMinBlockSize && blockSize <= kMaxBlockSize && blockSize % kMinBlockSize == 0;
}

BlockProcessor::BlockProcessor(uint64_t blockSize, uint32_t flags) : blockSize_(blockSize), flags_(flags) {
  if (IsValidBlockSize(blockSize_)) blockBuffer_ = tolvarcommon::AllocateAligned(blockSize_);
}

BlockProcessor::BlockProcessor(const BlockProcessor& other)
    : blockSize_(other.blockSize_),
      flags_(other.flags_),
      changed_(other.changed_),
      comparison_(other.comparison_),
      olderSource_(other.olderSource_),
      newerSource_(other.newerSource_),
      blockBuffer_(IsValidBlockSize(other.blockSize_) ? tolvarcommon::AllocateAligned(other.blockSize_) : nullptr) {}

BlockProcessor::~BlockProcessor() = default;

namespace {

std::unique_ptr<vss::records::Catalog> OpenCatalog(const vss::VssVolume& volume) {
  return std::make_unique<vss::records::Catalog>(volume.OpenRecord(volume.GetCatalogOffset()));
}

// The walk never looks past the count a short read returns, so a cache
// line in front of a shadow copy may hand whole lines straight over.
uint64_t ReadBlock(ntfsparsercore::io::ISource& source, uint8_t* buffer, uint64_t size, uint64_t offset) {
  return source.ReadDirect(buffer, size, offset);
}

// Store bitmap length for a volume of size bytes: one bit per 16 KiB block.
uint64_t StoreBitmapBytes(uint64_t size) {
  const uint64_t blocks = size / vss::format::kBlockSize + (size % vss::format::kBlockSize != 0);
  return blocks / 8 + (blocks % 8 != 0);
}

}  // namespace

WorkerResult BlockProcessor::Compute(vss::service::VssContext& context, VolumeProvider& volumeProvider,
                                     const std::shared_ptr<vss::VssVolume>& volume,
                                     const std::shared_ptr<vss::VssVolume>& storage,
                                     const std::pair<std::string, std::string>& identifiers) {
  if (!blockBuffer_) return WorkerResult::kBadArgument;

  // Both stores' catalogs are read; the sequence comes from the storage's.
  auto volumeCatalog = OpenCatalog(*volume);
  auto storageCatalog = OpenCatalog(*storage);
  vss::SnapshotList sequence = vss::BuildSnapshotList(*storageCatalog);
  if (!vss::BuildSnapshotSequence(identifiers, context, *storage, &sequence)) {
    ReportCodedError(kErrorStore, "Failed to get snapshot sequence");
    return WorkerResult::kBadArgument;
  }
  const std::shared_ptr<vss::Snapshot> start = sequence.front();
  const std::shared_ptr<vss::Snapshot> end = sequence.back();

  std::shared_ptr<ntfsparsercore::io::ISource> older(volumeProvider.OpenShadowCopy(start, storage));
  std::shared_ptr<ntfsparsercore::io::ISource> newer(volumeProvider.OpenShadowCopy(end, storage));
  olderSource_ = older;
  newerSource_ = newer;
  if (!older || !newer) {
    ReportError(kErrorIo, "Can't open shadow copy as a source");
    return WorkerResult::kBadArgument;
  }

  BitMapProcessor bitmaps;
  if (!bitmaps.Load(storage, start, end)) {
    ReportCodedError(kErrorStore, "Bitmap init failed");
    return WorkerResult::kBadArgument;
  }
  // Allocated only once the end snapshot's store bitmap was read whole: a
  // volume size from the catalog is then backed by that many bitmap bytes on
  // disk and cannot ask for terabytes.
  const uint64_t bitmapBytes = StoreBitmapBytes(end->GetVolumeSize());
  std::shared_ptr<BitMap> changed = bitmaps.TakeCurrent(bitmapBytes);
  // Without a reference nothing is compared: the comparison map is then made
  // clear at the block size, with no clear map of 16 KiB blocks to rescale.
  std::shared_ptr<BitMap> comparison = bitmaps.GetReference() ? bitmaps.TakeReference(bitmapBytes) : nullptr;

  // Every snapshot but the end one adds the blocks its index record names.
  for (auto it = sequence.begin(); std::next(it) != sequence.end(); ++it) {
    vss::MarkIndexedBlocks(storage->OpenRecord((*it)->GetIndexOffset()), *changed, false);
  }
  if (flags_ & kNewestPassFlag) {
    vss::MarkIndexedBlocks(storage->OpenRecord(end->GetIndexOffset()), *changed, true);
  }

  comparison_ = comparison
                    ? comparison->Rescale(vss::format::kBlockSize, blockSize_)
                    : std::make_unique<BitMap>(BitMap::RescaledBytes(bitmapBytes, vss::format::kBlockSize, blockSize_));
  changed_ = changed->Rescale(vss::format::kBlockSize, blockSize_);
  return WorkerResult::kOk;
}

void BlockProcessor::SetResult(std::shared_ptr<BitMap> changed, std::shared_ptr<BitMap> comparison,
                               std::shared_ptr<ntfsparsercore::io::ISource> olderSource,
                               std::shared_ptr<ntfsparsercore::io::ISource> newerSource) {
  changed_ = std::move(changed);
  comparison_ = std::move(comparison);
  olderSource_ = std::move(olderSource);
  newerSource_ = std::move(newerSource);
}

WorkerResult BlockProcessor::NextBlock(uint8_t* buffer, uint64_t* size, bool compare, uint64_t* index) {
  if (walkEnded_ || !changed_ || !newerSource_) {
    walkEnded_ = true;
    return WorkerResult::kEnd;
  }
  if (*size < blockSize_) {
    *size = blockSize_;
    return WorkerResult::kBadArgument;
  }
  const uint64_t bits = changed_->BitCount();
  // Clear bits are passed over in bulk; the cursor lands where the
  // one-by-one walk would take the next set bit.
  for (uint64_t next = changed_->NextSet(cursor_); next < bits; next = changed_->NextSet(cursor_)) {
    cursor_ = next + 1;
    if (ReadBlock(*newerSource_, buffer, blockSize_, next * blockSize_) != blockSize_) {
      walkEnded_ = true;
      return WorkerResult::kBadArgument;
    }
    *size = blockSize_;
    if (!compare || !comparison_ || !comparison_->Test(next) || !SameInOlder(buffer, next)) {
      *index = next;
      return WorkerResult::kOk;
    }
  }
  walkEnded_ = true;
  return WorkerResult::kEnd;
}

// True when the older shadow copy holds the same bytes at index; a short
// read counts as different.
bool BlockProcessor::SameInOlder(const uint8_t* block, uint64_t index) {
  if (!olderSource_ || !blockBuffer_) return false;
  if (ReadBlock(*olderSource_, blockBuffer_.get(), blockSize_, index * blockSize_) != blockSize_) return false;
  return std::memcmp(block, blockBuffer_.get(), static_cast<std::size_t>(blockSize_)) == 0;
}

void BlockProcessor::CopyBitmap(void* buffer) const {
  if (changed_) changed_->CopyOut(buffer);
}

uint64_t BlockProcessor::GetBlockSize() const { return blockSize_; }

std::shared_ptr<BitMap> BlockProcessor::GetBitmap() const { return changed_; }

std::shared_ptr<ntfsparsercore::io::ISource> BlockProcessor::GetNewerSource() const { return newerSource_; }

std::shared_ptr<ntfsparsercore::io::ISource> BlockProcessor::GetOlderSource() const { return olderSource_; }

}  // namespace tolvarcore
