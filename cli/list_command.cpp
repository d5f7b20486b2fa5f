// Lists a volume's shadow copies. The exports have no call for this, so it
// reads the store through the library's core, the way Init does: open the
// volume, find its storage, read the catalog, and name each snapshot by the
// shadow-copy service's identifier (on POSIX, the store's own).
#include "cli/list_command.h"

#include <cstdio>
#include <memory>

#include "common/error_queue.h"
#include "cli/error_report.h"
#include "cli/exit_code.h"
#include "cli/json_text.h"
#include "core/volume_provider.h"
#include "core/vss/service/vss_context.h"
#include "core/vss/record_head.h"
#include "core/vss/records/catalog.h"
#include "core/vss/snapshot_sequence.h"

using tolvarcommon::CreateErrorQueue;
using tolvarcommon::kErrorIo;
using tolvarcommon::ReportError;

namespace tolvarcli {

namespace {

using tolvarcore::vss::Guid;

// One row of the listing.
struct ShadowCopyRow {
  Guid shadowCopy;      // the ID that diff and backup take
  Guid set;             // the snapshot set it belongs to
  Guid store;           // the store identifier of the catalog
  uint64_t volumeSize;  // bytes, from the catalog's definition
};

Guid ShadowCopyOf(tolvarcore::vss::service::VssContext& context, const tolvarcore::vss::RecordHead& head) {
  for (const auto& properties : context.GetSnapshots()) {
    if (properties.setIdentifier == head.setIdentifier) return properties.snapshotIdentifier;
  }
  return head.firstIdentifier;
}

void PrintTable(const std::vector<ShadowCopyRow>& rows) {
  std::printf("%-3s %-36s  %-36s  %-36s  %s\n", "#", "SHADOW COPY ID", "SET ID", "STORE ID", "VOLUME SIZE");
  for (std::size_t i = 0; i < rows.size(); ++i) {
    std::printf("%-3zu %-36s  %-36s  %-36s  %llu\n", i + 1, rows[i].shadowCopy.ToString().c_str(),
                rows[i].set.ToString().c_str(), rows[i].store.ToString().c_str(),
                static_cast<unsigned long long>(rows[i].volumeSize));
  }
}

void PrintJson(const std::string& volume, const std::vector<ShadowCopyRow>& rows) {
  std::printf("{\"volume\": %s, \"shadow_copies\": [", JsonText(volume).c_str());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    std::printf(
        "%s\n  {\"order\": %zu, \"shadow_copy_id\": \"%s\", \"set_id\": \"%s\", "
        "\"store_identifier\": \"%s\", \"volume_size\": %llu}",
        i ? "," : "", i + 1, rows[i].shadowCopy.ToString().c_str(), rows[i].set.ToString().c_str(),
        rows[i].store.ToString().c_str(), static_cast<unsigned long long>(rows[i].volumeSize));
  }
  std::printf("%s]}\n", rows.empty() ? "" : "\n");
}

}  // namespace

CommandLine::Grammar ListCommand::Grammar() { return {1, {"--json"}, {}}; }

int ListCommand::Run(const CommandLine& arguments) {
  const std::string& path = arguments.Positional(0);
  CreateErrorQueue();
  tolvarcore::VolumeProvider provider(std::make_shared<ntfsparsercore::io::SourceFactory>());
  auto volume = provider.OpenVolume(path);
  if (!volume) {
    ReportError(kErrorIo, "Can't open volume %s", path.c_str());
    ErrorReport::PrintFailureText("cannot read the shadow-copy store of " + path);
    return kExitLibrary;
  }
  auto storage = provider.FindStorage(volume);
  if (!storage) {
    ReportError(kErrorIo, "Can't open storage");
    ErrorReport::PrintFailureText("cannot find the volume that holds the shadow copies of " + path);
    return kExitLibrary;
  }
  tolvarcore::vss::records::Catalog catalog(storage->OpenRecord(storage->GetCatalogOffset()));
  tolvarcore::vss::service::VssContext context(storage);
  std::vector<ShadowCopyRow> rows;
  for (const auto& snapshot : tolvarcore::vss::BuildSnapshotList(catalog)) {
    auto record = storage->OpenRecord(snapshot->GetHeaderOffset());
    const auto head = tolvarcore::vss::RecordHead::Read(record.get());
    rows.push_back({ShadowCopyOf(context, head), head.setIdentifier, snapshot->GetGuid(), snapshot->GetVolumeSize()});
  }
  // Any message means part of the store could not be read: the list would be incomplete.
  const auto records = ErrorReport::DrainQueue();
  if (!records.empty()) {
    ErrorReport::PrintRecords(records);
    std::fprintf(stderr, "tolvar: the shadow-copy store of %s could not be read\n", path.c_str());
    return kExitLibrary;
  }
  if (arguments.Has("--json")) {
    PrintJson(path, rows);
  } else {
    PrintTable(rows);
  }
  return kExitOk;
}

}  // namespace tolvarcli
