#include "ntfsparsercore/run_list.h"

#include <algorithm>
#include <cstring>

namespace ntfsparsercore {

namespace {

// Header byte of one mapping pair.
constexpr uint8_t kLengthSizeMask = 0x0F;  // low nibble: bytes of the cluster count
constexpr unsigned kDeltaSizeShift = 4;    // high nibble: bytes of the LCN delta
constexpr unsigned kMaxFieldBytes = 15;
constexpr unsigned kSignedDeltaMaxBytes = 8;

// A little-endian unsigned field of size bytes; bytes past the eighth fall
// outside 64 bits and are dropped rather than shifted past the width.
uint64_t LoadField(const uint8_t* bytes, unsigned size) {
  uint64_t value = 0;
  for (unsigned i = 0; i < size && i < 8; ++i) value |= static_cast<uint64_t>(bytes[i]) << (8 * i);
  return value;
}

// The sign test as the format's readers have always done it: a 32-bit mask
// shifted by (8F - 1) mod 32, then sign-extended.
bool IsNegativeDelta(uint64_t delta, unsigned size) {
  const uint32_t bit = 1u << ((8 * size - 1) % 32);
  const uint64_t mask = static_cast<uint64_t>(static_cast<int64_t>(static_cast<int32_t>(bit)));
  return (delta & mask) != 0;
}

// 1 plus the sum of (255 - b_i) << 8i: the magnitude of a negative delta.
uint64_t NegativeMagnitude(const uint8_t* bytes, unsigned size) {
  uint64_t magnitude = 1;
  for (unsigned i = 0; i < size; ++i) magnitude += static_cast<uint64_t>(255 - bytes[i]) << (8 * i);
  return magnitude;
}

// Decodes mapping pairs read through read(buffer, count, position), which
// returns how many bytes it delivered.
template <typename ReadAt>
void DecodeMappingPairs(const ReadAt& read, uint64_t clusterSize, RunList* runs) {
  uint64_t position = 0;
  uint64_t lcn = 0;
  for (;;) {
    uint8_t header = 0;
    // A header byte that cannot be read ends the list like a 0 byte.
    if (read(&header, 1, position) != 1 || header == 0) break;
    const unsigned lengthSize = header & kLengthSizeMask;
    const unsigned deltaSize = header >> kDeltaSizeShift;
    uint8_t field[2 * kMaxFieldBytes] = {};  // a short read leaves zeros
    read(field, lengthSize + deltaSize, position + 1);
    const uint64_t clusters = LoadField(field, lengthSize);
    const uint8_t* deltaBytes = field + lengthSize;
    uint64_t delta = LoadField(deltaBytes, deltaSize);
    position += 1 + lengthSize + deltaSize;
    if (deltaSize >= 1 && deltaSize <= kSignedDeltaMaxBytes && IsNegativeDelta(delta, deltaSize)) {
      delta = 0 - NegativeMagnitude(deltaBytes, deltaSize);
    }
    Run run;
    run.length = clusters * clusterSize;
    if (deltaSize != 0) {
      lcn += delta;
      run.volumeOffset = lcn * clusterSize;
    }
    runs->push_back(run);
  }
}

}  // namespace

RunList DecodeRunList(const AttributeRecord& record, uint64_t clusterSize) {
  RunList runs;
  AppendRuns(record, clusterSize, &runs);
  return runs;
}

void AppendRuns(const AttributeRecord& record, uint64_t clusterSize, RunList* runs) {
  DecodeMappingPairs(
      [&record](void* buffer, uint64_t count, uint64_t position) { return record.Read(buffer, count, position); },
      clusterSize, runs);
}

void AppendRuns(const uint8_t* pairs, uint64_t size, uint64_t clusterSize, RunList* runs) {
  DecodeMappingPairs(
      [pairs, size](void* buffer, uint64_t count, uint64_t position) -> uint64_t {
        if (position >= size) return 0;
        const uint64_t n = std::min(count, size - position);
        std::memcpy(buffer, pairs + position, static_cast<std::size_t>(n));
        return n;
      },
      clusterSize, runs);
}

RunList BuildRunList(const Attribute& attribute, uint64_t clusterSize) {
  RunList runs;
  for (const auto& record : attribute.GetRecords()) {
    if (record) AppendRuns(*record, clusterSize, &runs);
  }
  return runs;
}

}  // namespace ntfsparsercore
