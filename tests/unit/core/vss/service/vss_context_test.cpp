// The platform-independent part of the VSS context: caching and lookup,
// driven through its collector seam.
#include "core/vss/service/vss_context.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/fixtures/vss_store_builder.h"

namespace {

using tolvarcore::vss::Guid;
using tolvarcore::vss::service::SnapshotProperties;
using tolvarcore::vss::service::SnapshotPropertiesList;
using tolvarcore::vss::service::VssContext;
using tolvartest::vss::Id;
using tolvartest::vss::ParseGuid;

// A collector that counts its calls and hands out the given list.
struct CountingCollector {
  SnapshotPropertiesList properties;
  int calls = 0;

  VssContext::Collector Get() {
    return [this](SnapshotPropertiesList* list) {
      ++calls;
      *list = properties;
    };
  }
};

void ExpectZero(const SnapshotProperties& properties) {
  EXPECT_TRUE(properties.snapshotIdentifier.IsZero());
  EXPECT_TRUE(properties.setIdentifier.IsZero());
  EXPECT_EQ(properties.deviceObject, "");
}

TEST(VssContext, NoSnapshotsGivesAnEmptyListAndZeroLookups) {
  CountingCollector collector;
  VssContext context(collector.Get());
  EXPECT_TRUE(context.GetSnapshots().empty());
  ExpectZero(context.GetSnapshotProperties(Id(1).ToString()));
  ExpectZero(context.GetSnapshotProperties(""));
  ExpectZero(context.GetSnapshotProperties("00000000-0000-0000-0000-000000000000"));
  EXPECT_EQ(collector.calls, 1);
}

TEST(VssContext, ListIsCollectedOnFirstUseAndOnlyOnce) {
  CountingCollector collector;
  collector.properties = {{Id(1), Id(2), "dev"}};
  VssContext context(collector.Get());
  EXPECT_EQ(collector.calls, 0);
  EXPECT_EQ(context.GetSnapshotProperties(Id(1).ToString()).deviceObject, "dev");
  EXPECT_EQ(context.GetSnapshots().size(), 1u);
  EXPECT_EQ(context.GetSnapshotProperties(Id(1).ToString()).setIdentifier, Id(2));
  EXPECT_EQ(collector.calls, 1);
}

TEST(VssContext, SecondLookupAfterAFailedCollectionDoesNotCollectAgain) {
  int calls = 0;
  VssContext context([&calls](SnapshotPropertiesList*) { ++calls; });  // a failure: nothing gathered
  ExpectZero(context.GetSnapshotProperties(Id(1).ToString()));
  ExpectZero(context.GetSnapshotProperties(Id(1).ToString()));
  EXPECT_TRUE(context.GetSnapshots().empty());
  EXPECT_EQ(calls, 1);
}

TEST(VssContext, PartialCollectionKeepsWhatWasGathered) {
  VssContext context([](SnapshotPropertiesList* list) { list->push_back({Id(1), Id(2), "a"}); });
  EXPECT_EQ(context.GetSnapshotProperties(Id(1).ToString()).deviceObject, "a");
}

TEST(VssContext, LookupComparesTheLowerCaseTextWithoutBraces) {
  const Guid id = ParseGuid("ec06abc4-bd2f-41cc-a817-921f2046080d");
  CountingCollector collector;
  collector.properties = {{id, Id(7), "dev"}};
  VssContext context(collector.Get());
  EXPECT_EQ(context.GetSnapshotProperties("ec06abc4-bd2f-41cc-a817-921f2046080d").setIdentifier, Id(7));
  ExpectZero(context.GetSnapshotProperties("EC06ABC4-BD2F-41CC-A817-921F2046080D"));
  ExpectZero(context.GetSnapshotProperties("{ec06abc4-bd2f-41cc-a817-921f2046080d}"));
  ExpectZero(context.GetSnapshotProperties("ec06abc4-bd2f-41cc-a817-921f2046080d "));
  ExpectZero(context.GetSnapshotProperties(std::string("ec06abc4-bd2f-41cc-a817-921f2046080d\0", 37)));
}

TEST(VssContext, FirstMatchingElementWins) {
  CountingCollector collector;
  collector.properties = {{Id(1), Id(2), "first"}, {Id(1), Id(3), "second"}};
  VssContext context(collector.Get());
  EXPECT_EQ(context.GetSnapshotProperties(Id(1).ToString()).deviceObject, "first");
}

TEST(VssContext, NullCollectorGivesAnEmptyList) {
  VssContext context(VssContext::Collector{});
  EXPECT_TRUE(context.GetSnapshots().empty());
}

}  // namespace
