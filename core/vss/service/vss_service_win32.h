// Windows: the seam over the VSS calls that collect the snapshot list
//. The real service object wraps CreateVssBackupComponentsInternal,
// the backup components object, its snapshot enumerator and
// VssFreeSnapshotPropertiesInternal; tests drive the collection with a fake.
#ifndef TOLVAR_CORE_VSS_SERVICE_VSS_SERVICE_WIN32_H_
#define TOLVAR_CORE_VSS_SERVICE_VSS_SERVICE_WIN32_H_

#include <windows.h>
#include <vss.h>

#include <memory>
#include <string>

#include "core/vss/service/vss_context.h"

namespace tolvarcore {
namespace vss {
namespace service {

// One operation per service call, in the order of use. The object keeps the
// backup components object and the enumerator between the calls.
class IVssService {
 public:
  // CreateVssBackupComponentsInternal.
  virtual HRESULT CreateBackupComponents() = 0;
  // IVssBackupComponents::InitializeForBackup.
  virtual HRESULT InitializeForBackup(BSTR document) = 0;
  // IVssBackupComponents::SetContext.
  virtual HRESULT SetContext(LONG context) = 0;
  // IVssBackupComponents::Query; the enumerator is kept.
  virtual HRESULT Query(REFGUID queriedObjectId, VSS_OBJECT_TYPE queriedObjectType,
                        VSS_OBJECT_TYPE returnedObjectsType) = 0;
  // IVssEnumObject::Next.
  virtual HRESULT Next(ULONG count, VSS_OBJECT_PROP* elements, ULONG* fetched) = 0;
  // VssFreeSnapshotPropertiesInternal.
  virtual void FreeSnapshotProperties(VSS_SNAPSHOT_PROP* properties) = 0;
  // IUnknown::Release on the enumerator, and on the backup components object.
  virtual void ReleaseEnumerator() = 0;
  virtual void ReleaseBackupComponents() = 0;
  virtual ~IVssService() = default;
};

// The collection through service: InitializeForBackup with no
// document, SetContext(VSS_CTX_ALL), Query(GUID_NULL, VSS_OBJECT_NONE,
// VSS_OBJECT_SNAPSHOT), then Next one element at a time while it succeeds
// and fetches one, appending each snapshot element (and freeing its
// properties) and skipping elements of other types. Any failing HRESULT
// ends the collection quietly with what was gathered.
void CollectFromService(IVssService& service, SnapshotPropertiesList* list);

// The service object over the real VSS API.
std::unique_ptr<IVssService> CreateSystemVssService();

// UTF-16 to UTF-8, the conversion used for the device object name; a null
// pointer gives an empty string, an unpaired surrogate U+FFFD.
std::string WideToUtf8(const wchar_t* text);

}  // namespace service
}  // namespace vss
}  // namespace tolvarcore

#endif  // TOLVAR_CORE_VSS_SERVICE_VSS_SERVICE_WIN32_H_
