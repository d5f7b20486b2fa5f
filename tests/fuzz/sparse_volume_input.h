// A fuzz input read as a small sparse volume: a 4-byte size followed by
// patches of bytes at offsets. Everything not patched reads as zero, so a
// few kilobytes of input describe a volume of megabytes whose interesting
// parts (store pages, boot sector, MFT records, index blocks) sit at their
// real offsets.
//
//   offset 0  4 bytes  volume size in 4 KiB units (clamped to 1..maxUnits)
//   then, repeated to the end of the input:
//             4 bytes  patch offset (taken modulo the volume size)
//             2 bytes  patch length
//             N bytes  the patch (cut at the end of the input or volume)
#ifndef TOLVAR_TESTS_FUZZ_SPARSE_VOLUME_INPUT_H_
#define TOLVAR_TESTS_FUZZ_SPARSE_VOLUME_INPUT_H_

#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

#include "ntfsparsercore/io/little_endian.h"
#include "tests/fixtures/sparse_source.h"

namespace tolvarfuzz {

class SparseVolumeInput {
 public:
  static constexpr uint64_t kUnit = 4096;
  static constexpr std::size_t kSizeFieldSize = 4;
  static constexpr std::size_t kPatchHeaderSize = 6;  // 4-byte offset, 2-byte length

  // Decodes data into a sparse source of at most maxUnits × 4 KiB.
  static std::shared_ptr<tolvartest::SparseSource> Decode(const uint8_t* data, std::size_t size, uint64_t maxUnits) {
    uint64_t units = 1;
    if (size >= kSizeFieldSize) units = ntfsparsercore::io::LoadLe32(data);
    units = std::min<uint64_t>(std::max<uint64_t>(units, 1), maxUnits);
    auto source = std::make_shared<tolvartest::SparseSource>(units * kUnit);
    std::size_t at = kSizeFieldSize;
    while (at + kPatchHeaderSize <= size) {
      uint64_t offset = ntfsparsercore::io::LoadLe32(data + at) % source->GetSize();
      uint64_t length = ntfsparsercore::io::LoadLe16(data + at + 4);
      at += kPatchHeaderSize;
      length = std::min<uint64_t>({length, size - at, source->GetSize() - offset});
      source->Write(offset, data + at, length);
      at += static_cast<std::size_t>(length);
    }
    return source;
  }

  // Encodes a sparse source: each written 4 KiB chunk with its trailing
  // zeros cut, chunks of zeros left out.
  static std::vector<uint8_t> Encode(tolvartest::SparseSource& source) {
    std::vector<uint8_t> out;
    Put(&out, source.GetSize() / kUnit, 4);
    for (const auto& chunk : source.Chunks()) {
      const std::vector<uint8_t>& bytes = chunk.second;
      std::size_t used = bytes.size();
      while (used > 0 && bytes[used - 1] == 0) --used;
      if (used == 0) continue;
      Put(&out, chunk.first * tolvartest::SparseSource::kChunk, 4);
      Put(&out, used, 2);
      out.insert(out.end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(used));
    }
    return out;
  }

 private:
  static void Put(std::vector<uint8_t>* out, uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) out->push_back(static_cast<uint8_t>(value >> (8 * i)));
  }
};

}  // namespace tolvarfuzz

#endif  // TOLVAR_TESTS_FUZZ_SPARSE_VOLUME_INPUT_H_
