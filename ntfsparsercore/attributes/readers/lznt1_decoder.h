// LZNT1 decompression of the chunks of one compression unit.
#ifndef TOLVAR_NTFSPARSERCORE_ATTRIBUTES_READERS_LZNT1_DECODER_H_
#define TOLVAR_NTFSPARSERCORE_ATTRIBUTES_READERS_LZNT1_DECODER_H_

#include <cstdint>

namespace ntfsparsercore {
namespace attributes {
namespace readers {

class Lznt1Decoder {
 public:
  // What decoding one chunk used up and gave.
  struct ChunkResult {
    uint64_t consumed = 0;  // input bytes, the 2-byte header included
    uint64_t produced = 0;  // output bytes
  };

  // Decodes the chunk at input (available bytes) into output + outputStart.
  // output holds capacity bytes: bytes the chunk would write at or past it
  // are dropped and end the chunk, and back-references that reach before
  // output read as zeros (back-references into earlier chunks of the unit
  // are not checked). A zero header ends the chunks of a cluster: it
  // consumes up to the next multiple of clusterSize counted from position.
  static ChunkResult DecodeChunk(const uint8_t* input, uint64_t available, uint8_t* output, uint64_t outputStart,
                                 uint64_t capacity, uint64_t position, uint64_t clusterSize);

  // Expands the stored bytes of one unit into output (capacity bytes, the
  // unit size): chunk after chunk until the input is used up, a chunk
  // consumes nothing, or the output reaches capacity. volumeOffset is the
  // unit's position on the volume, which places the cluster ends. Returns
  // the bytes produced.
  static uint64_t ExpandUnit(const uint8_t* stored, uint64_t storedSize, uint8_t* output, uint64_t capacity,
                             uint64_t volumeOffset, uint64_t clusterSize);

 private:
  // Chunk header, little-endian 16 bits.
  static constexpr uint64_t kHeaderSize = 2;
  static constexpr uint16_t kLengthMask = 0x0FFF;      // chunk length - 3, header included
  static constexpr uint16_t kCompressedFlag = 0x8000;  // items follow instead of stored bytes
  // Copy tokens: the split between displacement and length bits moves
  // with the output position inside the chunk.
  static constexpr unsigned kMaxDisplacementShift = 12;
  static constexpr uint64_t kPositionThreshold = 16;
  static constexpr uint64_t kMinCopyLength = 3;

  static uint64_t DecodeItems(const uint8_t* input, uint64_t available, uint64_t chunkEnd, uint8_t* output,
                              uint64_t outputStart, uint64_t capacity);
};

}  // namespace readers
}  // namespace attributes
}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_ATTRIBUTES_READERS_LZNT1_DECODER_H_
