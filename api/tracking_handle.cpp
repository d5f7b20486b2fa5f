#include "api/tracking_handle.h"

namespace {

// An NTFS view over source, or empty when it cannot be opened (the reason
// is on the error queue).
std::shared_ptr<ntfsparsercore::NtfsVolume> OpenView(std::shared_ptr<ntfsparsercore::io::ISource> source) {
  return std::shared_ptr<ntfsparsercore::NtfsVolume>(
      ntfsparsercore::NtfsVolume::Create(std::move(source), TrackingHandle::kNtfsCacheBytes));
}

}  // namespace

TrackingHandle::~TrackingHandle() {
  newerVolume.reset();
  olderVolume.reset();
  blockProcessor.reset();
  volumeProvider.reset();
}

void TrackingHandle::OpenNtfsViews() {
  if (!olderVolume) olderVolume = OpenView(blockProcessor->GetOlderSource());
  if (!newerVolume) newerVolume = OpenView(blockProcessor->GetNewerSource());
}
