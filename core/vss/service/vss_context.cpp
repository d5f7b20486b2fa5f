#include "core/vss/service/vss_context.h"

#include <utility>

#include "core/vss/vss_volume.h"

namespace tolvarcore {
namespace vss {
namespace service {

VssContext::VssContext(std::shared_ptr<VssVolume> storage)
    : holder_(std::make_shared<ContextHolder>()), collect_(PlatformCollector(std::move(storage))) {}

VssContext::VssContext(Collector collector)
    : holder_(std::make_shared<ContextHolder>()), collect_(std::move(collector)) {}

VssContext::~VssContext() {
  snapshots_.reset();
  holder_.reset();
}

const SnapshotPropertiesList& VssContext::GetSnapshots() {
  if (!snapshots_) {
    // Cached before collecting, so a failure leaves an empty, cached list.
    snapshots_ = std::make_unique<SnapshotPropertiesList>();
    if (collect_) collect_(snapshots_.get());
  }
  return *snapshots_;
}

SnapshotProperties VssContext::GetSnapshotProperties(const std::string& identifier) {
  for (const SnapshotProperties& properties : GetSnapshots()) {
    if (properties.snapshotIdentifier.ToString() == identifier) return properties;
  }
  return SnapshotProperties();
}

}  // namespace service
}  // namespace vss
}  // namespace tolvarcore
