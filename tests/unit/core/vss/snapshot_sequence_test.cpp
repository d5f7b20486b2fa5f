#include "core/vss/snapshot_sequence.h"

#include <gtest/gtest.h>

#include <cctype>
#include <memory>
#include <string>
#include <vector>

#include "core/vss/service/vss_context.h"
#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/vss_store_builder.h"

using tolvarcommon::ErrorRecord;

namespace {

using tolvarcore::vss::BuildSnapshotList;
using tolvarcore::vss::BuildSnapshotSequence;
using tolvarcore::vss::Guid;
using tolvarcore::vss::SnapshotList;
using tolvarcore::vss::VssVolume;
using tolvarcore::vss::records::Catalog;
using tolvarcore::vss::service::SnapshotProperties;
using tolvarcore::vss::service::SnapshotPropertiesList;
using tolvarcore::vss::service::VssContext;
using tolvartest::DrainErrors;
using tolvartest::Record;
using namespace tolvartest::vss;

// What the service says of snapshot n of the store builder: shadow copy ID
// Id(0x100 + n), set ID Id(0x200 + n), device "dev-n".
SnapshotProperties Service(uint32_t n) {
  return SnapshotProperties{Id(0x100 + n), Id(0x200 + n), "dev-" + std::to_string(n)};
}

// The identifier text that names snapshot n.
std::string Name(uint32_t n) { return Id(0x100 + n).ToString(); }

class SnapshotSequenceTest : public tolvartest::QueueTest {
 protected:
  void Build() {
    built_ = BuildStore(spec_, &writer_);
    volume_ = built_.Volume();
    catalog_ = std::make_unique<Catalog>(volume_->OpenRecord(volume_->GetCatalogOffset()));
  }

  SnapshotList List() { return BuildSnapshotList(*catalog_); }

  // The service knows these snapshots.
  void Knows(SnapshotPropertiesList properties) {
    context_ = std::make_unique<VssContext>([properties](SnapshotPropertiesList* list) { *list = properties; });
  }

  bool Sequence(const std::string& start, const std::string& end, SnapshotList* list) {
    return BuildSnapshotSequence({start, end}, *context_, *volume_, list);
  }

  static std::vector<Guid> Ids(const SnapshotList& list) {
    std::vector<Guid> ids;
    for (const auto& snapshot : list) ids.push_back(snapshot->GetGuid());
    return ids;
  }

  static std::vector<std::string> Names(const SnapshotList& list) {
    std::vector<std::string> names;
    for (const auto& snapshot : list) names.push_back(snapshot->GetName());
    return names;
  }

  StoreSpec spec_;
  StoreWriter writer_{64 * kMiB};
  BuiltStore built_;
  std::shared_ptr<VssVolume> volume_;
  std::unique_ptr<Catalog> catalog_;
  std::unique_ptr<VssContext> context_;
};

// --- BuildSnapshotList ------------------------------------------------------

TEST_F(SnapshotSequenceTest, ListFollowsCreationOrderNotCatalogOrder) {
  spec_.snapshots = {Snap(1, 30), Snap(2, 10), Snap(3, 20)};
  spec_.layout = CatalogLayout::kDefinitionsFirst;
  Build();
  SnapshotList list = List();
  EXPECT_EQ(Ids(list), (std::vector<Guid>{Id(2), Id(3), Id(1)}));
  EXPECT_EQ(list.front()->GetHeaderOffset(), built_.offsets[1].header);
  EXPECT_EQ(list.front()->GetIndexOffset(), built_.offsets[1].index);
  EXPECT_EQ(list.front()->GetBitmapOffset(), built_.offsets[1].bitmap);
  EXPECT_EQ(list.front()->GetVolumeSize(), 64 * kMiB);
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(SnapshotSequenceTest, SnapshotsWithEqualCreationOrderStayInCatalogOrder) {
  spec_.snapshots = {Snap(3, 5), Snap(1, 5), Snap(2, 1), Snap(4, 5)};
  Build();
  EXPECT_EQ(Ids(List()), (std::vector<Guid>{Id(2), Id(3), Id(1), Id(4)}));
}

TEST_F(SnapshotSequenceTest, DeclarationsBeforeTheirDefinitionsAreFound) {
  spec_.snapshots = {Snap(1, 1), Snap(2, 2)};
  spec_.layout = CatalogLayout::kDefinitionsFirst;
  Build();
  // Rebuild the catalog with the declarations first.
  std::vector<std::vector<uint8_t>> entries = {
      DeclarationEntry(Id(2), built_.offsets[1]), DeclarationEntry(Id(1), built_.offsets[0]),
      DefinitionEntry(Id(2), 2, 64 * kMiB), DefinitionEntry(Id(1), 1, 64 * kMiB)};
  uint64_t catalog = writer_.AddRecord(kTypeCatalog, Concat(entries));
  Catalog other(volume_->OpenRecord(catalog));
  SnapshotList list = BuildSnapshotList(other);
  EXPECT_EQ(Ids(list), (std::vector<Guid>{Id(1), Id(2)}));
  EXPECT_EQ(list.back()->GetHeaderOffset(), built_.offsets[1].header);
}

TEST_F(SnapshotSequenceTest, OneDefinitionWithoutDeclarationVoidsTheWholeList) {
  spec_.snapshots = {Snap(1, 1), Snap(2, 2), Snap(3, 3)};
  spec_.snapshots[1].writeDeclaration = false;
  Build();
  DrainErrors();
  EXPECT_TRUE(List().empty());
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(12, "Snapshot guid is empty"),
                                                     Record(12, "Empty snapshot internal guid")}));
}

TEST_F(SnapshotSequenceTest, CatalogWithoutDefinitionsGivesEmptyListAndTrimmingFailsWithStart) {
  spec_.snapshots = {Snap(1, 1)};
  spec_.snapshots[0].writeDefinition = false;
  Build();
  SnapshotList list = List();
  EXPECT_TRUE(list.empty());
  Knows({Service(1)});
  EXPECT_FALSE(Sequence(Name(1), Name(1), &list));
  EXPECT_EQ(DrainErrors(),
            (std::vector<ErrorRecord>{Record(13, "Failed build snapshot sequence. Start snapshot not find")}));
}

// --- BuildSnapshotSequence --------------------------------------------------

TEST_F(SnapshotSequenceTest, ThreeSnapshotsStartingInTheMiddle) {
  spec_.snapshots = {Snap(1, 1), Snap(2, 2), Snap(3, 3), Snap(4, 4), Snap(5, 5)};
  Build();
  Knows({Service(5), Service(4), Service(3), Service(2), Service(1)});
  SnapshotList list = List();
  EXPECT_TRUE(Sequence(Name(2), Name(4), &list));
  EXPECT_EQ(Ids(list), (std::vector<Guid>{Id(2), Id(3), Id(4)}));
  EXPECT_EQ(Names(list), (std::vector<std::string>{"dev-2", "", "dev-4"}));
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(SnapshotSequenceTest, TwoSnapshotsFromFirstToLast) {
  spec_.snapshots = {Snap(1, 1), Snap(2, 2)};
  Build();
  Knows({Service(1), Service(2)});
  SnapshotList list = List();
  EXPECT_TRUE(Sequence(Name(1), Name(2), &list));
  EXPECT_EQ(Ids(list), (std::vector<Guid>{Id(1), Id(2)}));
  EXPECT_EQ(Names(list), (std::vector<std::string>{"dev-1", "dev-2"}));
}

TEST_F(SnapshotSequenceTest, StartAndEndNamingTheSameShadowCopyGiveOneSnapshot) {
  spec_.snapshots = {Snap(1, 1), Snap(2, 2), Snap(3, 3)};
  Build();
  Knows({Service(1), Service(2), Service(3)});
  SnapshotList list = List();
  EXPECT_TRUE(Sequence(Name(2), Name(2), &list));
  EXPECT_EQ(Ids(list), (std::vector<Guid>{Id(2)}));
  EXPECT_EQ(Names(list), (std::vector<std::string>{"dev-2"}));
}

TEST_F(SnapshotSequenceTest, OneSnapshotSequenceCarriesTheEndsNameLast) {
  // Two service snapshots of one set: start and end keys are equal, and the
  // single snapshot's name is set to the start's, then to the end's.
  spec_.snapshots = {Snap(1, 1), Snap(2, 2)};
  Build();
  SnapshotProperties start = Service(2);
  SnapshotProperties end{Id(0x999), Id(0x202), "dev-end"};
  start.deviceObject = "dev-start";
  Knows({start, end});
  SnapshotList list = List();
  EXPECT_TRUE(Sequence(Name(2), Id(0x999).ToString(), &list));
  EXPECT_EQ(Ids(list), (std::vector<Guid>{Id(2)}));
  EXPECT_EQ(Names(list), (std::vector<std::string>{"dev-end"}));
}

TEST_F(SnapshotSequenceTest, UnknownStartFailsWithTheStartMessage) {
  spec_.snapshots = {Snap(1, 1), Snap(2, 2)};
  Build();
  Knows({Service(1), Service(2)});
  SnapshotList list = List();
  EXPECT_FALSE(Sequence(Id(0x777).ToString(), Name(2), &list));
  EXPECT_TRUE(list.empty());
  EXPECT_EQ(DrainErrors(),
            (std::vector<ErrorRecord>{Record(13, "Failed build snapshot sequence. Start snapshot not find")}));
}

TEST_F(SnapshotSequenceTest, UnknownEndFailsWithTheEndMessage) {
  spec_.snapshots = {Snap(1, 1), Snap(2, 2), Snap(3, 3)};
  Build();
  Knows({Service(1), Service(2), Service(3)});
  SnapshotList list = List();
  EXPECT_FALSE(Sequence(Name(1), Id(0x777).ToString(), &list));
  EXPECT_TRUE(list.empty());
  EXPECT_EQ(DrainErrors(),
            (std::vector<ErrorRecord>{Record(14, "Failed build snapshot sequence. End snapshot not find")}));
}

TEST_F(SnapshotSequenceTest, UnknownEndMatchesOnlyAStoreHeaderWithZeroSetIdentifier) {
  // The zero key of the unknown end matches snapshot 3, whose header has no
  // set identifier; that snapshot lies inside the sequence, so the request
  // fails with the empty-identifier message and no other.
  spec_.snapshots = {Snap(1, 1), Snap(2, 2), Snap(3, 3), Snap(4, 4)};
  spec_.snapshots[2].setId = Guid();
  Build();
  Knows({Service(1), Service(2), Service(4)});
  SnapshotList list = List();
  EXPECT_FALSE(Sequence(Name(1), Id(0x777).ToString(), &list));
  EXPECT_TRUE(list.empty());
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(12, "Guid of vss record header is empty")}));
}

TEST_F(SnapshotSequenceTest, EndBeforeStartFailsWithTheEndMessage) {
  spec_.snapshots = {Snap(1, 1), Snap(2, 2), Snap(3, 3), Snap(4, 4)};
  Build();
  Knows({Service(1), Service(2), Service(3), Service(4)});
  SnapshotList list = List();
  EXPECT_FALSE(Sequence(Name(3), Name(1), &list));
  EXPECT_TRUE(list.empty());
  EXPECT_EQ(DrainErrors(),
            (std::vector<ErrorRecord>{Record(14, "Failed build snapshot sequence. End snapshot not find")}));
}

TEST_F(SnapshotSequenceTest, EndBeforeAStartThatNeverComesFailsWithTheStartMessage) {
  spec_.snapshots = {Snap(1, 1), Snap(2, 2)};
  Build();
  Knows({Service(1), Service(2)});
  SnapshotList list = List();
  EXPECT_FALSE(Sequence(Id(0x777).ToString(), Name(1), &list));
  EXPECT_EQ(DrainErrors(),
            (std::vector<ErrorRecord>{Record(13, "Failed build snapshot sequence. Start snapshot not find")}));
}

TEST_F(SnapshotSequenceTest, UpperCaseOrBracedIdentifiersFindNothing) {
  spec_.snapshots = {Snap(0xabcdef, 1), Snap(0xabcdee, 2)};
  Build();
  Knows({Service(0xabcdef), Service(0xabcdee)});
  std::string upper = Name(0xabcdef);
  for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  ASSERT_NE(upper, Name(0xabcdef));
  SnapshotList list = List();
  EXPECT_FALSE(Sequence(upper, Name(0xabcdee), &list));
  list = List();
  EXPECT_FALSE(Sequence("{" + Name(0xabcdef) + "}", Name(0xabcdee), &list));
  EXPECT_EQ(DrainErrors(),
            (std::vector<ErrorRecord>{Record(13, "Failed build snapshot sequence. Start snapshot not find"),
                                      Record(13, "Failed build snapshot sequence. Start snapshot not find")}));
  list = List();
  EXPECT_TRUE(Sequence(Name(0xabcdef), Name(0xabcdee), &list));
}

TEST_F(SnapshotSequenceTest, EmptySetIdentifierOfTheStartSnapshotIsNotChecked) {
  // The start's store header has a zero set identifier, and so has the
  // service's start snapshot: they match, and the start is not checked.
  spec_.snapshots = {Snap(1, 1), Snap(2, 2), Snap(3, 3)};
  spec_.snapshots[1].setId = Guid();
  Build();
  SnapshotProperties start{Id(0x102), Guid(), "dev-2"};
  Knows({Service(1), start, Service(3)});
  SnapshotList list = List();
  EXPECT_TRUE(Sequence(Name(2), Name(3), &list));
  EXPECT_EQ(Ids(list), (std::vector<Guid>{Id(2), Id(3)}));
  EXPECT_EQ(Names(list), (std::vector<std::string>{"dev-2", "dev-3"}));
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(SnapshotSequenceTest, EmptySetIdentifierBeforeTheStartIsNotChecked) {
  spec_.snapshots = {Snap(1, 1), Snap(2, 2), Snap(3, 3)};
  spec_.snapshots[0].setId = Guid();
  Build();
  Knows({Service(2), Service(3)});
  SnapshotList list = List();
  EXPECT_TRUE(Sequence(Name(2), Name(3), &list));
  EXPECT_EQ(Ids(list), (std::vector<Guid>{Id(2), Id(3)}));
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(SnapshotSequenceTest, EmptySetIdentifierInsideTheSequenceFailsWithoutFurtherMessage) {
  spec_.snapshots = {Snap(1, 1), Snap(2, 2), Snap(3, 3), Snap(4, 4)};
  spec_.snapshots[2].setId = Guid();
  Build();
  Knows({Service(1), Service(2), Service(3), Service(4)});
  SnapshotList list = List();
  EXPECT_FALSE(Sequence(Name(2), Name(4), &list));
  EXPECT_TRUE(list.empty());
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(12, "Guid of vss record header is empty")}));
}

TEST_F(SnapshotSequenceTest, EmptySetIdentifierOfTheEndSnapshotIsChecked) {
  spec_.snapshots = {Snap(1, 1), Snap(2, 2)};
  spec_.snapshots[1].setId = Guid();
  Build();
  SnapshotProperties end{Id(0x102), Guid(), "dev-2"};
  Knows({Service(1), end});
  SnapshotList list = List();
  EXPECT_FALSE(Sequence(Name(1), Name(2), &list));
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(12, "Guid of vss record header is empty")}));
}

TEST_F(SnapshotSequenceTest, UnreadableStoreHeaderInsideTheSequence) {
  spec_.snapshots = {Snap(1, 1), Snap(2, 2), Snap(3, 3)};
  Build();
  PageSpec broken;
  broken.offset = built_.offsets[1].header;
  broken.ownOffset = 0x4000;
  writer_.WritePage(broken);
  Knows({Service(1), Service(2), Service(3)});
  SnapshotList list = List();
  EXPECT_FALSE(Sequence(Name(1), Name(3), &list));
  std::string offset = std::to_string(built_.offsets[1].header);
  EXPECT_EQ(DrainErrors(),
            (std::vector<ErrorRecord>{
                Record(12, "Unexpected vss record native offset. Actual(" + offset + "), was expected(16384)"),
                Record(12, "Can't find last page."), Record(1, "Failed to read header record"),
                Record(12, "Guid of vss record header is empty")}));
}

TEST_F(SnapshotSequenceTest, UnreadableStoreHeaderOfTheStartFailsToMatch) {
  spec_.snapshots = {Snap(1, 1), Snap(2, 2)};
  Build();
  writer_.Source()->FailReadsAt(built_.offsets[0].header);
  Knows({Service(1), Service(2)});
  SnapshotList list = List();
  EXPECT_FALSE(Sequence(Name(1), Name(2), &list));
  EXPECT_EQ(DrainErrors(),
            (std::vector<ErrorRecord>{Record(1, "Failed to read vss record header"),
                                      Record(12, "Can't find last page."), Record(1, "Failed to read header record"),
                                      Record(13, "Failed build snapshot sequence. Start snapshot not find")}));
}

TEST_F(SnapshotSequenceTest, ServiceWithoutSnapshotsFindsNoStart) {
  spec_.snapshots = {Snap(1, 1)};
  Build();
  Knows({});
  SnapshotList list = List();
  EXPECT_FALSE(Sequence(Name(1), Name(1), &list));
  EXPECT_EQ(DrainErrors(),
            (std::vector<ErrorRecord>{Record(13, "Failed build snapshot sequence. Start snapshot not find")}));
}

}  // namespace
