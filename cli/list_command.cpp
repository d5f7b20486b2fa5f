// Lists shadow copies. The exports have no call for this, so it reads the
// store through the library's core, the way Init does: open the volume,
// find its storage, read the catalog, and name each snapshot by the
// shadow-copy service's identifier (on POSIX, the store's own). Given a
// whole disk, it lists the partition table and the shadow copies of each
// NTFS partition.
#include "cli/list_command.h"

#include <cstdio>
#include <memory>

#include "cli/error_report.h"
#include "cli/exit_code.h"
#include "cli/json_text.h"
#include "cli/utc_time.h"
#include "cli/volume_selection.h"
#include "common/error_queue.h"
#include "core/volume_provider.h"
#include "core/vss/record_head.h"
#include "core/vss/records/catalog.h"
#include "core/vss/service/vss_context.h"
#include "core/vss/snapshot_sequence.h"
#include "ntfsparsercore/io/image_opener.h"
#include "ntfsparsercore/io/little_endian.h"
#include "ntfsparsercore/io/partition_table.h"
#include "ntfsparsercore/io/volume_locator.h"
#include "ntfsparsercore/io/volume_name.h"

using ntfsparsercore::io::ImageOpener;
using ntfsparsercore::io::ISource;
using ntfsparsercore::io::PartitionTable;
using ntfsparsercore::io::VolumeName;
using tolvarcommon::CreateErrorQueue;
using tolvarcommon::kErrorIo;
using tolvarcommon::ReportError;

namespace tolvarcli {

namespace {

using tolvarcore::vss::Guid;

// The store information (payload of a store header record): its attribute flags.
constexpr uint64_t kAttributeFlagsOffset = 56;

// One row of the listing.
struct ShadowCopyRow {
  Guid shadowCopy;          // the ID that diff and backup take
  Guid set;                 // the snapshot set it belongs to
  Guid store;               // the store identifier of the catalog
  uint64_t volumeSize;      // bytes, from the catalog's definition
  uint64_t creationTime;    // FILETIME, from the catalog's definition
  uint32_t attributeFlags;  // from the store information
};

// One NTFS volume of a disk and what listing it gave.
struct VolumeListing {
  std::string name;                 // as Init takes it
  bool listed = false;              // a store was found and read
  std::vector<ShadowCopyRow> rows;  // when listed
};

Guid ShadowCopyOf(tolvarcore::vss::service::VssContext& context, const tolvarcore::vss::RecordHead& head) {
  for (const auto& properties : context.GetSnapshots()) {
    if (properties.setIdentifier == head.setIdentifier) return properties.snapshotIdentifier;
  }
  return head.firstIdentifier;
}

uint32_t AttributeFlags(tolvarcore::vss::VssRecord* record) {
  uint8_t bytes[4] = {};
  if (record == nullptr || record->Read(bytes, sizeof(bytes), kAttributeFlagsOffset) != sizeof(bytes)) {
    ReportError(kErrorIo, "Failed to read header record");
  }
  return ntfsparsercore::io::LoadLe32(bytes);
}

const tolvarcore::vss::records::SnapshotDefinition* DefinitionOf(const tolvarcore::vss::records::Catalog& catalog,
                                                                 const Guid& store) {
  for (const auto& definition : catalog.GetDefinitions()) {
    if (definition.storeIdentifier == store) return &definition;
  }
  return nullptr;
}

// The shadow copies of the volume that name names. False, with the failure
// printed, when it has no readable store.
bool ReadRows(const std::string& name, std::vector<ShadowCopyRow>* rows) {
  CreateErrorQueue();
  tolvarcore::VolumeProvider provider(std::make_shared<ntfsparsercore::io::SourceFactory>());
  auto volume = provider.OpenVolume(name);
  if (!volume) {
    ReportError(kErrorIo, "Can't open volume %s", name.c_str());
    ErrorReport::PrintFailureText("cannot read the shadow-copy store of " + name);
    return false;
  }
  auto storage = provider.FindStorage(volume);
  if (!storage) {
    ReportError(kErrorIo, "Can't open storage");
    ErrorReport::PrintFailureText("cannot find the volume that holds the shadow copies of " + name);
    return false;
  }
  tolvarcore::vss::records::Catalog catalog(storage->OpenRecord(storage->GetCatalogOffset()));
  tolvarcore::vss::service::VssContext context(storage);
  for (const auto& snapshot : tolvarcore::vss::BuildSnapshotList(catalog)) {
    auto record = storage->OpenRecord(snapshot->GetHeaderOffset());
    const auto head = tolvarcore::vss::RecordHead::Read(record.get());
    const auto* definition = DefinitionOf(catalog, snapshot->GetGuid());
    rows->push_back({ShadowCopyOf(context, head), head.setIdentifier, snapshot->GetGuid(), snapshot->GetVolumeSize(),
                     definition ? definition->creationTime : 0, AttributeFlags(record.get())});
  }
  // Any message means part of the store could not be read: the list would be incomplete.
  const auto records = ErrorReport::DrainQueue();
  if (!records.empty()) {
    ErrorReport::PrintRecords(records);
    std::fprintf(stderr, "tolvar: the shadow-copy store of %s could not be read\n", name.c_str());
    return false;
  }
  return true;
}

void PrintTable(const std::vector<ShadowCopyRow>& rows) {
  std::printf("%-3s %-36s  %-36s  %-36s  %-12s  %-20s  %s\n", "#", "SHADOW COPY ID", "SET ID", "STORE ID",
              "VOLUME SIZE", "CREATED (UTC)", "ATTRIBUTES");
  for (std::size_t i = 0; i < rows.size(); ++i) {
    std::printf("%-3zu %-36s  %-36s  %-36s  %-12llu  %-20s  0x%08x\n", i + 1, rows[i].shadowCopy.ToString().c_str(),
                rows[i].set.ToString().c_str(), rows[i].store.ToString().c_str(),
                static_cast<unsigned long long>(rows[i].volumeSize), UtcTime::Seconds(rows[i].creationTime).c_str(),
                rows[i].attributeFlags);
  }
}

std::string JsonRows(const std::vector<ShadowCopyRow>& rows, const char* indent, const char* closing) {
  std::string text = "[";
  for (std::size_t i = 0; i < rows.size(); ++i) {
    char line[512];
    std::snprintf(line, sizeof(line),
                  "%s\n%s{\"order\": %zu, \"shadow_copy_id\": \"%s\", \"set_id\": \"%s\", "
                  "\"store_identifier\": \"%s\", \"volume_size\": %llu, \"created\": \"%s\", "
                  "\"attribute_flags\": %u}",
                  i ? "," : "", indent, i + 1, rows[i].shadowCopy.ToString().c_str(), rows[i].set.ToString().c_str(),
                  rows[i].store.ToString().c_str(), static_cast<unsigned long long>(rows[i].volumeSize),
                  UtcTime::Ticks(rows[i].creationTime).c_str(), static_cast<unsigned>(rows[i].attributeFlags));
    text += line;
  }
  return text + (rows.empty() ? "]" : "\n" + std::string(closing) + "]");
}

int ListVolume(const std::string& name, bool json) {
  std::vector<ShadowCopyRow> rows;
  if (!ReadRows(name, &rows)) return kExitLibrary;
  if (json) {
    std::printf("{\"volume\": %s, \"shadow_copies\": %s}\n", JsonText(name).c_str(), JsonRows(rows, "  ", "").c_str());
  } else {
    PrintTable(rows);
  }
  return kExitOk;
}

void PrintPartitionTable(const std::string& path, const PartitionTable& table, const std::vector<bool>& ntfs) {
  std::printf("%s: %s disk, %llu bytes\n", path.c_str(), table.SchemeName(),
              static_cast<unsigned long long>(table.diskSize));
  std::printf("%-3s %-14s  %-14s  %-4s  %s\n", "#", "START", "LENGTH", "NTFS", "TYPE");
  for (std::size_t i = 0; i < table.partitions.size(); ++i) {
    const auto& partition = table.partitions[i];
    std::string type = partition.type;
    if (!partition.typeName.empty()) type += " (" + partition.typeName + ")";
    if (partition.pastEnd) type += ", past the end of the disk";
    std::printf("%-3u %-14llu  %-14llu  %-4s  %s\n", partition.number, static_cast<unsigned long long>(partition.start),
                static_cast<unsigned long long>(partition.length), ntfs[i] ? "yes" : "no", type.c_str());
  }
}

// The partition table, then each NTFS partition's shadow copies. A
// partition without a store says so; one whose store cannot be read fails
// the command after the others are listed.
int ListDisk(const std::string& path, ISource& disk, const PartitionTable& table, bool json) {
  std::vector<bool> ntfs;
  std::vector<VolumeListing> listings(table.partitions.size());
  bool failed = false;
  for (std::size_t i = 0; i < table.partitions.size(); ++i) {
    const auto& partition = table.partitions[i];
    ntfs.push_back(!partition.container && !partition.pastEnd &&
                   PartitionTable::HasNtfsBootSector(disk, partition.start));
    if (!ntfs.back()) continue;
    listings[i].name = VolumeName{path, VolumeName::Pick::kPartition, partition.number}.ToString();
    std::shared_ptr<ISource> volume = ImageOpener::OpenVolume(listings[i].name);
    if (!volume || !VolumeSelection::HoldsStore(volume)) continue;
    listings[i].listed = ReadRows(listings[i].name, &listings[i].rows);
    failed = failed || !listings[i].listed;
  }
  if (json) {
    std::printf("{\"image\": %s, \"scheme\": \"%s\", \"disk_size\": %llu, \"partitions\": [", JsonText(path).c_str(),
                table.SchemeName(), static_cast<unsigned long long>(table.diskSize));
    for (std::size_t i = 0; i < table.partitions.size(); ++i) {
      const auto& partition = table.partitions[i];
      std::printf(
          "%s\n  {\"number\": %u, \"start\": %llu, \"length\": %llu, \"type\": \"%s\", \"type_name\": %s, "
          "\"past_end\": %s, \"ntfs\": %s, \"volume\": %s, \"shadow_copies\": %s}",
          i ? "," : "", partition.number, static_cast<unsigned long long>(partition.start),
          static_cast<unsigned long long>(partition.length), partition.type.c_str(),
          JsonText(partition.typeName).c_str(), partition.pastEnd ? "true" : "false", ntfs[i] ? "true" : "false",
          ntfs[i] ? JsonText(listings[i].name).c_str() : "null",
          listings[i].listed ? JsonRows(listings[i].rows, "    ", "  ").c_str() : "null");
    }
    std::printf("%s]}\n", table.partitions.empty() ? "" : "\n");
  } else {
    PrintPartitionTable(path, table, ntfs);
    for (std::size_t i = 0; i < table.partitions.size(); ++i) {
      if (!ntfs[i]) continue;
      std::printf("\npartition %u (%s):", table.partitions[i].number, listings[i].name.c_str());
      if (!listings[i].listed) {
        std::printf(" no shadow-copy store\n");
        continue;
      }
      std::printf("\n");
      PrintTable(listings[i].rows);
    }
  }
  return failed ? kExitLibrary : kExitOk;
}

}  // namespace

CommandLine::Grammar ListCommand::Grammar() { return VolumeSelection::WithOptions({1, {"--json"}, {}}); }

int ListCommand::Run(const CommandLine& arguments) {
  const std::string& path = arguments.Positional(0);
  const bool json = arguments.Has("--json");
  const bool picked = !arguments.Values("--partition").empty() || !arguments.Values("--offset").empty() ||
                      ImageOpener::ParseName(path).pick != VolumeName::Pick::kWhole;
  if (!picked) {
    CreateErrorQueue();
    std::unique_ptr<ISource> disk = ImageOpener::OpenContainer(path);
    if (!disk) {
      ErrorReport::PrintRecords(ErrorReport::DrainQueue());
      return kExitVolume;
    }
    PartitionTable table;
    std::string error;
    if (!PartitionTable::HasNtfsBootSector(*disk, 0)) {
      if (!PartitionTable::Read(*disk, &table, &error)) {
        std::fprintf(stderr, "tolvar: %s: damaged partition table: %s\n", path.c_str(), error.c_str());
        return kExitVolume;
      }
      if (table.scheme != PartitionTable::Scheme::kNone) return ListDisk(path, *disk, table, json);
    }
  }
  std::string name;
  const int resolved = VolumeSelection::Resolve(path, arguments, &name);
  if (resolved != kExitOk) return resolved;
  return ListVolume(name, json);
}

}  // namespace tolvarcli
