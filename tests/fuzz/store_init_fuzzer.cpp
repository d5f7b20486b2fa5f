// Init's whole work on a fuzzed store, then the bitmap copy and a GetBlock
// walk over every changed block. The input's first two bytes choose the
// block size and the options; the rest is a sparse volume (see
// sparse_volume_input.h) written to a temporary file, because Init opens
// volumes by path. The store reader, the snapshot sequence, the store
// bitmaps, the block descriptors, the indexed-block marking and the
// shadow copies rebuilt from the store all run on it.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "tests/fixtures/vss_store_builder.h"
#include "tests/fuzz/sparse_volume_input.h"
#include "tests/fuzz/volume_file.h"
#include "tolvar/tolvar.h"

namespace {

// Volumes up to 16 MiB: room for the image builder's store layout, small
// enough that a walk over every block stays quick.
constexpr uint64_t kMaxUnits = 4096;
// The shadow copies the seed stores hold are Id(0x101) and Id(0x102), in
// creation order.
constexpr uint32_t kFromNumber = 0x101;
constexpr uint32_t kToNumber = 0x102;
constexpr std::size_t kOptionBytes = 2;
constexpr uint64_t kBlockSizeSteps = 32;  // 4 KiB to 128 KiB

// With TOLVAR_FUZZ_TRACE set, what each input did goes to stderr.
bool Tracing() {
  static const bool tracing = std::getenv("TOLVAR_FUZZ_TRACE") != nullptr;
  return tracing;
}

void DrainQueue() {
  uint32_t code = 0;
  char text[512];
  // The text comes without a terminating NUL: the buffer keeps one spare zero byte.
  std::memset(text, 0, sizeof text);
  while (GetNextError(&code, text, sizeof text - 1) == 1) {
    if (Tracing()) std::fprintf(stderr, "message %u: %s\n", code, text);
    std::memset(text, 0, sizeof text);
  }
}

void WalkBlocks(TolvarHandle handle, uint64_t blockSize, uint8_t compare) {
  uint64_t size = 0;
  if (GetDiffBitmap(handle, nullptr, &size) == TOLVAR_SIZE_RETURNED) {
    std::vector<unsigned char> bitmap(size);
    GetDiffBitmap(handle, bitmap.data(), &size);
  }
  std::vector<unsigned char> block(blockSize);
  uint64_t blocks = 0;
  int32_t status = TOLVAR_OK;
  for (;;) {
    uint64_t room = blockSize;
    uint64_t index = 0;
    status = GetBlock(handle, block.data(), &room, &index, compare);
    if (status != TOLVAR_OK) break;
    ++blocks;
  }
  if (Tracing()) std::fprintf(stderr, "walk: %llu blocks, then %d\n", static_cast<unsigned long long>(blocks), status);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < kOptionBytes) return 0;
  uint64_t blockSize = (data[0] % kBlockSizeSteps + 1) * 4096;
  uint32_t flags = TOLVAR_OPTION_ERROR_QUEUE | (data[1] & TOLVAR_OPTION_NEWEST_PASS);
  uint8_t compare = (data[1] >> 1) & 1;
  auto source = tolvarfuzz::SparseVolumeInput::Decode(data + kOptionBytes, size - kOptionBytes, kMaxUnits);
  tolvarfuzz::VolumeFile::Write(*source);
  static const std::string fromId = tolvartest::vss::Id(kFromNumber).ToString();
  static const std::string toId = tolvartest::vss::Id(kToNumber).ToString();
  TolvarHandle handle = nullptr;
  int32_t status =
      Init(&handle, tolvarfuzz::VolumeFile::Path().c_str(), fromId.c_str(), toId.c_str(), blockSize, flags);
  if (Tracing()) std::fprintf(stderr, "Init: %d\n", status);
  if (status == TOLVAR_OK) {
    WalkBlocks(handle, blockSize, compare);
    FreeHandle(handle);
  }
  DrainQueue();
  return 0;
}
