#include "ntfsparsercore/attributes/readers/lznt1_decoder.h"

#include <algorithm>
#include <cstring>

#include "ntfsparsercore/io/little_endian.h"

namespace ntfsparsercore {
namespace attributes {
namespace readers {

Lznt1Decoder::ChunkResult Lznt1Decoder::DecodeChunk(const uint8_t* input, uint64_t available, uint8_t* output,
                                                    uint64_t outputStart, uint64_t capacity, uint64_t position,
                                                    uint64_t clusterSize) {
  ChunkResult result;
  if (available < kHeaderSize) return result;
  const uint16_t header = io::LoadLe16(input);
  const uint64_t chunkLength = (header & kLengthMask) + 3u;
  if (header == 0) {
    // A cluster size of 0 would divide by zero: the rest of the input is taken as used.
    result.consumed = clusterSize == 0 ? available : clusterSize - position % clusterSize;
    return result;
  }
  if (available < chunkLength) return result;
  result.consumed = chunkLength;
  if ((header & kCompressedFlag) == 0) {
    const uint64_t count = (header & kLengthMask) + 1u;
    // Stored bytes that would land past the output are dropped.
    const uint64_t room = outputStart < capacity ? capacity - outputStart : 0;
    result.produced = std::min(count, room);
    std::memcpy(output + outputStart, input + kHeaderSize, static_cast<std::size_t>(result.produced));
    return result;
  }
  result.produced = DecodeItems(input, available, chunkLength, output, outputStart, capacity);
  return result;
}

uint64_t Lznt1Decoder::DecodeItems(const uint8_t* input, uint64_t available, uint64_t chunkEnd, uint8_t* output,
                                   uint64_t outputStart, uint64_t capacity) {
  uint64_t in = kHeaderSize;
  uint64_t p = 0;
  while (in < chunkEnd) {
    const uint8_t flags = input[in++];
    for (unsigned bit = 0; bit < 8; ++bit) {
      if (in >= chunkEnd) return p;
      // Output past the buffer would be written out of bounds: the chunk ends there.
      if (outputStart + p >= capacity) return p;
      if ((flags & (1u << bit)) == 0) {
        output[outputStart + p++] = input[in++];
        continue;
      }
      // A copy token whose second byte lies past the input cannot be read.
      if (in + 1 >= available) return p;
      const uint16_t token = io::LoadLe16(input + in);
      in += 2;
      unsigned k = 0;
      for (uint64_t v = p == 0 ? 0 : p - 1; v >= kPositionThreshold; v >>= 1) ++k;
      // Beyond 4096 bytes of chunk output the split would shift by a negative count.
      k = std::min(k, kMaxDisplacementShift);
      const uint64_t displacement = (token >> (kMaxDisplacementShift - k)) + 1u;
      const uint64_t length = (token & (kLengthMask >> k)) + kMinCopyLength;
      for (uint64_t j = 0; j < length; ++j) {
        if (outputStart + p >= capacity) return p;
        const uint64_t at = outputStart + p;
        // A back-reference before the start of the output reads zeros.
        output[at] = displacement <= at ? output[at - displacement] : 0;
        ++p;
      }
    }
  }
  return p;
}

uint64_t Lznt1Decoder::ExpandUnit(const uint8_t* stored, uint64_t storedSize, uint8_t* output, uint64_t capacity,
                                  uint64_t volumeOffset, uint64_t clusterSize) {
  uint64_t consumed = 0;
  uint64_t produced = 0;
  while (consumed < storedSize) {
    const ChunkResult chunk = DecodeChunk(stored + consumed, storedSize - consumed, output, produced, capacity,
                                          produced + volumeOffset, clusterSize);
    if (chunk.consumed == 0) break;
    produced += chunk.produced;
    consumed += chunk.consumed;
    if (produced == capacity) return capacity;
  }
  return produced;
}

}  // namespace readers
}  // namespace attributes
}  // namespace ntfsparsercore
