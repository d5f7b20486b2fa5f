// FindStorage's search of the system's volumes, and shadow copies rebuilt
// from the store.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "core/volume_enumerator_api_posix.h"
#include "core/volume_provider.h"
#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/fake_source_factory.h"
#include "tests/fixtures/vss_store_builder.h"

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
using tolvartest::vss::StoreWriter;
using tolvartest::vss::VolumeHeaderSpec;

class ThreeDevices : public VolumeEnumerator::Api {
 public:
  bool ListBlockDevices(std::vector<std::string>* names) override {
    *names = {"sdc", "sda", "sdb"};
    return true;
  }
};

// A volume whose header names identifiers of its own.
std::shared_ptr<tolvartest::SparseSource> VolumeWithIdentifiers(const tolvarcore::vss::Guid& own,
                                                                const tolvarcore::vss::Guid& storage) {
  StoreWriter writer;
  VolumeHeaderSpec header;
  header.catalogOffset = 0x104000;
  header.volumeIdentifier = own;
  header.storeVolumeIdentifier = storage;
  writer.WriteVolumeHeader(header);
  return writer.Source();
}

class VolumeProviderSearch : public tolvartest::QueueTest {};

TEST_F(VolumeProviderSearch, VolumesWithoutAStoreLeaveTheirMessagesEvenWhenTheSearchSucceeds) {
  auto factory = std::make_shared<FakeSourceFactory>();
  factory->Add("vol", VolumeWithIdentifiers(Id(1), Id(2)));
  factory->Add("/dev/sda", std::make_shared<tolvartest::SparseSource>(4 * tolvartest::vss::kMiB));
  factory->Add("/dev/sdb", VolumeWithIdentifiers(Id(2), Id(2)));
  ThreeDevices devices;
  VolumeProvider provider(factory, VolumeEnumerator(devices));
  auto volume = provider.OpenVolume("vol");
  ASSERT_NE(volume, nullptr);
  auto storage = provider.FindStorage(volume);
  ASSERT_NE(storage, nullptr);
  EXPECT_EQ(storage->GetVolumeIdentifier(), Id(2));
  // sda has no store; the search stops at sdb and never opens sdc.
  EXPECT_EQ(factory->Opened(), (std::vector<std::string>{"vol", "/dev/sda", "/dev/sdb"}));
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(12, "Invalid vss volume guid"),
                                                     Record(12, "Invalid storage with empty guid")}));
}

TEST_F(VolumeProviderSearch, NoMatchingVolumeGivesNoStorageAndNoMessageOfItsOwn) {
  auto factory = std::make_shared<FakeSourceFactory>();
  factory->Add("vol", VolumeWithIdentifiers(Id(1), Id(9)));
  ThreeDevices devices;
  VolumeProvider provider(factory, VolumeEnumerator(devices));
  auto volume = provider.OpenVolume("vol");
  EXPECT_EQ(provider.FindStorage(volume), nullptr);
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(1, "Open file(/dev/sda) failed - 2."),
                                                     Record(1, "Open file(/dev/sdb) failed - 2."),
                                                     Record(1, "Open file(/dev/sdc) failed - 2.")}));
}

TEST_F(VolumeProviderSearch, ShadowCopyOfAStoreIsRebuiltWithoutOpeningAnything) {
  auto factory = std::make_shared<FakeSourceFactory>();
  StoreSpec spec;
  spec.snapshots = {Snap(1, 10), Snap(2, 20)};
  spec.snapshots[0].descriptors = {tolvartest::vss::Block(0x200000)};
  auto built = BuildStore(spec);
  factory->Add("vol", built.source);
  VolumeProvider provider(factory);
  auto volume = provider.OpenVolume("vol");
  auto snapshot = std::make_shared<tolvarcore::vss::Snapshot>(
      tolvarcore::vss::records::SnapshotDefinition{64 * tolvartest::vss::kMiB, Id(1), 10}, [&] {
        tolvarcore::vss::records::SnapshotDeclaration declaration;
        declaration.storeIdentifier = Id(1);
        declaration.indexOffset = built.offsets[0].index;
        declaration.headerOffset = built.offsets[0].header;
        declaration.bitmapOffset = built.offsets[0].bitmap;
        return declaration;
      }());
  std::unique_ptr<ntfsparsercore::io::ISource> view(provider.OpenShadowCopy(snapshot, volume));
  ASSERT_NE(view, nullptr);
  EXPECT_EQ(factory->Opened(), std::vector<std::string>{"vol"});
  // The first snapshot sees the old contents its store kept for the block.
  std::vector<uint8_t> seen(16384), kept(16384);
  ASSERT_EQ(view->Read(seen.data(), seen.size(), 0x200000), seen.size());
  built.source->Read(kept.data(), kept.size(), 0x2000000 + 0x200000);
  EXPECT_EQ(seen, kept);
  EXPECT_EQ(view->GetSize(), 64 * tolvartest::vss::kMiB);
}

TEST_F(VolumeProviderSearch, SnapshotUnknownToTheStoreHasNoShadowCopy) {
  auto factory = std::make_shared<FakeSourceFactory>();
  StoreSpec spec;
  spec.snapshots = {Snap(1, 10)};
  factory->Add("vol", BuildStore(spec).source);
  VolumeProvider provider(factory);
  auto volume = provider.OpenVolume("vol");
  tolvarcore::vss::records::SnapshotDeclaration declaration;
  declaration.storeIdentifier = Id(7);
  auto snapshot = std::make_shared<tolvarcore::vss::Snapshot>(
      tolvarcore::vss::records::SnapshotDefinition{64 * tolvartest::vss::kMiB, Id(7), 1}, declaration);
  EXPECT_EQ(provider.OpenShadowCopy(snapshot, volume), nullptr);
  EXPECT_TRUE(DrainErrors().empty());
}

}  // namespace
