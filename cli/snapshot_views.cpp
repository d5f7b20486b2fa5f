#include "cli/snapshot_views.h"

#include "common/error_queue.h"
#include "cli/error_report.h"
#include "core/vss/service/vss_context.h"
#include "core/vss/records/catalog.h"
#include "core/vss/snapshot_sequence.h"

namespace tolvarcli {

namespace {

std::shared_ptr<ntfsparsercore::NtfsVolume> OpenNtfs(std::shared_ptr<ntfsparsercore::io::ISource> source) {
  if (!source) return nullptr;
  return ntfsparsercore::NtfsVolume::Create(std::move(source), SnapshotViews::kNtfsCacheBytes);
}

// After a successful open the parser's messages about single records are
// the command's to word: the queue is not kept.
bool Opened() {
  tolvarcommon::DestroyErrorQueue();
  return true;
}

}  // namespace

SnapshotViews::SnapshotViews()
    : provider_(std::make_unique<tolvarcore::VolumeProvider>(std::make_shared<ntfsparsercore::io::SourceFactory>())) {}

bool SnapshotViews::Failed(const std::string& what) {
  if (!quiet_) ErrorReport::PrintFailureText(what);
  tolvarcommon::DestroyErrorQueue();
  return false;
}

SnapshotViews::~SnapshotViews() {
  newer_.reset();
  older_.reset();
  single_.reset();
  processor_.reset();
  provider_.reset();
}

std::shared_ptr<tolvarcore::BitMap> SnapshotViews::Changed() const {
  return processor_ ? processor_->GetBitmap() : nullptr;
}

bool SnapshotViews::OpenOne(const std::string& volumePath, const std::string& id, bool quiet) {
  quiet_ = quiet;
  tolvarcommon::CreateErrorQueue();
  auto volume = provider_->OpenVolume(volumePath);
  if (!volume) {
    tolvarcommon::ReportError(tolvarcommon::kErrorIo, "Can't open volume %s", volumePath.c_str());
    return Failed("cannot read the shadow-copy store of " + volumePath);
  }
  auto storage = provider_->FindStorage(volume);
  if (!storage) {
    tolvarcommon::ReportError(tolvarcommon::kErrorIo, "Can't open storage");
    return Failed("cannot find the volume that holds the shadow copies of " + volumePath);
  }
  tolvarcore::vss::records::Catalog catalog(storage->OpenRecord(storage->GetCatalogOffset()));
  tolvarcore::vss::service::VssContext context(storage);
  tolvarcore::vss::SnapshotList list = tolvarcore::vss::BuildSnapshotList(catalog);
  if (!tolvarcore::vss::BuildSnapshotSequence({id, id}, context, *storage, &list) || list.empty()) {
    return Failed("no shadow copy " + id + " on " + volumePath);
  }
  single_ = provider_->OpenShadowCopy(list.front(), storage);
  newer_ = OpenNtfs(single_);
  older_ = newer_;
  if (!newer_) {
    return Failed("shadow copy " + id + " holds no NTFS volume that can be read");
  }
  return Opened();
}

bool SnapshotViews::OpenPair(const std::string& volumePath, const std::string& from, const std::string& to) {
  tolvarcommon::CreateErrorQueue();
  auto volume = provider_->OpenVolume(volumePath);
  if (!volume) {
    tolvarcommon::ReportError(tolvarcommon::kErrorIo, "Can't open volume %s", volumePath.c_str());
    ErrorReport::PrintFailureText("cannot read the shadow-copy store of " + volumePath);
    return false;
  }
  auto storage = provider_->FindStorage(volume);
  if (!storage) {
    tolvarcommon::ReportError(tolvarcommon::kErrorIo, "Can't open storage");
    ErrorReport::PrintFailureText("cannot find the volume that holds the shadow copies of " + volumePath);
    return false;
  }
  tolvarcore::vss::service::VssContext context(storage);
  processor_ = std::make_unique<tolvarcore::BlockProcessor>(kBlockSize, 0);
  if (processor_->Compute(context, *provider_, volume, storage, {from, to}) != tolvarcore::WorkerResult::kOk) {
    ErrorReport::PrintFailureText("cannot compute the changed blocks from " + from + " to " + to);
    return false;
  }
  older_ = OpenNtfs(processor_->GetOlderSource());
  newer_ = OpenNtfs(processor_->GetNewerSource());
  if (!older_ || !newer_) {
    ErrorReport::PrintFailureText("a shadow copy holds no NTFS volume that can be read");
    return false;
  }
  return Opened();
}

}  // namespace tolvarcli
