// The NTFS parser on a fuzzed volume: boot sector, MFT records with their
// attributes and attribute lists, run lists, resident, plain and compressed
// streams (LZNT1), directory indexes and path lookup. The input is a sparse
// volume (see sparse_volume_input.h) of up to 4 GiB, so seeds taken from
// real volumes keep their MFT and data at their real offsets.
#include <cstddef>
#include <cstdint>

#include "common/error_queue.h"
#include "tests/fuzz/ntfs_workload.h"
#include "tests/fuzz/sparse_volume_input.h"

using tolvarcommon::CreateErrorQueue;
using tolvarcommon::DestroyErrorQueue;
using tolvarcommon::ErrorRecord;
using tolvarcommon::PopError;

namespace {
constexpr uint64_t kMaxUnits = uint64_t{1} << 20;  // 4 GiB
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // The messages go to a queue, drained after each input as a caller would.
  CreateErrorQueue();
  tolvarfuzz::NtfsWorkload::Run(tolvarfuzz::SparseVolumeInput::Decode(data, size, kMaxUnits));
  ErrorRecord record;
  while (PopError(&record)) {
  }
  DestroyErrorQueue();
  return 0;
}
