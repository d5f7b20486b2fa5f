#include "cli/snapshot_reader.h"

#include <cstdio>
#include <utility>

#include "cli/error_report.h"
#include "cli/shadow_copy_view.h"
#include "common/error_queue.h"
#include "core/vss/records/catalog.h"
#include "core/vss/service/vss_context.h"
#include "core/vss/snapshot_sequence.h"
#include "ntfsparsercore/io/source_factory.h"

using tolvarcommon::CreateErrorQueue;
using tolvarcommon::kErrorIo;
using tolvarcommon::ReportError;

namespace tolvarcli {

bool SnapshotReader::Open(const std::string& volume, const std::string& snapshot) {
  snapshot_ = snapshot;
  CreateErrorQueue();
  if (OpenView(volume, snapshot)) return true;
  ErrorReport::PrintFailureText("cannot open shadow copy " + snapshot + " of " + volume);
  return false;
}

bool SnapshotReader::OpenView(const std::string& volume, const std::string& snapshot) {
  provider_ = std::make_unique<tolvarcore::VolumeProvider>(std::make_shared<ntfsparsercore::io::SourceFactory>());
  auto opened = provider_->OpenVolume(volume);
  if (!opened) {
    ReportError(kErrorIo, "Can't open volume %s", volume.c_str());
    return false;
  }
  storage_ = provider_->FindStorage(opened);
  if (!storage_) {
    ReportError(kErrorIo, "Can't open storage");
    return false;
  }
  // A sequence from the shadow copy to itself is that one snapshot.
  tolvarcore::vss::records::Catalog catalog(storage_->OpenRecord(storage_->GetCatalogOffset()));
  tolvarcore::vss::service::VssContext context(storage_);
  tolvarcore::vss::SnapshotList sequence = tolvarcore::vss::BuildSnapshotList(catalog);
  if (!tolvarcore::vss::BuildSnapshotSequence({snapshot, snapshot}, context, *storage_, &sequence)) return false;
  view_ = OpenShadowCopyView(*provider_, sequence.back(), storage_);
  if (!view_) {
    ReportError(kErrorIo, "Can't open shadow copy as a source");
    return false;
  }
  return true;
}

bool SnapshotReader::ReadExactly(void* buffer, uint64_t size, uint64_t offset) {
  if (view_->Read(buffer, size, offset) == size) return true;
  ErrorReport::PrintFailureText("cannot read shadow copy " + snapshot_ + " at byte " + std::to_string(offset));
  return false;
}

}  // namespace tolvarcli
