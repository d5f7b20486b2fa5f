#include "core/vss/store_layers.h"

#include <algorithm>
#include <utility>

#include "common/error_queue.h"
#include "core/vss/block_descriptor.h"
#include "core/vss/store_format.h"
#include "core/vss/vss_record.h"

using tolvarcommon::ScopedErrorQueueSuspension;

namespace tolvarcore {
namespace vss {

namespace {

// Mappings reserved for one block list at most (about 290 MB); longer lists
// grow the map as they go.
constexpr uint64_t kLargestReservation = 4u << 20;

// The whole payload of the record at offset, every page in chain order.
std::vector<uint8_t> ReadPayload(const std::shared_ptr<ntfsparsercore::io::ISource>& store, uint64_t offset) {
  VssRecord record(store, offset);
  std::vector<uint8_t> payload(static_cast<std::size_t>(record.PageCount() * format::kPagePayloadSize));
  if (payload.empty() || record.Read(payload.data(), payload.size(), 0) != payload.size()) payload.clear();
  return payload;
}

// The block list folded in list order; a block list that cannot be read
// leaves a store that cannot be read either.
std::shared_ptr<const StoreBlockMap> ReadBlockMap(const std::shared_ptr<ntfsparsercore::io::ISource>& store,
                                                  uint64_t offset) {
  VssRecord record(store, offset);
  if (record.PageCount() == 0) return nullptr;
  auto map = std::make_shared<StoreBlockMap>();
  // Room for every slot of the list's pages, up to a bound that a damaged
  // chain cannot push into an allocation of its own size.
  const uint64_t slots = record.PageCount() * (format::kPagePayloadSize / format::kDescriptorSize);
  map->Reserve(static_cast<std::size_t>(std::min<uint64_t>(slots, kLargestReservation)));
  uint8_t bytes[format::kDescriptorSize];
  for (uint64_t at = 0; record.Read(bytes, sizeof bytes, at) == sizeof bytes; at += sizeof bytes) {
    map->Add(BlockDescriptor::Parse(bytes));
  }
  map->PrepareLookups();
  return map;
}

}  // namespace

StoreLayers::StoreLayers(std::shared_ptr<ntfsparsercore::io::ISource> store, std::vector<Location> locations)
    : store_(std::move(store)), locations_(std::move(locations)), layers_(locations_.size()), read_(false) {}

StoreLayers::StoreLayers(std::vector<StoreLayer> layers) : layers_(std::move(layers)), read_(true) {}

const StoreLayer& StoreLayers::At(std::size_t index) const {
  if (!read_.load(std::memory_order_acquire)) std::call_once(readOnce_, [this] { ReadAll(); });
  return layers_[index];
}

void StoreLayers::ReadAll() const {
  ScopedErrorQueueSuspension quiet;
  for (std::size_t index = 0; index < locations_.size(); ++index) layers_[index] = Read(index);
  read_.store(true, std::memory_order_release);
}

// The bitmaps are read for the newest store only: a view reads zeros only
// where the newest store's bitmaps mark a block unused, so an older store's
// bitmaps are never looked at.
StoreLayer StoreLayers::Read(std::size_t index) const {
  const Location& location = locations_[index];
  StoreLayer layer;
  layer.blockMap = ReadBlockMap(store_, location.blockList);
  if (index + 1 != locations_.size()) return layer;
  std::vector<uint8_t> current = ReadPayload(store_, location.bitmap);
  const bool hasPrevious = location.previousBitmap != 0;
  const std::vector<uint8_t> previous =
      hasPrevious ? ReadPayload(store_, location.previousBitmap) : std::vector<uint8_t>();
  layer.unusedBitmap = StoreLayer::UnusedBlocks(std::move(current), hasPrevious, previous);
  return layer;
}

}  // namespace vss
}  // namespace tolvarcore
