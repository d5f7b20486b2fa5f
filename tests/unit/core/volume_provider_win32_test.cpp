// Windows: the device paths OpenShadowCopy tries, in order, and FindStorage
// over FindFirstVolumeA.
#include <windows.h>

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "core/volume_enumerator_api_win32.h"
#include "core/volume_provider.h"
#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/fake_source_factory.h"
#include "tests/fixtures/vss_store_builder.h"

using tolvarcommon::CreateErrorQueue;
using tolvarcommon::DestroyErrorQueue;
using tolvarcommon::ErrorRecord;

namespace {

using tolvarcore::VolumeEnumerator;
using tolvarcore::VolumeProvider;
using tolvartest::DrainErrors;
using tolvartest::FakeSourceFactory;
using tolvartest::Record;
using tolvartest::vss::BuildStore;
using tolvartest::vss::Id;
using tolvartest::vss::Snap;
using tolvartest::vss::StoreSpec;

const std::string kShadowCopyDevice = "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy{";
const std::string kCsvDevice = "\\\\?\\GLOBALROOT\\Device\\CSV{";

class OpenShadowCopyWin32 : public tolvartest::QueueTest {
 protected:
  void SetUp() override {
    QueueTest::SetUp();
    StoreSpec spec;
    spec.snapshots = {Snap(1, 10)};
    built_ = BuildStore(spec);
    factory_ = std::make_shared<FakeSourceFactory>();
    factory_->Add("vol", built_.source);
    provider_ = std::make_unique<VolumeProvider>(factory_);
    volume_ = provider_->OpenVolume("vol");
    tolvarcore::vss::records::SnapshotDeclaration declaration;
    declaration.storeIdentifier = Id(1);
    declaration.headerOffset = built_.offsets[0].header;
    snapshot_ = std::make_shared<tolvarcore::vss::Snapshot>(
        tolvarcore::vss::records::SnapshotDefinition{64 * tolvartest::vss::kMiB, Id(1), 10}, declaration);
  }

  tolvartest::vss::BuiltStore built_;
  std::shared_ptr<FakeSourceFactory> factory_;
  std::unique_ptr<VolumeProvider> provider_;
  std::shared_ptr<tolvarcore::vss::VssVolume> volume_;
  std::shared_ptr<tolvarcore::vss::Snapshot> snapshot_;
};

TEST_F(OpenShadowCopyWin32, SnapshotWithoutDeviceNameGoesStraightToTheShadowCopyDevicePath) {
  EXPECT_EQ(provider_->OpenShadowCopy(snapshot_, volume_), nullptr);
  const std::string shadowCopyPath = kShadowCopyDevice + Id(1).ToString() + "}";
  const std::string csvPath = kCsvDevice + Id(0x101).ToString() + "}";
  EXPECT_EQ(factory_->Opened(), (std::vector<std::string>{"vol", shadowCopyPath, csvPath}));
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(1, "Open file(" + shadowCopyPath + ") failed - 2."),
                                                     Record(1, "Open file(" + csvPath + ") failed - 2.")}));
}

TEST_F(OpenShadowCopyWin32, DeviceObjectNameIsTriedFirstAndWinsWhenItOpens) {
  snapshot_->SetName("\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy7");
  factory_->Add("\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy7", built_.source);
  std::unique_ptr<ntfsparsercore::io::ISource> source(provider_->OpenShadowCopy(snapshot_, volume_));
  ASSERT_NE(source, nullptr);
  EXPECT_EQ(factory_->Opened(),
            (std::vector<std::string>{"vol", "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy7"}));
}

// Two volumes: the first without a store, the second the storage.
class TwoVolumes : public VolumeEnumerator::Api {
 public:
  HANDLE FindFirstVolumeA(LPSTR name, DWORD) override {
    std::strcpy(name, "\\\\?\\Volume{a}\\");
    next_ = 1;
    return reinterpret_cast<HANDLE>(0x33);
  }
  BOOL FindNextVolumeA(HANDLE, LPSTR name, DWORD) override {
    if (next_++ != 1) return FALSE;
    std::strcpy(name, "\\\\?\\Volume{b}\\");
    return TRUE;
  }
  BOOL FindVolumeClose(HANDLE) override { return ++closed, TRUE; }
  int closed = 0;

 private:
  int next_ = 0;
};

TEST(FindStorageWin32, EnumeratedNamesLoseTheirTrailingBackslashAndTheMatchIsTheStorage) {
  DestroyErrorQueue();
  CreateErrorQueue();
  auto factory = std::make_shared<FakeSourceFactory>();
  tolvartest::vss::StoreWriter own;
  tolvartest::vss::VolumeHeaderSpec header;
  header.catalogOffset = 0x104000;
  header.volumeIdentifier = Id(1);
  header.storeVolumeIdentifier = Id(2);
  own.WriteVolumeHeader(header);
  factory->Add("vol", own.Source());
  tolvartest::vss::StoreWriter storage;
  header.volumeIdentifier = Id(2);
  storage.WriteVolumeHeader(header);
  factory->Add("\\\\?\\Volume{b}", storage.Source());
  TwoVolumes volumes;
  VolumeProvider provider(factory, VolumeEnumerator(volumes));
  auto found = provider.FindStorage(provider.OpenVolume("vol"));
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(found->GetVolumeIdentifier(), Id(2));
  EXPECT_EQ(factory->Opened(), (std::vector<std::string>{"vol", "\\\\?\\Volume{a}", "\\\\?\\Volume{b}"}));
  EXPECT_EQ(volumes.closed, 1);
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(1, "Open file(\\\\?\\Volume{a}) failed - 2.")}));
  DestroyErrorQueue();
}

}  // namespace
