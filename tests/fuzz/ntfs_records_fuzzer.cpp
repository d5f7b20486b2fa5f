// The NTFS parser with a sound boot sector: the input patches a 512 KiB
// volume (see sparse_volume_input.h; its size field is ignored) whose
// sector 0 is then reset to the boot sector of the in-memory image
// builder (4 KiB clusters, 1 KiB records, MFT at cluster 4). Inputs stay
// small, so the MFT records, their attributes and attribute lists, run
// lists and index blocks are fuzzed many times faster than through
// ntfs_volume's whole-volume seeds.
#include <cstddef>
#include <cstdint>

#include "common/error_queue.h"
#include "tests/fixtures/ntfs_image_builder.h"
#include "tests/fuzz/ntfs_workload.h"
#include "tests/fuzz/sparse_volume_input.h"

using tolvarcommon::CreateErrorQueue;
using tolvarcommon::DestroyErrorQueue;
using tolvarcommon::ErrorRecord;
using tolvarcommon::PopError;

namespace {
constexpr uint64_t kVolumeUnits = 128;  // the image builder's 128 clusters
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const tolvartest::Bytes bootSector = [] {
    tolvartest::NtfsImageBuilder builder;
    return tolvartest::Bytes(builder.Image().begin(), builder.Image().begin() + 512);
  }();
  auto source = tolvarfuzz::SparseVolumeInput::Decode(data, size, kVolumeUnits);
  source->SetSize(kVolumeUnits * tolvarfuzz::SparseVolumeInput::kUnit);
  source->Write(0, bootSector);
  // The messages go to a queue, drained after each input as a caller would.
  CreateErrorQueue();
  tolvarfuzz::NtfsWorkload::Run(source);
  ErrorRecord record;
  while (PopError(&record)) {
  }
  DestroyErrorQueue();
  return 0;
}
