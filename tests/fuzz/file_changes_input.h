// A fuzz input read as the two shadow copies of one volume and the
// handle's block size: the newer shadow copy as a sparse volume (see
// sparse_volume_input.h), the older one as patches on top of it, so that
// a mutation of a shared MFT record or directory lands in both versions.
//
//   offset 0  1 byte   block size selector: (byte mod 32 + 1) × 4 KiB
//   offset 1  1 byte   options (kInvertChanges, kMissingPath)
//   offset 2  4 bytes  length N of the newer shadow copy's sparse volume
//   offset 6  N bytes  the newer shadow copy (cut at the end of the input)
//   then               patches (4-byte offset, 2-byte length, bytes) that
//                      make the older shadow copy from the newer one
#ifndef TOLVAR_TESTS_FUZZ_FILE_CHANGES_INPUT_H_
#define TOLVAR_TESTS_FUZZ_FILE_CHANGES_INPUT_H_

#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

#include "ntfsparsercore/io/little_endian.h"
#include "tests/fixtures/sparse_source.h"
#include "tests/fuzz/sparse_volume_input.h"

namespace tolvarfuzz {

struct FileChangesInput {
  static constexpr std::size_t kBlockSizeField = 0;
  static constexpr std::size_t kOptionsField = 1;
  static constexpr std::size_t kNewerLengthField = 2;
  static constexpr std::size_t kHeaderSize = 6;
  static constexpr uint64_t kBlockSizeSteps = 32;  // 4 KiB to 128 KiB
  static constexpr uint64_t kBlockSizeUnit = 4096;
  // Volumes up to 16 MiB: room for a few hundred files, a quick bitmap.
  static constexpr uint64_t kMaxUnits = 4096;

  // Options.
  static constexpr uint8_t kInvertChanges = 0x01;  // every block counts as changed except those that differ
  static constexpr uint8_t kMissingPath = 0x02;    // ExcludeFiles also gets a path that does not exist

  uint64_t blockSize = kBlockSizeUnit;
  uint8_t options = 0;
  std::shared_ptr<tolvartest::SparseSource> older;
  std::shared_ptr<tolvartest::SparseSource> newer;

  static FileChangesInput Decode(const uint8_t* data, std::size_t size) {
    FileChangesInput input;
    uint64_t newerLength = 0;
    if (size >= kHeaderSize) {
      input.blockSize = (data[kBlockSizeField] % kBlockSizeSteps + 1) * kBlockSizeUnit;
      input.options = data[kOptionsField];
      newerLength = std::min<uint64_t>(ntfsparsercore::io::LoadLe32(data + kNewerLengthField), size - kHeaderSize);
    }
    const uint8_t* volume = data + std::min(size, kHeaderSize);
    input.newer = SparseVolumeInput::Decode(volume, static_cast<std::size_t>(newerLength), kMaxUnits);
    input.older = SparseVolumeInput::Decode(volume, static_cast<std::size_t>(newerLength), kMaxUnits);
    const std::size_t patchesAt = std::min(size, kHeaderSize + static_cast<std::size_t>(newerLength));
    SparseVolumeInput::ApplyPatches(*input.older, data + patchesAt, size - patchesAt);
    return input;
  }

  // The input for two volume images of equal size; blockSelector and
  // options go into the first two bytes as they are.
  static std::vector<uint8_t> Encode(uint8_t blockSelector, uint8_t options, tolvartest::SparseSource& older,
                                     tolvartest::SparseSource& newer) {
    std::vector<uint8_t> volume = SparseVolumeInput::Encode(newer);
    std::vector<uint8_t> out(kHeaderSize);
    out[kBlockSizeField] = blockSelector;
    out[kOptionsField] = options;
    ntfsparsercore::io::StoreLe32(out.data() + kNewerLengthField, static_cast<uint32_t>(volume.size()));
    out.insert(out.end(), volume.begin(), volume.end());
    std::vector<uint8_t> patches = SparseVolumeInput::EncodeDifference(newer, older);
    out.insert(out.end(), patches.begin(), patches.end());
    return out;
  }
};

}  // namespace tolvarfuzz

#endif  // TOLVAR_TESTS_FUZZ_FILE_CHANGES_INPUT_H_
