#include "core/volume_provider.h"

#include "common/error_queue.h"

using tolvarcommon::kErrorStore;
using tolvarcommon::ReportCodedError;

namespace tolvarcore {

VolumeProvider::VolumeProvider(std::shared_ptr<ntfsparsercore::io::SourceFactory> factory)
    : factory_(std::move(factory)) {}

VolumeProvider::VolumeProvider(std::shared_ptr<ntfsparsercore::io::SourceFactory> factory, VolumeEnumerator enumerator)
    : factory_(std::move(factory)), enumerator_(enumerator) {}

VolumeProvider::~VolumeProvider() = default;

std::unique_ptr<ntfsparsercore::io::ISource> VolumeProvider::OpenDevice(const std::string& path) {
  std::unique_ptr<ntfsparsercore::io::ISource> source = factory_->Open(path.c_str());
  if (!source) return nullptr;
  return factory_->CreateCacheProxy(std::move(source), lineSize_);
}

std::shared_ptr<vss::VssVolume> VolumeProvider::OpenVolume(const std::string& path) {
  std::string device = path;
  if (!device.empty() && device.back() == '\\') device.pop_back();
  std::shared_ptr<ntfsparsercore::io::ISource> source(OpenDevice(device));
  if (!source) return nullptr;
  auto volume = std::make_shared<vss::VssVolume>(source);
  if (volume->GetStoreVolumeIdentifier().IsZero()) {
    ReportCodedError(kErrorStore, "Invalid storage with empty guid");
    return nullptr;
  }
  return volume;
}

std::shared_ptr<vss::VssVolume> VolumeProvider::FindStorage(const std::shared_ptr<vss::VssVolume>& volume) {
  const vss::Guid wanted = volume->GetStoreVolumeIdentifier();
  if (wanted.IsZero()) {
    ReportCodedError(kErrorStore, "Unable to find storage by empty guid");
    return nullptr;
  }
  if (volume->GetVolumeIdentifier() == wanted) return volume;

  std::shared_ptr<vss::VssVolume> storage;
  enumerator_.ForEach([&](const std::string& path) {
    auto candidate = OpenVolume(path);
    if (candidate && candidate->GetVolumeIdentifier() == wanted) storage = candidate;
    return storage != nullptr;
  });
  return storage;
}

}  // namespace tolvarcore
