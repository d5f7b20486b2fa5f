#include "core/vss/records/catalog.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "core/vss/snapshot.h"
#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/vss_store_builder.h"

using tolvarcommon::ErrorRecord;

namespace {

using tolvarcore::vss::Guid;
using tolvarcore::vss::Snapshot;
using tolvarcore::vss::VssRecord;
using tolvarcore::vss::records::Catalog;
using tolvarcore::vss::records::SnapshotDeclaration;
using tolvarcore::vss::records::SnapshotDefinition;
using tolvartest::DrainErrors;
using tolvartest::Record;
using namespace tolvartest::vss;

std::vector<uint64_t> CreationOrders(const Catalog& catalog) {
  std::vector<uint64_t> orders;
  for (const SnapshotDefinition& d : catalog.GetDefinitions()) orders.push_back(d.creationOrder);
  return orders;
}

std::vector<Guid> DefinitionIds(const Catalog& catalog) {
  std::vector<Guid> ids;
  for (const SnapshotDefinition& d : catalog.GetDefinitions()) ids.push_back(d.storeIdentifier);
  return ids;
}

class CatalogTest : public tolvartest::QueueTest {
 protected:
  // A catalog record holding the given entries, on at least minPages pages.
  std::shared_ptr<VssRecord> CatalogRecord(const std::vector<std::vector<uint8_t>>& entries, uint64_t minPages = 1) {
    uint64_t offset = writer_.AddRecord(kTypeCatalog, Concat(entries), minPages);
    return std::make_shared<VssRecord>(writer_.Source(), offset);
  }

  StoreWriter writer_{64 * kMiB};
};

TEST_F(CatalogTest, FirstEntryOfType0GivesEmptyListsAndNoMessage) {
  Catalog catalog(CatalogRecord({Entry(0), DefinitionEntry(Id(1), 1, kMiB)}));
  EXPECT_TRUE(catalog.GetDefinitions().empty());
  EXPECT_TRUE(catalog.GetDeclarations().empty());
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(CatalogTest, BodiesAreReadFieldByField) {
  DeclarationOffsets offsets{0x110000, 0x120000, 0x130000, 0x140000, 0x150000};
  Catalog catalog(CatalogRecord({DefinitionEntry(Id(1), 7, 0x40000000), DeclarationEntry(Id(1), offsets)}));
  ASSERT_EQ(catalog.GetDefinitions().size(), 1u);
  const SnapshotDefinition& definition = catalog.GetDefinitions()[0];
  EXPECT_EQ(definition.volumeSize, 0x40000000u);
  EXPECT_EQ(definition.storeIdentifier, Id(1));
  EXPECT_EQ(definition.creationOrder, 7u);
  EXPECT_EQ(definition.creationTime, 0x01d6627bd8e9f5a0u);
  SnapshotDeclaration declaration = catalog.FindDeclaration(Id(1));
  EXPECT_EQ(declaration.indexOffset, 0x110000u);
  EXPECT_EQ(declaration.storeIdentifier, Id(1));
  EXPECT_EQ(declaration.headerOffset, 0x120000u);
  EXPECT_EQ(declaration.rangeOffset, 0x130000u);
  EXPECT_EQ(declaration.bitmapOffset, 0x140000u);
  EXPECT_EQ(declaration.previousBitmapOffset, 0x150000u);
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(CatalogTest, UnusedAndUnknownEntriesArePassedOverSilently) {
  Catalog catalog(CatalogRecord({DefinitionEntry(Id(1), 1, kMiB), Entry(1), Entry(7), DefinitionEntry(Id(2), 2, kMiB),
                                 Entry(0xFFFFFFFFFFFFFFFFull), DeclarationEntry(Id(2), {})}));
  EXPECT_EQ(DefinitionIds(catalog), (std::vector<Guid>{Id(1), Id(2)}));
  EXPECT_EQ(catalog.GetDeclarations().size(), 1u);
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(CatalogTest, DefinitionsOutOfCreationOrderAreSorted) {
  Catalog catalog(CatalogRecord({DefinitionEntry(Id(3), 30, kMiB), DefinitionEntry(Id(1), 10, kMiB),
                                 DefinitionEntry(Id(4), 40, kMiB), DefinitionEntry(Id(2), 20, kMiB)}));
  EXPECT_EQ(CreationOrders(catalog), (std::vector<uint64_t>{10, 20, 30, 40}));
  EXPECT_EQ(DefinitionIds(catalog), (std::vector<Guid>{Id(1), Id(2), Id(3), Id(4)}));
}

TEST_F(CatalogTest, EqualCreationOrdersKeepCatalogOrder) {
  Catalog catalog(
      CatalogRecord({DefinitionEntry(Id(5), 2, kMiB), DefinitionEntry(Id(3), 1, kMiB), DefinitionEntry(Id(1), 2, kMiB),
                     DefinitionEntry(Id(4), 1, kMiB), DefinitionEntry(Id(2), 2, kMiB)}));
  EXPECT_EQ(DefinitionIds(catalog), (std::vector<Guid>{Id(3), Id(4), Id(5), Id(1), Id(2)}));
}

TEST_F(CatalogTest, EmptyRecordGivesEmptyListsAndOneFailedToReadSnapshot) {
  // A record whose first page does not carry the store identifier.
  PageSpec page;
  page.offset = writer_.AllocatePages(1)[0];
  page.identifier = Id(9);
  writer_.WritePage(page);
  auto record = std::make_shared<VssRecord>(writer_.Source(), page.offset);
  DrainErrors();
  Catalog catalog(record);
  EXPECT_TRUE(catalog.GetDefinitions().empty());
  EXPECT_TRUE(catalog.GetDeclarations().empty());
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(1, "Failed to read snapshot")}));
}

TEST_F(CatalogTest, NullRecordReadsAsAnEmptyOne) {
  Catalog catalog(nullptr);
  EXPECT_TRUE(catalog.GetDefinitions().empty());
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(1, "Failed to read snapshot")}));
}

TEST_F(CatalogTest, CatalogSpanningSeveralPages) {
  // 300 snapshots, definition and declaration each: 600 entries on 5 pages,
  // the definitions in descending creation order.
  std::vector<std::vector<uint8_t>> entries;
  for (uint32_t n = 1; n <= 300; ++n) {
    entries.push_back(DefinitionEntry(Id(n), 1000 - n, kMiB));
    entries.push_back(DeclarationEntry(Id(n), DeclarationOffsets{n * 4u, 0, 0, 0, 0}));
  }
  auto record = CatalogRecord(entries);
  ASSERT_EQ(record->PageCount(), 5u);
  Catalog catalog(record);
  ASSERT_EQ(catalog.GetDefinitions().size(), 300u);
  ASSERT_EQ(catalog.GetDeclarations().size(), 300u);
  EXPECT_EQ(catalog.GetDefinitions().front().storeIdentifier, Id(300));
  EXPECT_EQ(catalog.GetDefinitions().back().storeIdentifier, Id(1));
  EXPECT_EQ(catalog.FindDeclaration(Id(200)).indexOffset, 800u);
  EXPECT_EQ(catalog.FindDeclaration(Id(127)).indexOffset, 508u);  // the page boundary lies near it
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(CatalogTest, CatalogFillingItsRecordWithoutEndEntryKeepsItsEntries) {
  // Two pages of entries, all used: the walk ends at the record's end.
  std::vector<std::vector<uint8_t>> entries;
  for (uint32_t n = 1; n <= kEntriesPerPage; ++n) {
    entries.push_back(DefinitionEntry(Id(n), 2 * kEntriesPerPage - n, kMiB));
    entries.push_back(DeclarationEntry(Id(n), {}));
  }
  auto record = CatalogRecord(entries);
  ASSERT_EQ(record->PageCount(), 2u);
  Catalog catalog(record);
  EXPECT_EQ(catalog.GetDefinitions().size(), kEntriesPerPage);
  EXPECT_EQ(catalog.GetDeclarations().size(), kEntriesPerPage);
  EXPECT_EQ(catalog.GetDefinitions().front().storeIdentifier, Id(kEntriesPerPage));
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(1, "Failed to read snapshot")}));
}

TEST_F(CatalogTest, UnreadableDefinitionBodyEndsTheCatalog) {
  uint64_t offset = writer_.AddRecord(
      kTypeCatalog,
      Concat({DefinitionEntry(Id(2), 2, kMiB), DefinitionEntry(Id(1), 1, kMiB), DefinitionEntry(Id(3), 3, kMiB)}));
  auto record = std::make_shared<VssRecord>(writer_.Source(), offset);
  writer_.Source()->FailReadsAt(offset + 128 + 2 * 128 + 8);  // the third entry's body
  Catalog catalog(record);
  EXPECT_EQ(DefinitionIds(catalog), (std::vector<Guid>{Id(1), Id(2)}));
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(1, "Failed to read page data."),
                                                     Record(1, "Failed to read snapshot definition")}));
}

TEST_F(CatalogTest, UnreadableDeclarationBodyEndsTheCatalog) {
  uint64_t offset =
      writer_.AddRecord(kTypeCatalog, Concat({DefinitionEntry(Id(1), 1, kMiB), DeclarationEntry(Id(1), {}),
                                              DeclarationEntry(Id(2), {}), DefinitionEntry(Id(3), 3, kMiB)}));
  auto record = std::make_shared<VssRecord>(writer_.Source(), offset);
  writer_.Source()->FailReadsAt(offset + 128 + 2 * 128 + 8);
  Catalog catalog(record);
  EXPECT_EQ(catalog.GetDefinitions().size(), 1u);
  EXPECT_EQ(catalog.GetDeclarations().size(), 1u);
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(1, "Failed to read page data."),
                                                     Record(1, "Failed to read snapshot declaration")}));
}

TEST_F(CatalogTest, UnreadableEntryTypeEndsTheCatalog) {
  uint64_t offset =
      writer_.AddRecord(kTypeCatalog, Concat({DefinitionEntry(Id(1), 1, kMiB), DefinitionEntry(Id(2), 2, kMiB)}));
  auto record = std::make_shared<VssRecord>(writer_.Source(), offset);
  writer_.Source()->FailReadsAt(offset + 128 + 128);  // the second entry's type
  Catalog catalog(record);
  EXPECT_EQ(DefinitionIds(catalog), (std::vector<Guid>{Id(1)}));
  EXPECT_EQ(DrainErrors(),
            (std::vector<ErrorRecord>{Record(1, "Failed to read page data."), Record(1, "Failed to read snapshot")}));
}

TEST_F(CatalogTest, FindDeclarationOfADuplicateIdentifierReturnsTheEarlierOne) {
  Catalog catalog(CatalogRecord({DeclarationEntry(Id(1), DeclarationOffsets{0x1000, 0, 0, 0, 0}),
                                 DeclarationEntry(Id(2), DeclarationOffsets{0x2000, 0, 0, 0, 0}),
                                 DeclarationEntry(Id(1), DeclarationOffsets{0x3000, 0, 0, 0, 0})}));
  EXPECT_EQ(catalog.FindDeclaration(Id(1)).indexOffset, 0x1000u);
  EXPECT_EQ(catalog.FindDeclaration(Id(2)).indexOffset, 0x2000u);
}

TEST_F(CatalogTest, UnknownIdentifierGivesAZeroDeclarationThatFailsPairing) {
  Catalog catalog(CatalogRecord({DefinitionEntry(Id(1), 1, kMiB), DeclarationEntry(Id(2), {})}));
  SnapshotDeclaration declaration = catalog.FindDeclaration(Id(1));
  EXPECT_TRUE(declaration.storeIdentifier.IsZero());
  EXPECT_EQ(declaration.indexOffset, 0u);
  EXPECT_EQ(declaration.headerOffset, 0u);
  EXPECT_EQ(declaration.bitmapOffset, 0u);
  Snapshot snapshot(catalog.GetDefinitions()[0], declaration);
  EXPECT_TRUE(snapshot.GetGuid().IsZero());
  EXPECT_EQ(snapshot.GetVolumeSize(), 0u);
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(12, "Snapshot guid is empty")}));
}

}  // namespace
