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
#include <set>
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
    if (size > kSizeFieldSize) ApplyPatches(*source, data + kSizeFieldSize, size - kSizeFieldSize);
    return source;
  }

  // Writes the patches of data (without a size field) into source.
  static void ApplyPatches(tolvartest::SparseSource& source, const uint8_t* data, std::size_t size) {
    std::size_t at = 0;
    while (at + kPatchHeaderSize <= size) {
      uint64_t offset = ntfsparsercore::io::LoadLe32(data + at) % source.GetSize();
      uint64_t length = ntfsparsercore::io::LoadLe16(data + at + 4);
      at += kPatchHeaderSize;
      length = std::min<uint64_t>({length, size - at, source.GetSize() - offset});
      source.Write(offset, data + at, length);
      at += static_cast<std::size_t>(length);
    }
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
      PutPatch(&out, chunk.first * tolvartest::SparseSource::kChunk, bytes.data(), used);
    }
    return out;
  }

  // Encodes, without a size field, the patches that turn base into
  // changed: each 4 KiB chunk that either has written and that reads
  // differently in the two.
  static std::vector<uint8_t> EncodeDifference(tolvartest::SparseSource& base, tolvartest::SparseSource& changed) {
    constexpr uint64_t kChunk = tolvartest::SparseSource::kChunk;
    std::set<uint64_t> chunks;
    for (const auto& chunk : base.Chunks()) chunks.insert(chunk.first);
    for (const auto& chunk : changed.Chunks()) chunks.insert(chunk.first);
    std::vector<uint8_t> out;
    std::vector<uint8_t> before(kChunk);
    std::vector<uint8_t> after(kChunk);
    for (uint64_t chunk : chunks) {
      std::fill(before.begin(), before.end(), 0);
      std::fill(after.begin(), after.end(), 0);
      base.Read(before.data(), kChunk, chunk * kChunk);
      changed.Read(after.data(), kChunk, chunk * kChunk);
      if (before != after) PutPatch(&out, chunk * kChunk, after.data(), after.size());
    }
    return out;
  }

  static void PutPatch(std::vector<uint8_t>* out, uint64_t offset, const uint8_t* bytes, std::size_t length) {
    Put(out, offset, 4);
    Put(out, length, 2);
    out->insert(out->end(), bytes, bytes + length);
  }

  static void Put(std::vector<uint8_t>* out, uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) out->push_back(static_cast<uint8_t>(value >> (8 * i)));
  }
};

}  // namespace tolvarfuzz

#endif  // TOLVAR_TESTS_FUZZ_SPARSE_VOLUME_INPUT_H_
