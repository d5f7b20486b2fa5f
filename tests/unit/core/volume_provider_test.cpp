#include "core/volume_provider.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/fake_source_factory.h"
#include "tests/fixtures/vss_store_builder.h"

using tolvarcommon::ErrorRecord;

namespace {

using tolvarcore::VolumeProvider;
using tolvartest::DrainErrors;
using tolvartest::FakeSourceFactory;
using tolvartest::Record;
using tolvartest::vss::BuildStore;
using tolvartest::vss::Snap;
using tolvartest::vss::StoreSpec;

class VolumeProviderTest : public tolvartest::QueueTest {
 protected:
  void SetUp() override {
    QueueTest::SetUp();
    factory_ = std::make_shared<FakeSourceFactory>();
    StoreSpec spec;
    spec.snapshots = {Snap(1, 10)};
    factory_->Add("vol", BuildStore(spec).source);
  }

  std::shared_ptr<FakeSourceFactory> factory_;
};

TEST_F(VolumeProviderTest, PathEndingInOneBackslashIsOpenedWithoutIt) {
  VolumeProvider provider(factory_);
  EXPECT_NE(provider.OpenVolume("vol\\"), nullptr);
  EXPECT_EQ(factory_->Opened(), std::vector<std::string>{"vol"});
}

TEST_F(VolumeProviderTest, PathEndingInTwoBackslashesKeepsOne) {
  VolumeProvider provider(factory_);
  EXPECT_EQ(provider.OpenVolume("vol\\\\"), nullptr);
  EXPECT_EQ(factory_->Opened(), std::vector<std::string>{"vol\\"});
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(1, "Open file(vol\\) failed - 2.")}));
}

TEST_F(VolumeProviderTest, VolumeWithoutAStoreIsRefusedAsAnEmptyStorage) {
  factory_->Add("blank", std::make_shared<tolvartest::SparseSource>(8 * tolvartest::vss::kMiB));
  VolumeProvider provider(factory_);
  EXPECT_EQ(provider.OpenVolume("blank"), nullptr);
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(12, "Invalid vss volume guid"),
                                                     Record(12, "Invalid storage with empty guid")}));
}

TEST_F(VolumeProviderTest, VolumeThatNamesItselfAsStorageIsItsOwnStorage) {
  VolumeProvider provider(factory_);
  auto volume = provider.OpenVolume("vol");
  ASSERT_NE(volume, nullptr);
  EXPECT_EQ(provider.FindStorage(volume), volume);
  EXPECT_EQ(factory_->Opened(), std::vector<std::string>{"vol"});
  EXPECT_TRUE(DrainErrors().empty());
}

}  // namespace
