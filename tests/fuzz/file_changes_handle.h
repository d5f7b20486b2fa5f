// The tracking handle of the file_changes target: its block processor holds
// two shadow copies in memory, each behind a 16 KiB line cache as the
// volume provider opens them, and a changed-block bitmap that marks the
// blocks where they differ, as the store would. Shared with the seed
// generator, which runs the same work on recorded volume images.
#ifndef TOLVAR_TESTS_FUZZ_FILE_CHANGES_HANDLE_H_
#define TOLVAR_TESTS_FUZZ_FILE_CHANGES_HANDLE_H_

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "api/tracking_handle.h"
#include "core/bit_map.h"
#include "core/block_processor.h"
#include "core/volume_provider.h"
#include "ntfsparsercore/io/cache_proxy.h"
#include "tests/fixtures/sparse_source.h"
#include "tests/fuzz/file_changes_input.h"
#include "tests/fuzz/file_exports_workload.h"

namespace tolvarfuzz {

class FileChangesHandle {
 public:
  // One bit per block: set where the two shadow copies differ, or, with
  // invert, everywhere else. Every chunk the newer copy has is expected
  // in the older one too (as FileChangesInput decodes them).
  static std::shared_ptr<tolvarcore::BitMap> ChangedBlocks(tolvartest::SparseSource& older,
                                                           tolvartest::SparseSource& newer, uint64_t blockSize,
                                                           bool invert) {
    const uint64_t size = newer.GetSize();
    const uint64_t blocks = size / blockSize + (size % blockSize != 0 ? 1 : 0);
    auto changed = std::make_shared<tolvarcore::BitMap>(blocks / 8 + (blocks % 8 != 0 ? 1 : 0));
    std::vector<uint8_t> differs(static_cast<std::size_t>(blocks));
    std::vector<uint8_t> before(tolvartest::SparseSource::kChunk);
    std::vector<uint8_t> after(tolvartest::SparseSource::kChunk);
    for (const auto& chunk : older.Chunks()) {
      const uint64_t offset = chunk.first * tolvartest::SparseSource::kChunk;
      // A chunk of a longer older copy has no block of the newer one.
      if (offset >= size) break;
      std::fill(before.begin(), before.end(), 0);
      std::fill(after.begin(), after.end(), 0);
      older.Read(before.data(), before.size(), offset);
      newer.Read(after.data(), after.size(), offset);
      if (before != after) differs[static_cast<std::size_t>(offset / blockSize)] = 1;
    }
    for (uint64_t b = 0; b < blocks; ++b) {
      if ((differs[static_cast<std::size_t>(b)] != 0) != invert) changed->Set(b);
    }
    return changed;
  }

  // The file exports' work on a handle over older and newer with the
  // changed blocks given.
  static void Run(uint64_t blockSize, uint8_t options, const std::shared_ptr<tolvarcore::BitMap>& changed,
                  const std::shared_ptr<ntfsparsercore::io::ISource>& olderSource,
                  const std::shared_ptr<ntfsparsercore::io::ISource>& newerSource) {
    auto comparison = std::make_shared<tolvarcore::BitMap>(changed->SizeInBytes());
    std::memcpy(comparison->Data(), changed->Data(), changed->SizeInBytes());
    auto processor = std::make_unique<ProcessorWithResult>(blockSize, 0);
    auto older = std::make_shared<ntfsparsercore::io::CacheProxy>(olderSource, tolvarcore::VolumeProvider::kLineSize);
    auto newer = std::make_shared<ntfsparsercore::io::CacheProxy>(newerSource, tolvarcore::VolumeProvider::kLineSize);
    processor->SetResult(changed, comparison, older, newer);
    auto handle = std::make_unique<TrackingHandle>();
    handle->blockProcessor = std::move(processor);
    FileExportsWorkload::Run(handle.get(), blockSize, (options & FileChangesInput::kMissingPath) != 0);
  }

 private:
  // A block processor whose result is set directly, not computed from a store.
  class ProcessorWithResult : public tolvarcore::BlockProcessor {
   public:
    using BlockProcessor::BlockProcessor;
    using BlockProcessor::SetResult;
  };
};

}  // namespace tolvarfuzz

#endif  // TOLVAR_TESTS_FUZZ_FILE_CHANGES_HANDLE_H_
