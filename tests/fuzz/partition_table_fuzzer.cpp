// The partition-table parser and the volume picks on it: the input is the
// first bytes of a disk (MBR with extended boot records, or GPT).
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "common/error_queue.h"
#include "ntfsparsercore/io/partition_table.h"
#include "ntfsparsercore/io/volume_locator.h"
#include "tests/fixtures/memory_source.h"

using ntfsparsercore::io::PartitionTable;
using ntfsparsercore::io::VolumeLocator;
using ntfsparsercore::io::VolumeName;

namespace {
constexpr uint64_t kPicksTried = 8;  // partition numbers 1 to 8, the primaries and the first logicals
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  tolvarcommon::CreateErrorQueue();
  auto disk = std::make_shared<tolvartest::MemorySource>(std::vector<uint8_t>(data, data + size));
  PartitionTable table;
  std::string error;
  PartitionTable::Read(*disk, &table, &error);
  VolumeLocator::Locate(disk, VolumeName{"disk", VolumeName::Pick::kWhole, 0});
  for (uint64_t number = 1; number <= kPicksTried; ++number) {
    VolumeLocator::Locate(disk, VolumeName{"disk", VolumeName::Pick::kPartition, number});
  }
  for (const auto& partition : table.partitions) {
    VolumeLocator::Locate(disk, VolumeName{"disk", VolumeName::Pick::kOffset, partition.start});
  }
  tolvarcommon::DestroyErrorQueue();
  return 0;
}
