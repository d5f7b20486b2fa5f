// Windows: the snapshot properties come from the Volume Shadow Copy
// Service, asked once through COM and the VSS API.
#include <windows.h>
#include <vsbackup.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "core/vss/service/vss_context.h"
#include "core/vss/service/vss_service_win32.h"
#include "core/vss/vss_volume.h"
#include "ntfsparsercore/utf16_name.h"

namespace tolvarcore {
namespace vss {
namespace service {

namespace {

class SystemVssService : public IVssService {
 public:
  SystemVssService() = default;
  SystemVssService(const SystemVssService&) = delete;
  SystemVssService& operator=(const SystemVssService&) = delete;

  HRESULT CreateBackupComponents() override { return CreateVssBackupComponentsInternal(&components_); }
  HRESULT InitializeForBackup(BSTR document) override { return components_->InitializeForBackup(document); }
  HRESULT SetContext(LONG context) override { return components_->SetContext(context); }
  HRESULT Query(REFGUID queriedObjectId, VSS_OBJECT_TYPE queriedObjectType,
                VSS_OBJECT_TYPE returnedObjectsType) override {
    return components_->Query(queriedObjectId, queriedObjectType, returnedObjectsType, &enumerator_);
  }
  HRESULT Next(ULONG count, VSS_OBJECT_PROP* elements, ULONG* fetched) override {
    return enumerator_->Next(count, elements, fetched);
  }
  void FreeSnapshotProperties(VSS_SNAPSHOT_PROP* properties) override { VssFreeSnapshotPropertiesInternal(properties); }
  void ReleaseEnumerator() override {
    // Guards a Query that reported success without an enumerator.
    if (enumerator_ != nullptr) enumerator_->Release();
    enumerator_ = nullptr;
  }
  void ReleaseBackupComponents() override {
    if (components_ != nullptr) components_->Release();
    components_ = nullptr;
  }

 private:
  IVssBackupComponents* components_ = nullptr;
  IVssEnumObject* enumerator_ = nullptr;
};

}  // namespace

// The service's wide strings are UTF-16: converted as NTFS names are.
std::string WideToUtf8(const wchar_t* text) {
  if (text == nullptr) return std::string();
  std::vector<uint8_t> bytes;
  for (const wchar_t* p = text; *p != 0; ++p) {
    const uint16_t unit = static_cast<uint16_t>(*p);
    bytes.push_back(static_cast<uint8_t>(unit));
    bytes.push_back(static_cast<uint8_t>(unit >> 8));
  }
  return ntfsparsercore::Utf16LeToUtf8(bytes.data(), bytes.size() / 2);
}

void CollectFromService(IVssService& service, SnapshotPropertiesList* list) {
  if (FAILED(service.CreateBackupComponents())) return;
  if (FAILED(service.InitializeForBackup(nullptr)) || FAILED(service.SetContext(static_cast<LONG>(VSS_CTX_ALL)))) {
    service.ReleaseBackupComponents();
    return;
  }
  VSS_OBJECT_PROP element;
  std::memset(&element, 0, sizeof(element));
  ULONG fetched = 0;
  if (FAILED(service.Query(GUID_NULL, VSS_OBJECT_NONE, VSS_OBJECT_SNAPSHOT))) {
    service.ReleaseBackupComponents();
    return;
  }
  HRESULT result = service.Next(1, &element, &fetched);
  while (!FAILED(result) && fetched != 0) {
    if (element.Type == VSS_OBJECT_SNAPSHOT) {
      VSS_SNAPSHOT_PROP& snapshot = element.Obj.Snap;
      SnapshotProperties properties;
      std::memcpy(properties.snapshotIdentifier.bytes, &snapshot.m_SnapshotId, 16);
      std::memcpy(properties.setIdentifier.bytes, &snapshot.m_SnapshotSetId, 16);
      properties.deviceObject = WideToUtf8(snapshot.m_pwszSnapshotDeviceObject);
      list->push_back(std::move(properties));
      service.FreeSnapshotProperties(&snapshot);
    }
    result = service.Next(1, &element, &fetched);
  }
  service.ReleaseEnumerator();
  service.ReleaseBackupComponents();
}

std::unique_ptr<IVssService> CreateSystemVssService() { return std::make_unique<SystemVssService>(); }

VssContext::Collector PlatformCollector(std::shared_ptr<VssVolume> /*storage*/) {
  return [](SnapshotPropertiesList* list) {
    std::unique_ptr<IVssService> service = CreateSystemVssService();
    CollectFromService(*service, list);
  };
}

}  // namespace service
}  // namespace vss
}  // namespace tolvarcore
