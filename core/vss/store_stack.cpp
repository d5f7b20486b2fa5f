#include "core/vss/store_stack.h"

#include <algorithm>

#include "api/error_queue.h"
#include "core/vss/block_descriptor.h"
#include "core/vss/records/catalog.h"
#include "core/vss/snapshot_sequence.h"
#include "core/vss/store_block_map.h"
#include "core/vss/store_snapshot_source.h"
#include "ntfsparsercore/io/cache_proxy.h"

namespace tolvarcore {
namespace vss {

namespace {

// Mappings reserved for one block list at most (about 290 MB); longer lists
// grow the map as they go.
constexpr uint64_t kLargestReservation = 4u << 20;

// The whole payload of the record at offset, every page in chain order.
std::vector<uint8_t> ReadPayload(const VssVolume& storage, uint64_t offset) {
  auto record = storage.OpenRecord(offset);
  std::vector<uint8_t> payload(static_cast<std::size_t>(record->PageCount() * VssRecord::kPayloadPerPage));
  if (payload.empty() || record->Read(payload.data(), payload.size(), 0) != payload.size()) payload.clear();
  return payload;
}

// The block list folded in list order; a block list that cannot be read
// leaves a store that cannot be read either.
std::shared_ptr<const StoreBlockMap> ReadBlockMap(const VssVolume& storage, uint64_t offset) {
  auto record = storage.OpenRecord(offset);
  if (record->PageCount() == 0) return nullptr;
  auto map = std::make_shared<StoreBlockMap>();
  // Room for every slot of the list's pages, up to a bound that a damaged
  // chain cannot push into an allocation of its own size.
  const uint64_t slots = record->PageCount() * (VssRecord::kPayloadPerPage / BlockDescriptor::kSize);
  map->Reserve(static_cast<std::size_t>(std::min<uint64_t>(slots, kLargestReservation)));
  uint8_t bytes[BlockDescriptor::kSize];
  for (uint64_t at = 0; record->Read(bytes, sizeof bytes, at) == sizeof bytes; at += sizeof bytes) {
    map->Add(BlockDescriptor::Parse(bytes));
  }
  return map;
}

// The volume without its cache line: every view of the stack sits behind a
// line of its own, so reading the store data and the volume through the
// volume's line as well would copy every block once more.
std::shared_ptr<ntfsparsercore::io::ISource> UncachedVolume(const VssVolume& storage) {
  auto cached = std::dynamic_pointer_cast<ntfsparsercore::io::CacheProxy>(storage.GetSource());
  return cached ? cached->GetCachedSource() : storage.GetSource();
}

// The bitmaps are read for the newest store only: a view reads zeros only
// where the newest store's bitmaps mark a block unused, so an older store's
// bitmaps are never looked at.
StoreLayer ReadLayer(const VssVolume& storage, const Snapshot& snapshot, bool newest) {
  StoreLayer layer;
  layer.blockMap = ReadBlockMap(storage, snapshot.GetIndexOffset());
  if (!newest) return layer;
  layer.currentBitmap = ReadPayload(storage, snapshot.GetBitmapOffset());
  layer.hasPreviousBitmap = snapshot.GetPreviousBitmapOffset() != 0;
  if (layer.hasPreviousBitmap) layer.previousBitmap = ReadPayload(storage, snapshot.GetPreviousBitmapOffset());
  return layer;
}

}  // namespace

std::shared_ptr<const StoreStack> StoreStack::Read(const VssVolume& storage) {
  ScopedErrorQueueSuspension quiet;
  auto stack = std::make_shared<StoreStack>();
  stack->volume_ = UncachedVolume(storage);
  auto layers = std::make_shared<std::vector<StoreLayer>>();
  if (storage.GetCatalogOffset() != 0) {
    records::Catalog catalog(storage.OpenRecord(storage.GetCatalogOffset()));
    const SnapshotList snapshots = BuildSnapshotList(catalog);
    for (const auto& snapshot : snapshots) {
      stack->identifiers_.push_back(snapshot->GetGuid());
      stack->volumeSizes_.push_back(snapshot->GetVolumeSize());
      layers->push_back(ReadLayer(storage, *snapshot, snapshot == snapshots.back()));
    }
  }
  stack->layers_ = layers;
  return stack;
}

ntfsparsercore::io::ISource* StoreStack::OpenView(const Guid& store) const {
  for (std::size_t index = 0; index < identifiers_.size(); ++index) {
    if (identifiers_[index] == store) {
      return new StoreSnapshotSource(volume_, layers_, index, volumeSizes_[index]);
    }
  }
  return nullptr;
}

}  // namespace vss
}  // namespace tolvarcore
