// POSIX: the snapshot properties come from the storage's own store, and
// collecting them puts nothing on the error queue.
#include "core/vss/service/vss_context.h"

#include <gtest/gtest.h>

#include <memory>

#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/vss_store_builder.h"

using tolvarcommon::DestroyErrorQueue;
using tolvarcommon::ErrorRecord;
using tolvarcommon::PopError;
using tolvarcommon::ReportCodedError;
using tolvarcommon::ReportError;

namespace {

using tolvarcore::vss::Guid;
using tolvarcore::vss::service::SnapshotProperties;
using tolvarcore::vss::service::VssContext;
using tolvartest::DrainErrors;
using tolvartest::Record;
using namespace tolvartest::vss;

class VssContextPosixTest : public tolvartest::QueueTest {
 protected:
  StoreSpec spec_;
  StoreWriter writer_{64 * kMiB};
};

TEST_F(VssContextPosixTest, PropertiesComeFromEachSnapshotsStoreHeader) {
  spec_.snapshots = {Snap(2, 20), Snap(1, 10)};
  BuildStore(spec_, &writer_);
  VssContext context(std::make_shared<tolvarcore::vss::VssVolume>(writer_.Source()));
  const auto& snapshots = context.GetSnapshots();
  ASSERT_EQ(snapshots.size(), 2u);
  // In creation order, as the catalog gives them.
  EXPECT_EQ(snapshots[0].snapshotIdentifier, Id(0x101));
  EXPECT_EQ(snapshots[0].setIdentifier, Id(0x201));
  EXPECT_EQ(snapshots[0].deviceObject, "");
  EXPECT_EQ(snapshots[1].snapshotIdentifier, Id(0x102));
  EXPECT_EQ(snapshots[1].setIdentifier, Id(0x202));
  EXPECT_EQ(context.GetSnapshotProperties(Id(0x102).ToString()).setIdentifier, Id(0x202));
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(VssContextPosixTest, CollectingPutsNothingOnTheQueueAndKeepsWhatWasThere) {
  // Snapshot 2's store header cannot be read, and the catalog runs to the
  // end of its record: both would report.
  spec_.snapshots = {Snap(1, 1), Snap(2, 2)};
  BuiltStore built = BuildStore(spec_, &writer_);
  PageSpec broken;
  broken.offset = built.offsets[1].header;
  broken.identifier = Id(5);
  writer_.WritePage(broken);
  auto volume = std::make_shared<tolvarcore::vss::VssVolume>(writer_.Source());
  ReportError(1, "before");
  ReportCodedError(12, "before too");

  VssContext context(volume);
  const auto& snapshots = context.GetSnapshots();
  ASSERT_EQ(snapshots.size(), 2u);
  EXPECT_EQ(snapshots[0].snapshotIdentifier, Id(0x101));
  EXPECT_TRUE(snapshots[1].snapshotIdentifier.IsZero());
  EXPECT_TRUE(snapshots[1].setIdentifier.IsZero());
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(1, "before"), Record(12, "before too")}));

  // Reports after the collection reach the queue again.
  ReportError(1, "after");
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(1, "after")}));
}

TEST_F(VssContextPosixTest, VoidedSnapshotListGivesNoPropertiesAndNoMessages) {
  spec_.snapshots = {Snap(1, 1), Snap(2, 2)};
  spec_.snapshots[1].writeDeclaration = false;
  BuildStore(spec_, &writer_);
  VssContext context(std::make_shared<tolvarcore::vss::VssVolume>(writer_.Source()));
  EXPECT_TRUE(context.GetSnapshots().empty());
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(VssContextPosixTest, StorageWithoutStoreGivesAnEmptyListQuietly) {
  // No volume header: the storage has no catalog.
  auto volume = std::make_shared<tolvarcore::vss::VssVolume>(writer_.Source());
  DrainErrors();
  VssContext context(volume);
  EXPECT_TRUE(context.GetSnapshots().empty());
  VssContext none(std::shared_ptr<tolvarcore::vss::VssVolume>{});
  EXPECT_TRUE(none.GetSnapshots().empty());
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(VssContextPosixTest, StoreIsReadOnceWhateverTheNumberOfLookups) {
  spec_.snapshots = {Snap(1, 1)};
  BuildStore(spec_, &writer_);
  VssContext context(std::make_shared<tolvarcore::vss::VssVolume>(writer_.Source()));
  context.GetSnapshotProperties(Id(0x101).ToString());
  writer_.Source()->ForgetCalls();
  EXPECT_EQ(context.GetSnapshotProperties(Id(0x101).ToString()).setIdentifier, Id(0x201));
  EXPECT_EQ(writer_.Source()->ReadCount(), 0u);
}

TEST_F(VssContextPosixTest, WorksWithoutAQueue) {
  DestroyErrorQueue();
  spec_.snapshots = {Snap(1, 1)};
  BuildStore(spec_, &writer_);
  VssContext context(std::make_shared<tolvarcore::vss::VssVolume>(writer_.Source()));
  EXPECT_EQ(context.GetSnapshots().size(), 1u);
  ErrorRecord record;
  EXPECT_FALSE(PopError(&record));
}

}  // namespace
