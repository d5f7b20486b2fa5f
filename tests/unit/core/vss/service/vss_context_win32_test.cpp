// Windows: the collection driven through the service seam by a
// fake backup-components object, and the real context, which under wine
// (where the VSS service is a stub) must fail quietly.
#include <windows.h>
#include <vss.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "core/vss/service/vss_context.h"
#include "core/vss/service/vss_service_win32.h"
#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/vss_store_builder.h"

namespace {

using tolvarcore::vss::Guid;
using tolvarcore::vss::service::CollectFromService;
using tolvarcore::vss::service::IVssService;
using tolvarcore::vss::service::SnapshotProperties;
using tolvarcore::vss::service::SnapshotPropertiesList;
using tolvarcore::vss::service::VssContext;
using tolvarcore::vss::service::WideToUtf8;
using tolvartest::vss::Id;

GUID AsGuid(const Guid& guid) {
  GUID out;
  std::memcpy(&out, guid.bytes, sizeof(out));
  return out;
}

// Records every call, in order, and answers as it was told.
class FakeVssService : public IVssService {
 public:
  struct Element {
    VSS_OBJECT_TYPE type;
    Guid snapshotId;
    Guid setId;
    std::wstring device;
    HRESULT result;  // what Next returns with this element
  };

  HRESULT createResult = S_OK;
  HRESULT initializeResult = S_OK;
  HRESULT contextResult = S_OK;
  HRESULT queryResult = S_OK;
  HRESULT failNextAt = S_OK;                  // with failingNext, the result of that Next
  std::size_t failingNext = ~std::size_t{0};  // index of the Next call that fails
  HRESULT endResult = S_FALSE;                // the result that comes with a fetched count of 0
  std::vector<Element> elements;

  std::vector<std::string> calls;
  BSTR document = reinterpret_cast<BSTR>(1);
  LONG context = 0;
  GUID queriedId = {1, 0, 0, {0}};
  VSS_OBJECT_TYPE queriedType = VSS_OBJECT_UNKNOWN;
  VSS_OBJECT_TYPE returnedType = VSS_OBJECT_UNKNOWN;
  std::vector<std::wstring> freedDevices;

  HRESULT CreateBackupComponents() override {
    calls.push_back("Create");
    return createResult;
  }
  HRESULT InitializeForBackup(BSTR xml) override {
    calls.push_back("InitializeForBackup");
    document = xml;
    return initializeResult;
  }
  HRESULT SetContext(LONG value) override {
    calls.push_back("SetContext");
    context = value;
    return contextResult;
  }
  HRESULT Query(REFGUID id, VSS_OBJECT_TYPE queried, VSS_OBJECT_TYPE returned) override {
    calls.push_back("Query");
    queriedId = id;
    queriedType = queried;
    returnedType = returned;
    return queryResult;
  }
  HRESULT Next(ULONG count, VSS_OBJECT_PROP* element, ULONG* fetched) override {
    calls.push_back("Next");
    EXPECT_EQ(count, 1u);
    std::size_t index = next_++;
    if (index == failingNext) {
      *fetched = 1;  // a failure ends the walk whatever the count says
      return failNextAt;
    }
    if (index >= elements.size()) {
      *fetched = 0;
      return endResult;
    }
    Element& e = elements[index];
    std::memset(element, 0xCD, sizeof(*element));
    element->Type = e.type;
    if (e.type == VSS_OBJECT_SNAPSHOT) {
      element->Obj.Snap.m_SnapshotId = AsGuid(e.snapshotId);
      element->Obj.Snap.m_SnapshotSetId = AsGuid(e.setId);
      element->Obj.Snap.m_pwszSnapshotDeviceObject = e.device.empty() ? nullptr : &e.device[0];
    } else {
      element->Obj.Prov.m_pwszProviderName = &e.device[0];
    }
    *fetched = 1;
    return e.result;
  }
  void FreeSnapshotProperties(VSS_SNAPSHOT_PROP* properties) override {
    calls.push_back("Free");
    freedDevices.push_back(properties->m_pwszSnapshotDeviceObject ? properties->m_pwszSnapshotDeviceObject : L"(null)");
  }
  void ReleaseEnumerator() override { calls.push_back("ReleaseEnumerator"); }
  void ReleaseBackupComponents() override { calls.push_back("ReleaseBackupComponents"); }

 private:
  std::size_t next_ = 0;
};

FakeVssService::Element SnapshotElement(uint32_t n, const std::wstring& device, HRESULT result = S_OK) {
  return FakeVssService::Element{VSS_OBJECT_SNAPSHOT, Id(0x100 + n), Id(0x200 + n), device, result};
}

FakeVssService::Element ProviderElement() {
  return FakeVssService::Element{VSS_OBJECT_PROVIDER, Id(0x999), Id(0x998), L"provider", S_OK};
}

using Calls = std::vector<std::string>;

class VssServiceTest : public tolvartest::QueueTest {
 protected:
  SnapshotPropertiesList Collect() {
    SnapshotPropertiesList list;
    CollectFromService(service_, &list);
    return list;
  }

  FakeVssService service_;
};

TEST_F(VssServiceTest, SnapshotsAreListedWithIdentifiersAndDeviceNames) {
  service_.elements = {SnapshotElement(1, L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1"),
                       SnapshotElement(2, L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy2")};
  SnapshotPropertiesList list = Collect();
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list[0].snapshotIdentifier, Id(0x101));
  EXPECT_EQ(list[0].setIdentifier, Id(0x201));
  EXPECT_EQ(list[0].deviceObject, "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1");
  EXPECT_EQ(list[1].snapshotIdentifier, Id(0x102));
  EXPECT_EQ(list[1].deviceObject, "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy2");
  EXPECT_EQ(service_.calls, (Calls{"Create", "InitializeForBackup", "SetContext", "Query", "Next", "Free", "Next",
                                   "Free", "Next", "ReleaseEnumerator", "ReleaseBackupComponents"}));
  EXPECT_EQ(service_.freedDevices.size(), 2u);
  EXPECT_TRUE(tolvartest::DrainErrors().empty());
}

TEST_F(VssServiceTest, ServiceIsAskedAsPart35Says) {
  Collect();
  EXPECT_EQ(service_.document, nullptr);
  EXPECT_EQ(static_cast<uint32_t>(service_.context), 0xFFFFFFFFu);  // VSS_CTX_ALL
  EXPECT_TRUE(IsEqualGUID(service_.queriedId, GUID_NULL));
  EXPECT_EQ(service_.queriedType, VSS_OBJECT_NONE);
  EXPECT_EQ(service_.returnedType, VSS_OBJECT_SNAPSHOT);
}

TEST_F(VssServiceTest, ElementsOfOtherTypesAreSkippedAndNotFreed) {
  service_.elements = {ProviderElement(), SnapshotElement(1, L"a"), ProviderElement(), SnapshotElement(2, L"b")};
  SnapshotPropertiesList list = Collect();
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list[0].deviceObject, "a");
  EXPECT_EQ(list[1].deviceObject, "b");
  EXPECT_EQ(service_.calls, (Calls{"Create", "InitializeForBackup", "SetContext", "Query", "Next", "Next", "Free",
                                   "Next", "Next", "Free", "Next", "ReleaseEnumerator", "ReleaseBackupComponents"}));
  EXPECT_EQ(service_.freedDevices, (std::vector<std::wstring>{L"a", L"b"}));
}

TEST_F(VssServiceTest, NoShadowCopiesGiveAnEmptyList) {
  SnapshotPropertiesList list = Collect();
  EXPECT_TRUE(list.empty());
  EXPECT_EQ(service_.calls, (Calls{"Create", "InitializeForBackup", "SetContext", "Query", "Next", "ReleaseEnumerator",
                                   "ReleaseBackupComponents"}));
}

TEST_F(VssServiceTest, CreateFailureEndsAtOnce) {
  service_.createResult = E_ACCESSDENIED;
  EXPECT_TRUE(Collect().empty());
  EXPECT_EQ(service_.calls, (Calls{"Create"}));
  EXPECT_TRUE(tolvartest::DrainErrors().empty());
}

TEST_F(VssServiceTest, InitializeForBackupFailureReleasesTheComponents) {
  service_.initializeResult = E_NOTIMPL;
  EXPECT_TRUE(Collect().empty());
  EXPECT_EQ(service_.calls, (Calls{"Create", "InitializeForBackup", "ReleaseBackupComponents"}));
}

TEST_F(VssServiceTest, SetContextFailureReleasesTheComponents) {
  service_.contextResult = E_INVALIDARG;
  EXPECT_TRUE(Collect().empty());
  EXPECT_EQ(service_.calls, (Calls{"Create", "InitializeForBackup", "SetContext", "ReleaseBackupComponents"}));
}

TEST_F(VssServiceTest, QueryFailureReleasesTheComponentsOnly) {
  service_.queryResult = E_UNEXPECTED;
  service_.elements = {SnapshotElement(1, L"a")};
  EXPECT_TRUE(Collect().empty());
  EXPECT_EQ(service_.calls, (Calls{"Create", "InitializeForBackup", "SetContext", "Query", "ReleaseBackupComponents"}));
}

TEST_F(VssServiceTest, FirstNextFailureGivesAnEmptyList) {
  service_.elements = {SnapshotElement(1, L"a")};
  service_.failingNext = 0;
  service_.failNextAt = E_FAIL;
  EXPECT_TRUE(Collect().empty());
  EXPECT_EQ(service_.calls, (Calls{"Create", "InitializeForBackup", "SetContext", "Query", "Next", "ReleaseEnumerator",
                                   "ReleaseBackupComponents"}));
}

TEST_F(VssServiceTest, LaterNextFailureKeepsTheElementsGathered) {
  service_.elements = {SnapshotElement(1, L"a"), SnapshotElement(2, L"b"), SnapshotElement(3, L"c")};
  service_.failingNext = 2;
  service_.failNextAt = E_OUTOFMEMORY;
  SnapshotPropertiesList list = Collect();
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list[1].deviceObject, "b");
  EXPECT_EQ(service_.calls, (Calls{"Create", "InitializeForBackup", "SetContext", "Query", "Next", "Free", "Next",
                                   "Free", "Next", "ReleaseEnumerator", "ReleaseBackupComponents"}));
}

TEST_F(VssServiceTest, SuccessCodesOtherThanZeroCountAsSuccess) {
  service_.queryResult = S_FALSE;
  service_.elements = {SnapshotElement(1, L"a", S_FALSE), SnapshotElement(2, L"b", S_FALSE)};
  service_.endResult = S_OK;  // and a fetched count of 0 ends the walk
  SnapshotPropertiesList list = Collect();
  EXPECT_EQ(list.size(), 2u);
}

TEST_F(VssServiceTest, SnapshotWithoutDeviceNameGetsAnEmptyName) {
  service_.elements = {SnapshotElement(1, L"")};
  SnapshotPropertiesList list = Collect();
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list[0].deviceObject, "");
}

TEST_F(VssServiceTest, SecondLookupIsServedFromTheCacheWithoutCallingTheService) {
  service_.elements = {SnapshotElement(1, L"a")};
  VssContext context([this](SnapshotPropertiesList* list) { CollectFromService(service_, list); });
  EXPECT_TRUE(service_.calls.empty());
  EXPECT_EQ(context.GetSnapshotProperties(Id(0x101).ToString()).deviceObject, "a");
  std::size_t calls = service_.calls.size();
  EXPECT_EQ(context.GetSnapshotProperties(Id(0x101).ToString()).setIdentifier, Id(0x201));
  EXPECT_TRUE(context.GetSnapshotProperties(Id(0x102).ToString()).snapshotIdentifier.IsZero());
  EXPECT_EQ(service_.calls.size(), calls);
}

TEST_F(VssServiceTest, SecondLookupAfterAFailedCollectionDoesNotCallTheServiceAgain) {
  service_.createResult = E_ACCESSDENIED;
  VssContext context([this](SnapshotPropertiesList* list) { CollectFromService(service_, list); });
  EXPECT_TRUE(context.GetSnapshotProperties(Id(0x101).ToString()).snapshotIdentifier.IsZero());
  EXPECT_TRUE(context.GetSnapshotProperties(Id(0x101).ToString()).snapshotIdentifier.IsZero());
  EXPECT_EQ(service_.calls, (Calls{"Create"}));
}

TEST(WideToUtf8, ConvertsUtf16ToUtf8) {
  EXPECT_EQ(WideToUtf8(nullptr), "");
  EXPECT_EQ(WideToUtf8(L""), "");
  EXPECT_EQ(WideToUtf8(L"\\\\?\\GLOBALROOT"), "\\\\?\\GLOBALROOT");
  EXPECT_EQ(WideToUtf8(L"\x00e9\x20ac"), "\xc3\xa9\xe2\x82\xac");
  EXPECT_EQ(WideToUtf8(L"\xd83d\xde00"), "\xf0\x9f\x98\x80");  // a surrogate pair
  EXPECT_EQ(WideToUtf8(L"\xd83dx"), "\xef\xbf\xbdx");          // an unpaired high surrogate
}

// The real service: on wine a stub (E_NOTIMPL), on Windows whatever the
// machine has. Either way the collection puts nothing on the queue and is
// done once.
TEST_F(VssServiceTest, PlatformContextFailsQuietly) {
  VssContext context;
  const SnapshotPropertiesList& first = context.GetSnapshots();
  std::size_t count = first.size();
  EXPECT_TRUE(context.GetSnapshotProperties("00000000-0000-0000-0000-000000000001").snapshotIdentifier.IsZero());
  EXPECT_EQ(&context.GetSnapshots(), &first);
  EXPECT_EQ(context.GetSnapshots().size(), count);
  EXPECT_TRUE(tolvartest::DrainErrors().empty());
}

}  // namespace
