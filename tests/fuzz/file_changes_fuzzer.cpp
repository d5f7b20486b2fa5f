// The file exports on a fuzzed volume (see file_exports_workload.h), on a
// tracking handle whose block processor holds the two shadow copies in
// memory (see file_changes_input.h), each behind a 16 KiB line cache as
// the volume provider opens them. The changed-block bitmap marks the
// blocks that differ between them, as the store would.
//
// The handle is built without Init: Init's store reading is the work of
// the store_init target, and leaving it out makes each input run many
// times faster, all of it in the exports' own code, the NTFS views they
// open, the path lookup, the version comparison and the file processors.
// store_files runs the same work on handles that Init made from a store.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "api/error_queue.h"
#include "api/tracking_handle.h"
#include "core/volume_provider.h"
#include "ntfsparsercore/io/cache_proxy.h"
#include "tests/fuzz/file_changes_input.h"
#include "tests/fuzz/file_exports_workload.h"

namespace {

using tolvarfuzz::FileChangesInput;

// A block processor whose result is set directly, not computed from a store.
class ProcessorWithResult : public tolvarcore::BlockProcessor {
 public:
  using BlockProcessor::BlockProcessor;
  using BlockProcessor::SetResult;
};

// One bit per block: set where the two shadow copies differ, or, with
// kInvertChanges, everywhere else.
std::shared_ptr<tolvarcore::BitMap> ChangedBlocks(const FileChangesInput& input) {
  const uint64_t size = input.newer->GetSize();
  const uint64_t blocks = size / input.blockSize + (size % input.blockSize != 0 ? 1 : 0);
  auto changed = std::make_shared<tolvarcore::BitMap>(blocks / 8 + (blocks % 8 != 0 ? 1 : 0));
  std::vector<uint8_t> differs(static_cast<std::size_t>(blocks));
  std::vector<uint8_t> before(tolvartest::SparseSource::kChunk);
  std::vector<uint8_t> after(tolvartest::SparseSource::kChunk);
  // Every chunk the newer copy has was written into the older one too.
  for (const auto& chunk : input.older->Chunks()) {
    const uint64_t offset = chunk.first * tolvartest::SparseSource::kChunk;
    std::fill(before.begin(), before.end(), 0);
    std::fill(after.begin(), after.end(), 0);
    input.older->Read(before.data(), before.size(), offset);
    input.newer->Read(after.data(), after.size(), offset);
    if (before != after) differs[static_cast<std::size_t>(offset / input.blockSize)] = 1;
  }
  const bool invert = (input.options & FileChangesInput::kInvertChanges) != 0;
  for (uint64_t b = 0; b < blocks; ++b) {
    if ((differs[static_cast<std::size_t>(b)] != 0) != invert) changed->Set(b);
  }
  return changed;
}

void Run(const FileChangesInput& input) {
  std::shared_ptr<tolvarcore::BitMap> changed = ChangedBlocks(input);
  auto comparison = std::make_shared<tolvarcore::BitMap>(changed->SizeInBytes());
  std::memcpy(comparison->Data(), changed->Data(), changed->SizeInBytes());
  auto processor = std::make_unique<ProcessorWithResult>(input.blockSize, 0);
  // As the volume provider opens them: each shadow copy behind a 16 KiB line.
  auto older = std::make_shared<ntfsparsercore::io::CacheProxy>(input.older, tolvarcore::VolumeProvider::kLineSize);
  auto newer = std::make_shared<ntfsparsercore::io::CacheProxy>(input.newer, tolvarcore::VolumeProvider::kLineSize);
  processor->SetResult(changed, comparison, older, newer);
  auto handle = std::make_unique<TrackingHandle>();
  handle->blockProcessor = std::move(processor);
  tolvarfuzz::FileExportsWorkload::Run(handle.get(), input.blockSize,
                                       (input.options & FileChangesInput::kMissingPath) != 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FileChangesInput input = FileChangesInput::Decode(data, size);
  // The messages go to a queue, drained after each input as a caller would.
  CreateErrorQueue();
  Run(input);
  ErrorRecord record;
  while (PopError(&record)) {
    // Every record walk ends on the end marker's message; the rest is news.
    if (tolvarfuzz::FileExportsWorkload::Tracing() &&
        record.message != "Unexpected attribute type was expected(4096), actual(4294967295)") {
      std::fprintf(stderr, "message %u: %s\n", record.code, record.message.c_str());
    }
  }
  DestroyErrorQueue();
  return 0;
}
