// Directory listings, file names and the lookup of a file by its path.
#include "ntfsparsercore/path_lookup.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "ntfsparsercore/io/cache_proxy.h"
#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/fault_source.h"
#include "tests/fixtures/memory_source.h"
#include "tests/fixtures/ntfs_image_builder.h"

using tolvarcommon::ErrorRecord;

namespace {

using ntfsparsercore::FindFile;
using ntfsparsercore::GetFileName;
using ntfsparsercore::ListDirectory;
using ntfsparsercore::NtfsVolume;
using ntfsparsercore::io::NtfsFile;
using tolvartest::Bytes;
using tolvartest::DrainErrors;
using tolvartest::IndexEntryBytes;
using tolvartest::MemorySource;
using tolvartest::NtfsImageBuilder;
using tolvartest::Record;

constexpr uint64_t kRoot = NtfsImageBuilder::kRootRecord;

// The root lists itself ("."), a directory "Data" (31) holding "x.txt"
// (32), and a file "readme.txt" (30).
class PathLookupTest : public tolvartest::QueueTest {
 protected:
  void SetUp() override {
    QueueTest::SetUp();
    builder_.SetRoot({IndexEntryBytes(kRoot, 0), IndexEntryBytes(30, 0), IndexEntryBytes(31, 0)});
    builder_.AddFile(30, "readme.txt", {tolvartest::ResidentData(1, Bytes{'r', 'e', 'a', 'd'})});
    builder_.AddFile(31, "Data",
                     {tolvartest::IndexRootAttribute(1, 4096, {IndexEntryBytes(32, 0), IndexEntryBytes(0, 0x02)})},
                     kRoot, 1, 0x0003);
    builder_.AddFile(32, "x.txt", {tolvartest::ResidentData(1, Bytes{'x'})}, 31);
  }

  std::shared_ptr<NtfsVolume> Open() {
    std::shared_ptr<NtfsVolume> volume(NtfsVolume::Create(std::make_shared<MemorySource>(builder_.Image()), 1 << 20));
    EXPECT_TRUE(volume);
    DrainErrors();
    return volume;
  }

  // The lookup's messages without the end-of-attributes reports of the record walks.
  static std::vector<ErrorRecord> LookupErrors() {
    std::vector<ErrorRecord> kept;
    for (const ErrorRecord& r : DrainErrors()) {
      if (r.message != "Unexpected attribute type was expected(4096), actual(4294967295)") kept.push_back(r);
    }
    return kept;
  }

  std::unique_ptr<NtfsFile> Find(const std::string& path) {
    if (!volume_) volume_ = Open();
    return std::unique_ptr<NtfsFile>(FindFile(volume_, path));
  }

  NtfsImageBuilder builder_;
  std::shared_ptr<NtfsVolume> volume_;
};

TEST_F(PathLookupTest, EmptyPathReportsEmptyFilename) {
  EXPECT_EQ(Find(""), nullptr);
  EXPECT_EQ(LookupErrors(), std::vector<ErrorRecord>{Record(2, "Empty filename")});
}

TEST_F(PathLookupTest, PathWithoutLeadingSlashReportsInvalidFilename) {
  EXPECT_EQ(Find("a/b"), nullptr);
  EXPECT_EQ(LookupErrors(), std::vector<ErrorRecord>{Record(2, "Invalid filename")});
}

TEST_F(PathLookupTest, RootThatDoesNotListItselfFindsNothing) {
  // The walk starts by looking the root up as "." in its own listing.
  builder_.SetRoot({IndexEntryBytes(30, 0), IndexEntryBytes(31, 0)});
  EXPECT_EQ(Find("/readme.txt"), nullptr);
  EXPECT_TRUE(LookupErrors().empty());
}

TEST_F(PathLookupTest, SingleSlashFindsTheRootAsDotAndReportsADirectory) {
  EXPECT_EQ(Find("/"), nullptr);
  EXPECT_EQ(LookupErrors(), std::vector<ErrorRecord>{Record(2, "It is a directory .")});
}

TEST_F(PathLookupTest, FileInTheRootIsFound) {
  auto file = Find("/readme.txt");
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(file->GetSize(), 4u);
  EXPECT_TRUE(LookupErrors().empty());
}

TEST_F(PathLookupTest, ComponentWithUpperCaseNeverMatches) {
  EXPECT_NE(Find("/data/x.txt"), nullptr);
  EXPECT_EQ(Find("/Data/x.txt"), nullptr);
  EXPECT_EQ(Find("/README.TXT"), nullptr);
  EXPECT_TRUE(LookupErrors().empty());
}

TEST_F(PathLookupTest, TrailingSlashIsIgnoredAndADirectoryIsReportedByItsName) {
  EXPECT_EQ(Find("/data/"), nullptr);
  EXPECT_EQ(LookupErrors(), std::vector<ErrorRecord>{Record(2, "It is a directory data")});
  EXPECT_NE(Find("/readme.txt/"), nullptr);
  EXPECT_TRUE(LookupErrors().empty());
}

TEST_F(PathLookupTest, TwoSlashesInARowLookForAnEmptyNameAndFailQuietly) {
  EXPECT_EQ(Find("/data//x.txt"), nullptr);
  EXPECT_EQ(Find("//readme.txt"), nullptr);
  EXPECT_TRUE(LookupErrors().empty());
}

TEST_F(PathLookupTest, FileInsideThePathReportsNotADirectory) {
  EXPECT_EQ(Find("/readme.txt/more"), nullptr);
  EXPECT_EQ(LookupErrors(), std::vector<ErrorRecord>{Record(2, "It is not a directory readme.txt")});
}

TEST_F(PathLookupTest, MissingComponentReturnsNullWithoutMessage) {
  EXPECT_EQ(Find("/nothing.txt"), nullptr);
  EXPECT_EQ(Find("/nothing/x.txt"), nullptr);
  EXPECT_TRUE(LookupErrors().empty());
}

TEST_F(PathLookupTest, FileWithOnlyADosNameIsFoundByIt) {
  builder_.SetRoot({IndexEntryBytes(kRoot, 0), IndexEntryBytes(33, 0)});
  builder_.AddFile(33, "LONGFI~1.TXT", {tolvartest::ResidentData(1, Bytes{1, 2})}, kRoot, 2);
  auto file = Find("/longfi~1.txt");
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(file->GetSize(), 2u);
}

TEST_F(PathLookupTest, NamesArePreferredPosixWin32BothThenDos) {
  tolvartest::FileRecordFields f;
  f.attributes = {tolvartest::FileNameAttribute(1, kRoot, "DOSNAME", 2),
                  tolvartest::FileNameAttribute(2, kRoot, "both", 3),
                  tolvartest::FileNameAttribute(3, kRoot, "win32", 1)};
  builder_.SetRecord(34, tolvartest::FileRecordBytes(f));
  f.attributes.push_back(tolvartest::FileNameAttribute(4, kRoot, "posix", 0));
  builder_.SetRecord(35, tolvartest::FileRecordBytes(f));
  f.attributes = {tolvartest::FileNameAttribute(1, kRoot, "DOSNAME", 2),
                  tolvartest::FileNameAttribute(2, kRoot, "both", 3)};
  builder_.SetRecord(36, tolvartest::FileRecordBytes(f));
  f.attributes = {};
  builder_.SetRecord(37, tolvartest::FileRecordBytes(f));
  auto volume = Open();
  auto table = volume->GetMftTable();
  EXPECT_EQ(GetFileName(table->GetRecord(34, true)), "win32");
  EXPECT_EQ(GetFileName(table->GetRecord(35, true)), "posix");
  EXPECT_EQ(GetFileName(table->GetRecord(36, true)), "both");
  EXPECT_EQ(GetFileName(table->GetRecord(37, true)), "");
  EXPECT_EQ(GetFileName(nullptr), "");
}

TEST_F(PathLookupTest, NamesAreConvertedToUtf8AndOnlyAsciiIsFolded) {
  // "Äb" stored; its lower-case form folds only the ASCII letter.
  Bytes name{0xC4, 0x00, 'B', 0x00};
  tolvartest::AttributeFields fileName;
  fileName.type = 0x30;
  fileName.value = tolvartest::FileNameValue(kRoot, name, 1);
  tolvartest::FileRecordFields f;
  f.attributes = {tolvartest::AttributeBytes(fileName), tolvartest::ResidentData(1, Bytes{5})};
  builder_.SetRecord(38, tolvartest::FileRecordBytes(f));
  builder_.SetRoot({IndexEntryBytes(kRoot, 0), IndexEntryBytes(38, 0)});
  EXPECT_EQ(GetFileName(Open()->GetMftTable()->GetRecord(38, true)),
            "\xC3\x84"
            "B");
  EXPECT_NE(Find("/\xC3\x84"
                 "b"),
            nullptr);
  EXPECT_EQ(Find("/\xC3\xA4"
                 "b"),
            nullptr);
}

TEST_F(PathLookupTest, ListingOfADirectoryWithoutIndexRootIsEmpty) {
  auto volume = Open();
  EXPECT_TRUE(ListDirectory(volume->GetMftTable()->GetRecord(30, true)).empty());
  EXPECT_TRUE(ListDirectory(nullptr).empty());
}

// A directory too large for its index root: two index blocks under the
// root's entries, with a third block that is unused (all zeros).
class LargeDirectoryTest : public PathLookupTest {
 protected:
  static constexpr uint64_t kAllocationCluster = 100;

  void SetUp() override {
    PathLookupTest::SetUp();
    std::vector<Bytes> first;
    std::vector<Bytes> second;
    first.push_back(IndexEntryBytes(kRoot, 0));  // the root lists itself as "."
    for (uint64_t n = 40; n < 50; ++n) first.push_back(IndexEntryBytes(n, 0));
    for (uint64_t n = 51; n < 60; ++n) second.push_back(IndexEntryBytes(n, 0));
    first.push_back(IndexEntryBytes(0, 0x02));
    second.push_back(IndexEntryBytes(0, 0x02));
    builder_.PutCluster(kAllocationCluster, tolvartest::IndexBlockBytes(4096, 512, 0, first));
    builder_.PutCluster(kAllocationCluster + 1, tolvartest::IndexBlockBytes(4096, 512, 1, second));
    builder_.SetRoot(
        {IndexEntryBytes(50, 0x01, 0), IndexEntryBytes(0, 0x03, 1)},
        {tolvartest::NonResidentAttribute(0xA0, 3, 0, 2, 3 * 4096, {{3, kAllocationCluster, 1, 1}}, "$I30")});
    for (uint64_t n = 40; n < 60; ++n) {
      builder_.AddFile(n, "file" + std::to_string(n) + ".txt", {tolvartest::ResidentData(1, Bytes(n, 1))});
    }
  }
};

TEST_F(LargeDirectoryTest, ListingWalksSubNodesBeforeTheirEntry) {
  auto volume = Open();
  std::vector<uint64_t> expected{kRoot};
  for (uint64_t n = 40; n < 60; ++n) expected.push_back(n);
  EXPECT_EQ(ListDirectory(volume->GetMftTable()->GetRecord(kRoot, true)), expected);
  // The unused third block is reported once per map built (two sub-nodes).
  EXPECT_EQ(LookupErrors(), (std::vector<ErrorRecord>{
                                Record(3, "Unexpected record type. Was expected(1480871497), actual(0)"),
                                Record(3, "Unexpected record type. Was expected(1480871497), actual(0)"),
                            }));
}

TEST_F(LargeDirectoryTest, FileInsideIndexBlocksIsFoundThroughTheSubNodes) {
  auto file = Find("/file57.txt");
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(file->GetSize(), 57u);
  auto first = Find("/file40.txt");
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first->GetSize(), 40u);
  auto middle = Find("/file50.txt");
  ASSERT_NE(middle, nullptr);
  EXPECT_EQ(middle->GetSize(), 50u);
}

// A directory whose index root has three sub-nodes: blocks 0, 1 and 3 hold
// entries, block 2 is unused (all zeros) and is met by every map built.
class ThreeSubNodeDirectoryTest : public PathLookupTest {
 protected:
  static constexpr uint64_t kAllocationCluster = 100;

  void SetUp() override {
    PathLookupTest::SetUp();
    std::vector<Bytes> blocks[3];
    blocks[0].push_back(IndexEntryBytes(kRoot, 0));  // the root lists itself as "."
    for (uint64_t n = 40; n < 50; ++n) blocks[0].push_back(IndexEntryBytes(n, 0));
    for (uint64_t n = 51; n < 60; ++n) blocks[1].push_back(IndexEntryBytes(n, 0));
    for (uint64_t n = 61; n < 64; ++n) blocks[2].push_back(IndexEntryBytes(n, 0));
    for (auto& block : blocks) block.push_back(IndexEntryBytes(0, 0x02));
    builder_.PutCluster(kAllocationCluster, tolvartest::IndexBlockBytes(4096, 512, 0, blocks[0]));
    builder_.PutCluster(kAllocationCluster + 1, tolvartest::IndexBlockBytes(4096, 512, 1, blocks[1]));
    builder_.PutCluster(kAllocationCluster + 3, tolvartest::IndexBlockBytes(4096, 512, 3, blocks[2]));
    builder_.SetRoot(
        {IndexEntryBytes(50, 0x01, 0), IndexEntryBytes(60, 0x01, 1), IndexEntryBytes(0, 0x03, 3)},
        {tolvartest::NonResidentAttribute(0xA0, 3, 0, 3, 4 * 4096, {{4, kAllocationCluster, 1, 1}}, "$I30")});
    for (uint64_t n = 40; n < 64; ++n) {
      builder_.AddFile(n, "file" + std::to_string(n) + ".txt", {tolvartest::ResidentData(1, Bytes(n, 1))});
    }
  }

  static ErrorRecord Unused() { return Record(3, "Unexpected record type. Was expected(1480871497), actual(0)"); }
  static ErrorRecord EndMarker() {
    return Record(3, "Unexpected attribute type was expected(4096), actual(4294967295)");
  }

  // The messages of one listing of the root: the walk of its record for the
  // index root, then for each of its three sub-nodes the walk for the index
  // allocation and the unused block met while the block map is built.
  static std::vector<ErrorRecord> Listing() {
    return {EndMarker(), EndMarker(), Unused(), EndMarker(), Unused(), EndMarker(), Unused()};
  }

  static void Append(std::vector<ErrorRecord>* to, const std::vector<ErrorRecord>& more) {
    to->insert(to->end(), more.begin(), more.end());
  }
};

TEST_F(ThreeSubNodeDirectoryTest, ListingReportsTheUnusedBlockOncePerSubNodeOfTheRoot) {
  auto volume = Open();
  std::vector<uint64_t> expected{kRoot};
  for (uint64_t n = 40; n < 64; ++n) expected.push_back(n);
  EXPECT_EQ(ListDirectory(volume->GetMftTable()->GetRecord(kRoot, true)), expected);
  EXPECT_EQ(DrainErrors(), Listing());
  // A second listing reads and reports the same again.
  EXPECT_EQ(ListDirectory(volume->GetMftTable()->GetRecord(kRoot, true)), expected);
  EXPECT_EQ(DrainErrors(), Listing());
}

TEST_F(ThreeSubNodeDirectoryTest, LookupReportsEachListingThenOneRecordWalkPerNameCompared) {
  auto file = Find("/file62.txt");
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(file->GetSize(), 62u);
  // The root is listed for "." and again for the file name; the names of
  // ".", files 40 to 61 and file 62 are read, then file 62's data.
  std::vector<ErrorRecord> expected = Listing();
  expected.push_back(EndMarker());
  Append(&expected, Listing());
  expected.insert(expected.end(), 1 + 22 + 1 + 1, EndMarker());
  EXPECT_EQ(DrainErrors(), expected);
  // A missing name reads every name of the listing.
  EXPECT_EQ(Find("/file99.txt"), nullptr);
  expected = Listing();
  expected.push_back(EndMarker());
  Append(&expected, Listing());
  expected.insert(expected.end(), 1 + 24, EndMarker());
  EXPECT_EQ(DrainErrors(), expected);
}

TEST_F(ThreeSubNodeDirectoryTest, BlocksThatCannotBeReadAreTriedAndReportedAgainForEverySubNode) {
  // The device fails from block 2 of the allocation on; it is read through a
  // cache line, as volumes are.
  auto device = std::make_shared<tolvartest::FaultSource>(builder_.Image());
  device->FailFrom((kAllocationCluster + 2) * 4096);
  std::shared_ptr<NtfsVolume> volume(
      NtfsVolume::Create(std::make_shared<ntfsparsercore::io::CacheProxy>(device, 4096), 1 << 20));
  ASSERT_TRUE(volume);
  DrainErrors();
  std::vector<uint64_t> expected{kRoot};
  for (uint64_t n = 40; n < 61; ++n) expected.push_back(n);
  EXPECT_EQ(ListDirectory(volume->GetMftTable()->GetRecord(kRoot, true)), expected);
  // Per sub-node: the record walk for the index allocation, then blocks 2
  // and 3, each failing on the device and then as a block header.
  std::vector<ErrorRecord> messages{EndMarker()};
  for (int subNode = 0; subNode < 3; ++subNode) {
    Append(&messages,
           {EndMarker(), Record(1, "Failed read cluster, position 417792"), Record(3, "MultiSectorHeader read failed"),
            Record(1, "Failed read cluster, position 421888"), Record(3, "MultiSectorHeader read failed")});
  }
  EXPECT_EQ(DrainErrors(), messages);
}

}  // namespace

// ntfs-3g grows the MFT record by record, so its data size can end inside a
// cluster; Windows keeps it a whole number of clusters. The MFT is read in
// cluster-sized cache lines, so loading the partial last cluster fails: the
// first lookup that reads a record there reports the line and the record's
// header as unreadable. The line keeps what the short read brought, and the
// record's attributes, read next through the same line, are whole; so the
// file is found all the same, and later lookups are quiet.
TEST_F(PathLookupTest, RecordInThePartialLastClusterOfTheMftIsReportedOnceAndStillFound) {
  constexpr uint64_t kRecordsInMft = 62;  // the last cluster (records 60-63) holds two
  tolvartest::FileRecordFields mft;
  mft.attributes.push_back(tolvartest::FileNameAttribute(1, kRoot, "$MFT", 3));
  mft.attributes.push_back(tolvartest::NonResidentAttribute(
      0x80, 2, 0, NtfsImageBuilder::kMftClusters - 1, kRecordsInMft * NtfsImageBuilder::kRecordSize,
      {{NtfsImageBuilder::kMftClusters, static_cast<int64_t>(NtfsImageBuilder::kMftCluster), 1, 1}}));
  builder_.SetRecord(0, tolvartest::FileRecordBytes(mft));
  builder_.SetRoot({IndexEntryBytes(kRoot, 0), IndexEntryBytes(60, 0)});
  builder_.AddFile(60, "tail.txt", {tolvartest::ResidentData(1, Bytes{'t'})});

  auto first = Find("/tail.txt");
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first->GetSize(), 1u);
  EXPECT_EQ(LookupErrors(), (std::vector<ErrorRecord>{
                                Record(1, "Failed read cluster, position 61440"),
                                Record(3, "MultiSectorHeader read failed"),
                                Record(3, "Unexpected usn type. Was expected(1162627398), actual(0)"),
                            }));
  auto second = Find("/tail.txt");
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(second->GetSize(), 1u);
  EXPECT_TRUE(LookupErrors().empty());
}
