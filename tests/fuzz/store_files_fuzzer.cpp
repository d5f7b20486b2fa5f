// The file exports on handles that Init made: the input is a store whose
// shadow copies hold an NTFS volume, read as store_init reads its inputs
// (two option bytes, then a sparse volume written to a temporary file).
// After Init from the older to the newer shadow copy, the file work of
// file_exports_workload.h runs on the handle, so the NTFS views read both
// versions through the shadow copies rebuilt from the store: mutations of
// the block lists, bitmaps and old block contents change which bytes each
// version's MFT and files are made of.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "tests/fixtures/vss_store_builder.h"
#include "tests/fuzz/file_exports_workload.h"
#include "tests/fuzz/sparse_volume_input.h"
#include "tests/fuzz/volume_file.h"
#include "tolvar/tolvar.h"

namespace {

using tolvarfuzz::FileExportsWorkload;

// Volumes up to 16 MiB, as for store_init.
constexpr uint64_t kMaxUnits = 4096;
// The seed stores hold the shadow copies Id(0x101) and Id(0x102), in creation order.
constexpr uint32_t kFromNumber = 0x101;
constexpr uint32_t kToNumber = 0x102;
constexpr std::size_t kOptionBytes = 2;
constexpr uint64_t kBlockSizeSteps = 32;  // 4 KiB to 128 KiB
constexpr uint8_t kMissingPathOption = 0x02;
const char kEndMarker[] = "Unexpected attribute type was expected(4096), actual(4294967295)";

void DrainQueue() {
  uint32_t code = 0;
  char text[512];
  // The text comes without a terminating NUL: the buffer keeps one spare zero byte.
  std::memset(text, 0, sizeof text);
  while (GetNextError(&code, text, sizeof text - 1) == 1) {
    // Every record walk ends on the end marker's message; the rest is news.
    if (FileExportsWorkload::Tracing() && std::strcmp(text, kEndMarker) != 0) {
      std::fprintf(stderr, "message %u: %s\n", code, text);
    }
    std::memset(text, 0, sizeof text);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < kOptionBytes) return 0;
  uint64_t blockSize = (data[0] % kBlockSizeSteps + 1) * 4096;
  uint32_t flags = TOLVAR_OPTION_ERROR_QUEUE | (data[1] & TOLVAR_OPTION_NEWEST_PASS);
  bool missingPath = (data[1] & kMissingPathOption) != 0;
  auto source = tolvarfuzz::SparseVolumeInput::Decode(data + kOptionBytes, size - kOptionBytes, kMaxUnits);
  tolvarfuzz::VolumeFile::Write(*source);
  static const std::string fromId = tolvartest::vss::Id(kFromNumber).ToString();
  static const std::string toId = tolvartest::vss::Id(kToNumber).ToString();
  TolvarHandle handle = nullptr;
  int32_t status =
      Init(&handle, tolvarfuzz::VolumeFile::Path().c_str(), fromId.c_str(), toId.c_str(), blockSize, flags);
  if (FileExportsWorkload::Tracing()) std::fprintf(stderr, "Init: %d\n", status);
  if (status == TOLVAR_OK) {
    FileExportsWorkload::Run(static_cast<TrackingHandle*>(handle), blockSize, missingPath);
    FreeHandle(handle);
  }
  DrainQueue();
  return 0;
}
