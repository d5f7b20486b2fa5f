// Windows: a snapshot's shadow copy is its shadow-copy device, found under
// one of three device paths.
#include <memory>
#include <string>

#include "core/volume_provider.h"
#include "core/vss/record_head.h"

namespace tolvarcore {

namespace {

const char kShadowCopyDevicePrefix[] = "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy{";
const char kCsvDevicePrefix[] = "\\\\?\\GLOBALROOT\\Device\\CSV{";

}  // namespace

// Tries the service's device object name, then the device named after the
// store identifier, then the cluster-volume device named after the shadow
// copy identifier of the store header record; the first that opens wins.
std::unique_ptr<ntfsparsercore::io::ISource> VolumeProvider::OpenShadowCopy(
    const std::shared_ptr<vss::Snapshot>& snapshot, const std::shared_ptr<vss::VssVolume>& storage) {
  const std::string name = snapshot->GetName();
  if (!name.empty()) {
    if (auto source = OpenDevice(name)) return source;
  }
  if (auto source = OpenDevice(kShadowCopyDevicePrefix + snapshot->GetGuid().ToString() + "}")) return source;
  auto record = storage->OpenRecord(snapshot->GetHeaderOffset());
  const vss::RecordHead head = vss::RecordHead::Read(record.get());
  return OpenDevice(kCsvDevicePrefix + head.firstIdentifier.ToString() + "}");
}

}  // namespace tolvarcore
