#include "cli/shadow_copy_catalog.h"

#include <cstdio>

#include "cli/error_report.h"
#include "common/error_queue.h"
#include "core/volume_provider.h"
#include "core/vss/record_head.h"
#include "core/vss/records/catalog.h"
#include "core/vss/service/vss_context.h"
#include "core/vss/snapshot_sequence.h"

using tolvarcommon::CreateErrorQueue;
using tolvarcommon::kErrorIo;
using tolvarcommon::ReportError;

namespace tolvarcli {

namespace {

using tolvarcore::vss::Guid;

Guid ShadowCopyOf(tolvarcore::vss::service::VssContext& context, const tolvarcore::vss::RecordHead& head) {
  for (const auto& properties : context.GetSnapshots()) {
    if (properties.setIdentifier == head.setIdentifier) return properties.snapshotIdentifier;
  }
  return head.firstIdentifier;
}

}  // namespace

bool ShadowCopyCatalog::Read(const std::string& path) {
  CreateErrorQueue();
  tolvarcore::VolumeProvider provider(std::make_shared<ntfsparsercore::io::SourceFactory>());
  auto volume = provider.OpenVolume(path);
  if (!volume) {
    ReportError(kErrorIo, "Can't open volume %s", path.c_str());
    ErrorReport::PrintFailureText("cannot read the shadow-copy store of " + path);
    return false;
  }
  storage_ = provider.FindStorage(volume);
  if (!storage_) {
    ReportError(kErrorIo, "Can't open storage");
    ErrorReport::PrintFailureText("cannot find the volume that holds the shadow copies of " + path);
    return false;
  }
  tolvarcore::vss::records::Catalog catalog(storage_->OpenRecord(storage_->GetCatalogOffset()));
  tolvarcore::vss::service::VssContext context(storage_);
  for (const auto& snapshot : tolvarcore::vss::BuildSnapshotList(catalog)) {
    auto record = storage_->OpenRecord(snapshot->GetHeaderOffset());
    const auto head = tolvarcore::vss::RecordHead::Read(record.get());
    entries_.push_back({ShadowCopyOf(context, head), head.setIdentifier, snapshot->GetGuid(), snapshot->GetVolumeSize(),
                        snapshot->GetCreationTime()});
  }
  // Any message means part of the store could not be read: the list would be incomplete.
  const auto records = ErrorReport::DrainQueue();
  if (!records.empty()) {
    ErrorReport::PrintRecords(records);
    std::fprintf(stderr, "tolvar: the shadow-copy store of %s could not be read\n", path.c_str());
    return false;
  }
  return true;
}

}  // namespace tolvarcli
