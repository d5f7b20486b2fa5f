#include "core/vss/snapshot.h"

#include <gtest/gtest.h>

#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/vss_store_builder.h"

using tolvarcommon::ErrorRecord;

namespace {

using tolvarcore::vss::Snapshot;
using tolvarcore::vss::records::SnapshotDeclaration;
using tolvarcore::vss::records::SnapshotDefinition;
using tolvartest::DrainErrors;
using tolvartest::Record;
using tolvartest::vss::Id;

using SnapshotTest = tolvartest::QueueTest;

SnapshotDefinition Definition(uint32_t n) {
  SnapshotDefinition definition;
  definition.volumeSize = 0x80000000;
  definition.storeIdentifier = Id(n);
  definition.creationOrder = 5;
  return definition;
}

SnapshotDeclaration Declaration(uint32_t n) {
  SnapshotDeclaration declaration;
  declaration.indexOffset = 0x1000;
  declaration.storeIdentifier = Id(n);
  declaration.headerOffset = 0x2000;
  declaration.rangeOffset = 0x3000;
  declaration.bitmapOffset = 0x4000;
  declaration.previousBitmapOffset = 0x5000;
  return declaration;
}

void ExpectZero(const Snapshot& snapshot) {
  EXPECT_EQ(snapshot.GetHeaderOffset(), 0u);
  EXPECT_EQ(snapshot.GetBitmapOffset(), 0u);
  EXPECT_EQ(snapshot.GetPreviousBitmapOffset(), 0u);
  EXPECT_EQ(snapshot.GetIndexOffset(), 0u);
  EXPECT_EQ(snapshot.GetVolumeSize(), 0u);
  EXPECT_EQ(snapshot.GetRangeOffset(), 0u);
  EXPECT_TRUE(snapshot.GetGuid().IsZero());
  EXPECT_EQ(snapshot.GetName(), "");
}

TEST_F(SnapshotTest, PairCopiesEveryField) {
  Snapshot snapshot(Definition(1), Declaration(1));
  EXPECT_EQ(snapshot.GetIndexOffset(), 0x1000u);
  EXPECT_EQ(snapshot.GetHeaderOffset(), 0x2000u);
  EXPECT_EQ(snapshot.GetRangeOffset(), 0x3000u);
  EXPECT_EQ(snapshot.GetBitmapOffset(), 0x4000u);
  EXPECT_EQ(snapshot.GetPreviousBitmapOffset(), 0x5000u);
  EXPECT_EQ(snapshot.GetVolumeSize(), 0x80000000u);
  EXPECT_EQ(snapshot.GetGuid(), Id(1));
  EXPECT_EQ(snapshot.GetName(), "");
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(SnapshotTest, DeclarationWithZeroOffsetsStillPairs) {
  SnapshotDeclaration declaration;
  declaration.storeIdentifier = Id(1);
  Snapshot snapshot(Definition(1), declaration);
  EXPECT_EQ(snapshot.GetGuid(), Id(1));
  EXPECT_EQ(snapshot.GetVolumeSize(), 0x80000000u);
  EXPECT_EQ(snapshot.GetHeaderOffset(), 0u);
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(SnapshotTest, ZeroDeclarationIdentifierIsAnEmptySnapshotGuid) {
  SnapshotDefinition definition = Definition(1);
  definition.storeIdentifier = tolvarcore::vss::Guid();
  SnapshotDeclaration declaration = Declaration(1);
  declaration.storeIdentifier = tolvarcore::vss::Guid();
  Snapshot snapshot(definition, declaration);
  ExpectZero(snapshot);
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(12, "Snapshot guid is empty")}));
}

TEST_F(SnapshotTest, DifferentIdentifiersAreInconsistent) {
  Snapshot snapshot(Definition(1), Declaration(2));
  ExpectZero(snapshot);
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(12, "Inconsistent snapshot guids")}));
}

TEST_F(SnapshotTest, EmptyIdentifierIsCheckedBeforeConsistency) {
  // Definition without identifier, declaration without identifier: empty, not inconsistent.
  SnapshotDeclaration declaration = Declaration(1);
  declaration.storeIdentifier = tolvarcore::vss::Guid();
  Snapshot snapshot(Definition(2), declaration);
  ExpectZero(snapshot);
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(12, "Snapshot guid is empty")}));
}

TEST_F(SnapshotTest, SetNameReplacesTheName) {
  Snapshot snapshot(Definition(1), Declaration(1));
  snapshot.SetName("first");
  snapshot.SetName(std::string("\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1\0x", 49));
  EXPECT_EQ(snapshot.GetName().size(), 49u);
}

}  // namespace
