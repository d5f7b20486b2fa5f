// The store reader on a fuzzed volume, without the file and handle around
// it: the volume header, the record chains, the catalog, the snapshot
// list, the indexed-block marking of each block list, and each snapshot's
// shadow copy rebuilt from the store (block map and layered views), read
// at the blocks its block list names. The input is a sparse volume (see
// sparse_volume_input.h); the store_init seeds fit it after their two
// option bytes.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "common/error_queue.h"
#include "core/bit_map.h"
#include "core/vss/mark_indexed_blocks.h"
#include "core/vss/records/catalog.h"
#include "core/vss/snapshot.h"
#include "core/vss/snapshot_sequence.h"
#include "core/vss/store_format.h"
#include "core/vss/store_stack.h"
#include "core/vss/vss_volume.h"
#include "tests/fuzz/sparse_volume_input.h"

using tolvarcommon::CreateErrorQueue;
using tolvarcommon::DestroyErrorQueue;
using tolvarcommon::ErrorRecord;
using tolvarcommon::PopError;

namespace {

constexpr uint64_t kMaxUnits = 4096;                                       // 16 MiB volumes
constexpr uint64_t kStoreBlockSize = tolvarcore::vss::format::kBlockSize;  // one bit of a store bitmap
constexpr uint64_t kBlocksRead = 64;                                       // of each shadow copy
constexpr uint64_t kReadSize = 6000;  // not a block multiple: reads straddle blocks

using tolvarcore::BitMap;
using tolvarcore::vss::VssVolume;

// The blocks the snapshot's block list names, on a bitmap of the volume.
std::unique_ptr<BitMap> IndexedBlocks(const VssVolume& volume, const tolvarcore::vss::Snapshot& snapshot) {
  uint64_t blocks = volume.GetSize() / kStoreBlockSize + 1;
  auto marked = std::make_unique<BitMap>((blocks + 7) / 8);
  tolvarcore::vss::MarkIndexedBlocks(volume.OpenRecord(snapshot.GetIndexOffset()), *marked, false);
  tolvarcore::vss::MarkIndexedBlocks(volume.OpenRecord(snapshot.GetIndexOffset()), *marked, true);
  return marked;
}

void ReadView(ntfsparsercore::io::ISource& view, const BitMap& blocks) {
  std::vector<uint8_t> buffer(kReadSize);
  view.Read(buffer.data(), buffer.size(), 0);
  view.Read(buffer.data(), buffer.size(), view.GetSize() - std::min<uint64_t>(view.GetSize(), 100));
  uint64_t done = 0;
  for (uint64_t index = blocks.NextSet(0); index < blocks.BitCount() && done < kBlocksRead;
       index = blocks.NextSet(index + 1), ++done) {
    view.Read(buffer.data(), buffer.size(), index * kStoreBlockSize + done % 2 * 512);
  }
}

void Exercise(const std::shared_ptr<VssVolume>& volume) {
  if (volume->GetCatalogOffset() == 0) return;
  tolvarcore::vss::records::Catalog catalog(volume->OpenRecord(volume->GetCatalogOffset()));
  std::shared_ptr<const tolvarcore::vss::StoreStack> stack = tolvarcore::vss::StoreStack::Read(*volume);
  for (const auto& snapshot : tolvarcore::vss::BuildSnapshotList(catalog)) {
    std::unique_ptr<BitMap> blocks = IndexedBlocks(*volume, *snapshot);
    std::unique_ptr<ntfsparsercore::io::ISource> view(stack->OpenView(snapshot->GetGuid()));
    if (view) ReadView(*view, *blocks);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CreateErrorQueue();
  Exercise(std::make_shared<VssVolume>(tolvarfuzz::SparseVolumeInput::Decode(data, size, kMaxUnits)));
  ErrorRecord record;
  while (PopError(&record)) {
  }
  DestroyErrorQueue();
  return 0;
}
