// The LZNT1 decoder alone: the input's first byte picks the unit size and
// cluster size, the rest is the stored bytes of one compression unit.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "ntfsparsercore/attributes/readers/lznt1_decoder.h"

namespace {
constexpr uint64_t kClusterSizes[] = {512, 1024, 2048, 4096};
constexpr uint64_t kClustersPerUnit = 16;
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  uint64_t clusterSize = kClusterSizes[data[0] & 3];
  uint64_t capacity = clusterSize * kClustersPerUnit;
  uint64_t volumeOffset = static_cast<uint64_t>(data[0] >> 2) * clusterSize;
  std::vector<uint8_t> output(capacity);
  ntfsparsercore::attributes::readers::Lznt1Decoder::ExpandUnit(data + 1, size - 1, output.data(), capacity,
                                                                volumeOffset, clusterSize);
  return 0;
}
