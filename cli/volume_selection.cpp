#include "cli/volume_selection.h"

#include <cstdio>

#include "cli/error_report.h"
#include "cli/exit_code.h"
#include "common/error_queue.h"
#include "core/volume_provider.h"
#include "core/vss/vss_volume.h"
#include "ntfsparsercore/io/cache_proxy.h"
#include "ntfsparsercore/io/image_opener.h"
#include "ntfsparsercore/io/volume_locator.h"
#include "ntfsparsercore/io/volume_name.h"
#include "ntfsparsercore/io/window_source.h"

using ntfsparsercore::io::ImageOpener;
using ntfsparsercore::io::ISource;
using ntfsparsercore::io::PartitionTable;
using ntfsparsercore::io::VolumeLocator;
using ntfsparsercore::io::VolumeName;

namespace tolvarcli {

namespace {

constexpr uint64_t kLargestNumber = static_cast<uint64_t>(INT64_MAX);

// The queue's records, each on its own line.
int PrintOpenFailure() {
  ErrorReport::PrintRecords(ErrorReport::DrainQueue());
  return kExitVolume;
}

}  // namespace

CommandLine::Grammar VolumeSelection::WithOptions(CommandLine::Grammar grammar) {
  grammar.valueOptions.insert("--partition");
  grammar.valueOptions.insert("--offset");
  return grammar;
}

bool VolumeSelection::NumberOption(const CommandLine& arguments, const std::string& option, uint64_t* value,
                                   bool* given) {
  const std::string text = arguments.Value(option, "");
  *given = !arguments.Values(option).empty();
  if (!*given) return true;
  uint64_t result = 0;
  bool valid = !text.empty();
  for (char c : text) {
    const uint64_t digit = static_cast<uint64_t>(c - '0');
    if (c < '0' || c > '9' || result > (kLargestNumber - digit) / 10) {
      valid = false;
      break;
    }
    result = result * 10 + digit;
  }
  if (!valid) {
    std::fprintf(stderr, "tolvar: %s takes a number (decimal), not '%s'\n", option.c_str(), text.c_str());
    return false;
  }
  *value = result;
  return true;
}

bool VolumeSelection::HoldsStore(const std::shared_ptr<ISource>& volume) {
  tolvarcommon::ScopedErrorQueueSuspension quiet;
  auto cached = std::make_shared<ntfsparsercore::io::CacheProxy>(volume, tolvarcore::VolumeProvider::kLineSize);
  tolvarcore::vss::VssVolume store(cached);
  return !store.GetStoreVolumeIdentifier().IsZero();
}

int VolumeSelection::Resolve(const std::string& volume, const CommandLine& arguments, std::string* name) {
  uint64_t partition = 0;
  uint64_t offset = 0;
  bool byPartition = false;
  bool byOffset = false;
  if (!NumberOption(arguments, "--partition", &partition, &byPartition) ||
      !NumberOption(arguments, "--offset", &offset, &byOffset)) {
    return kExitUsage;
  }
  if (byPartition && byOffset) {
    std::fprintf(stderr, "tolvar: give either --partition or --offset, not both\n");
    return kExitUsage;
  }
  if (byPartition && partition == 0) {
    std::fprintf(stderr, "tolvar: --partition counts from 1, as fdisk and mmls do\n");
    return kExitUsage;
  }
  VolumeName parsed = ImageOpener::ParseName(volume);
  if ((byPartition || byOffset) && parsed.pick != VolumeName::Pick::kWhole) {
    std::fprintf(stderr, "tolvar: %s already picks a volume; give no --partition or --offset with it\n",
                 volume.c_str());
    return kExitUsage;
  }
  if (byPartition || byOffset) {
    parsed.pick = byPartition ? VolumeName::Pick::kPartition : VolumeName::Pick::kOffset;
    parsed.value = byPartition ? partition : offset;
    *name = parsed.ToString();
    return Check(*name);
  }
  if (parsed.pick != VolumeName::Pick::kWhole) {
    *name = volume;
    return Check(*name);
  }
  return AutoSelect(volume, name);
}

// A volume named with a pick: it must open and hold a store.
int VolumeSelection::Check(const std::string& name) {
  tolvarcommon::CreateErrorQueue();
  std::shared_ptr<ISource> source = ImageOpener::OpenVolume(name);
  if (!source) return PrintOpenFailure();
  if (!HoldsStore(source)) {
    std::fprintf(stderr, "tolvar: %s: the volume holds no shadow-copy store\n", name.c_str());
    return kExitVolume;
  }
  return kExitOk;
}

// No pick: a volume is used as it is; a disk must have exactly one NTFS
// partition with a store.
int VolumeSelection::AutoSelect(const std::string& volume, std::string* name) {
  tolvarcommon::CreateErrorQueue();
  std::shared_ptr<ISource> container = ImageOpener::OpenContainer(volume);
  if (!container) return PrintOpenFailure();
  PartitionTable table;
  std::string error;
  if (PartitionTable::HasNtfsBootSector(*container, 0)) {
    *name = volume;
    if (HoldsStore(container)) return kExitOk;
    std::fprintf(stderr, "tolvar: %s: the volume holds no shadow-copy store\n", volume.c_str());
    return kExitVolume;
  }
  if (!PartitionTable::Read(*container, &table, &error)) {
    std::fprintf(stderr, "tolvar: %s: damaged partition table: %s\n", volume.c_str(), error.c_str());
    return kExitVolume;
  }
  if (table.scheme == PartitionTable::Scheme::kNone) {
    std::fprintf(stderr, "tolvar: %s holds neither an NTFS volume nor a partition table\n", volume.c_str());
    return kExitVolume;
  }
  const std::vector<uint32_t> ntfs = VolumeLocator::NtfsPartitions(*container, table);
  std::vector<uint32_t> withStore;
  for (uint32_t number : ntfs) {
    const auto* partition = table.Find(number);
    auto window = std::make_shared<ntfsparsercore::io::WindowSource>(container, partition->start, partition->length);
    if (HoldsStore(window)) withStore.push_back(number);
  }
  if (withStore.size() != 1) {
    if (withStore.empty()) {
      std::fprintf(stderr, "tolvar: %s: no NTFS partition holds a shadow-copy store (NTFS partitions: %s)\n",
                   volume.c_str(), VolumeLocator::NumberList(ntfs).c_str());
    } else {
      std::fprintf(stderr, "tolvar: %s: partitions %s hold shadow-copy stores; pick one with --partition N\n",
                   volume.c_str(), VolumeLocator::NumberList(withStore).c_str());
    }
    return kExitVolume;
  }
  const auto* chosen = table.Find(withStore[0]);
  VolumeName picked{volume, VolumeName::Pick::kPartition, chosen->number};
  *name = picked.ToString();
  std::fprintf(stderr, "tolvar: using partition %u of %s (%s, bytes %llu to %llu), the one with shadow copies\n",
               chosen->number, volume.c_str(), table.SchemeName(), static_cast<unsigned long long>(chosen->start),
               static_cast<unsigned long long>(chosen->start + chosen->length));
  return kExitOk;
}

}  // namespace tolvarcli
