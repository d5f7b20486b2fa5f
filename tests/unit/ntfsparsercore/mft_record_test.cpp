// File records read through a volume's MFT table: header checks, bounded
// reads, extension records and the attribute list.
#include "ntfsparsercore/mft_record.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "ntfsparsercore/attributes/readers/i_reader.h"
#include "ntfsparsercore/io/ntfs_file.h"
#include "ntfsparsercore/mft_table.h"
#include "ntfsparsercore/ntfs_volume.h"
#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/memory_source.h"
#include "tests/fixtures/memory_volume.h"
#include "tests/fixtures/ntfs_image_builder.h"

using tolvarcommon::ErrorRecord;

namespace {

using ntfsparsercore::MftRecord;
using ntfsparsercore::NtfsVolume;
using ntfsparsercore::io::NtfsFile;
using tolvartest::AttributeFields;
using tolvartest::AttributeListEntryBytes;
using tolvartest::Bytes;
using tolvartest::DrainErrors;
using tolvartest::FileRecordBytes;
using tolvartest::FileRecordFields;
using tolvartest::MemorySource;
using tolvartest::NtfsImageBuilder;
using tolvartest::Record;

// Every walk of a record's attributes reads the end marker as an attribute
// header and reports its type once.
ErrorRecord EndMarker() { return Record(3, "Unexpected attribute type was expected(4096), actual(4294967295)"); }

std::vector<ErrorRecord> EndMarkers(std::size_t walks) { return std::vector<ErrorRecord>(walks, EndMarker()); }

class MftRecordTest : public tolvartest::QueueTest {
 protected:
  std::shared_ptr<NtfsVolume> Open() {
    std::shared_ptr<NtfsVolume> volume(NtfsVolume::Create(std::make_shared<MemorySource>(builder_.Image()), 1 << 20));
    EXPECT_TRUE(volume);
    EXPECT_EQ(DrainErrors(), EndMarkers(1));  // the walk of record 0
    return volume;
  }

  static std::vector<uint16_t> Ids(const MftRecord::AttributeList& attributes) {
    std::vector<uint16_t> ids;
    for (const auto& a : attributes) ids.push_back(a->GetAttributeId());
    return ids;
  }

  NtfsImageBuilder builder_;
};

TEST_F(MftRecordTest, RecordNotInUseYieldsNoAttributesAndReportsNothing) {
  FileRecordFields f;
  f.flags = 0;
  f.attributes.push_back(tolvartest::ResidentData(1, Bytes{1, 2, 3}));
  builder_.SetRecord(30, FileRecordBytes(f));
  auto volume = Open();
  auto record = volume->GetMftTable()->GetRecord(30, true);
  EXPECT_FALSE(record->IsInUse());
  EXPECT_FALSE(record->IsDirectory());
  EXPECT_TRUE(record->GetAttributes().empty());
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(MftRecordTest, SignatureOtherThanFileIsReportedAndRecordNotInUse) {
  FileRecordFields f;
  f.magic = 0x44414142;  // "BAAD"
  builder_.SetRecord(30, FileRecordBytes(f));
  auto volume = Open();
  auto record = volume->GetMftTable()->GetRecord(30, true);
  EXPECT_FALSE(record->IsInUse());
  EXPECT_TRUE(record->GetAttributes().empty());
  // The multi-sector reader, then the record's own two checks.
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{
                               Record(3, "Unexpected record type. Was expected(1162627398), actual(1145127234)"),
                               Record(3, "Unexpected usn type. Was expected(1162627398), actual(1145127234)"),
                               Record(3, "Unexpected record type. Was expected(1162627398), actual(1145127234)"),
                           }));
}

TEST_F(MftRecordTest, RecordPastTheMftStreamIsNotInUse) {
  // Record 0's stream ends at 64 records: record 64 lies past it. The page
  // cache keeps the line of its failed read, so the header read that
  // follows gets that line's bytes (all 0xFF) and fails the signature.
  auto volume = Open();
  auto record = volume->GetMftTable()->GetRecord(64, false);
  EXPECT_FALSE(record->IsInUse());
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{
                               Record(1, "Failed read cluster, position 65536"),
                               Record(3, "MultiSectorHeader read failed"),
                               Record(3, "Unexpected usn type. Was expected(1162627398), actual(0)"),
                               Record(3, "Unexpected record type. Was expected(1162627398), actual(4294967295)"),
                           }));
}

TEST_F(MftRecordTest, HeaderReadShortReportsUsnReadFailed) {
  // A table straight over a source of 40 bytes: the 48-byte header cannot be read.
  Bytes record = FileRecordBytes(FileRecordFields());
  record.resize(40);
  auto source = std::make_shared<MemorySource>(record);
  tolvartest::MemoryVolume volume(record, 512, 4096);
  ntfsparsercore::MftTable table(&volume, source, nullptr, 0, 1024);
  auto read = table.GetRecord(0, true);
  EXPECT_FALSE(read->IsInUse());
  EXPECT_EQ(DrainErrors(), std::vector<ErrorRecord>{Record(3, "Usn read failed")});
}

TEST_F(MftRecordTest, GetRecordFollowingBaseReturnsBaseRecord) {
  builder_.AddFile(30, "base.txt", {tolvartest::ResidentData(1, Bytes{9})});
  FileRecordFields extension;
  extension.baseRecord = 30;
  builder_.SetRecord(31, FileRecordBytes(extension));
  auto volume = Open();
  auto followed = volume->GetMftTable()->GetRecord(31, true);
  EXPECT_EQ(followed->GetRecordNumber(), 30u);
  EXPECT_EQ(followed->GetBaseRecordNumber(), 0u);
  auto asRead = volume->GetMftTable()->GetRecord(31, false);
  EXPECT_EQ(asRead->GetRecordNumber(), 31u);
  EXPECT_EQ(asRead->GetBaseRecordNumber(), 30u);
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(MftRecordTest, BaseReferenceToItselfIsReturnedAsRead) {
  FileRecordFields f;
  f.baseRecord = 32;
  builder_.SetRecord(32, FileRecordBytes(f));
  auto volume = Open();
  auto record = volume->GetMftTable()->GetRecord(32, true);
  EXPECT_EQ(record->GetRecordNumber(), 32u);
  EXPECT_EQ(record->GetBaseRecordNumber(), 32u);
}

TEST_F(MftRecordTest, BaseReferencesInACircleEnd) {
  FileRecordFields a;
  a.baseRecord = 34;
  builder_.SetRecord(33, FileRecordBytes(a));
  FileRecordFields b;
  b.baseRecord = 33;
  builder_.SetRecord(34, FileRecordBytes(b));
  auto volume = Open();
  auto record = volume->GetMftTable()->GetRecord(33, true);
  EXPECT_EQ(record->GetRecordNumber(), 34u);
}

TEST_F(MftRecordTest, ReadAtAllocatedSizeReportsAndReadPastItIsCut) {
  builder_.AddFile(30, "f", {});
  auto volume = Open();
  auto record = volume->GetMftTable()->GetRecord(30, true);
  uint8_t buffer[64] = {};
  EXPECT_EQ(record->Read(buffer, 4, 1024), 0u);
  EXPECT_EQ(DrainErrors(), std::vector<ErrorRecord>{Record(2, "MftRecord::Read after(1024) size(1024)")});
  EXPECT_EQ(record->Read(buffer, 64, 1000), 24u);
  // The fix-up restores the bytes of the sector end: the record's last two
  // bytes read back as stored before protection (zeros here).
  EXPECT_EQ(buffer[22], 0);
  EXPECT_EQ(buffer[23], 0);
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(MftRecordTest, ReadIsBoundedByTheRecordsOwnAllocatedSize) {
  FileRecordFields f;
  f.allocatedSize = 512;
  builder_.SetRecord(30, FileRecordBytes(f));
  auto volume = Open();
  auto record = volume->GetMftTable()->GetRecord(30, true);
  uint8_t buffer[16];
  EXPECT_EQ(record->Read(buffer, 16, 600), 0u);
  EXPECT_EQ(DrainErrors(), std::vector<ErrorRecord>{Record(2, "MftRecord::Read after(600) size(512)")});
}

TEST_F(MftRecordTest, AttributesWithoutListComeInAttributeIdOrder) {
  builder_.AddFile(30, "ids",
                   {tolvartest::ResidentData(5, Bytes{1}, "b"), tolvartest::ResidentData(3, Bytes{2}, "a"),
                    tolvartest::ResidentData(3, Bytes{3}, "c")});
  auto volume = Open();
  auto attributes = volume->GetMftTable()->GetRecord(30, true)->GetAttributes();
  EXPECT_EQ(Ids(attributes), (std::vector<uint16_t>{0, 3, 3, 5}));
  // Equal ids keep their record order.
  EXPECT_EQ(attributes[1]->GetName(), "a");
  EXPECT_EQ(attributes[2]->GetName(), "c");
  EXPECT_EQ(volume->GetMftTable()->GetRecord(30, true)->GetAttributes(0x80).size(), 3u);
}

// Record 40 holds an attribute list; its data attribute lies in two
// extents in records 41 and 42, listed out of order and one of them twice.
class AttributeListTest : public MftRecordTest {
 protected:
  void SetUp() override {
    MftRecordTest::SetUp();
    Bytes list;
    for (const Bytes& entry : {AttributeListEntryBytes(0x30, 0, 40, 4), AttributeListEntryBytes(0x80, 2, 42, 7),
                               AttributeListEntryBytes(0x80, 0, 41, 7), AttributeListEntryBytes(0x80, 0, 41, 7),
                               AttributeListEntryBytes(0x10, 0, 40, 1)}) {
      tolvartest::PutBytes(&list, list.size(), entry);
    }
    AttributeFields listAttribute;
    listAttribute.type = 0x20;
    listAttribute.id = 2;
    listAttribute.value = list;
    AttributeFields info;
    info.type = 0x10;
    info.id = 1;
    info.value = Bytes(48, 0);
    FileRecordFields base;
    base.attributes = {tolvartest::AttributeBytes(info), tolvartest::AttributeBytes(listAttribute),
                       tolvartest::FileNameAttribute(4, NtfsImageBuilder::kRootRecord, "listed.bin")};
    builder_.SetRecord(40, FileRecordBytes(base));
    FileRecordFields first;
    first.baseRecord = 40;
    first.attributes = {tolvartest::NonResidentAttribute(0x80, 7, 0, 1, 3 * 4096, {{2, 60, 1, 1}})};
    builder_.SetRecord(41, FileRecordBytes(first));
    FileRecordFields second;
    second.baseRecord = 40;
    second.attributes = {tolvartest::NonResidentAttribute(0x80, 7, 2, 2, 0, {{1, 70, 1, 1}})};
    builder_.SetRecord(42, FileRecordBytes(second));
    builder_.PutCluster(60, Bytes(4096, 0x60));
    builder_.PutCluster(61, Bytes(4096, 0x61));
    builder_.PutCluster(70, Bytes(4096, 0x70));
  }
};

TEST_F(AttributeListTest, ExtentsListedOutOfOrderBecomeOneAttributeInClusterOrder) {
  auto volume = Open();
  auto record = volume->GetMftTable()->GetRecord(40, true);
  auto data = record->GetAttributes(0x80);
  ASSERT_EQ(data.size(), 1u);
  const auto& extents = data[0]->GetRecords();
  ASSERT_EQ(extents.size(), 2u);  // the extent listed twice is taken once
  EXPECT_EQ(extents[0]->GetStartingVcn(), 0u);
  EXPECT_EQ(extents[1]->GetStartingVcn(), 2u);
  NtfsFile file(record);
  ASSERT_EQ(file.GetSize(), 3u * 4096);
  Bytes bytes(3 * 4096);
  EXPECT_EQ(file.Read(bytes.data(), bytes.size(), 0), bytes.size());
  EXPECT_EQ(bytes[0], 0x60);
  EXPECT_EQ(bytes[4096], 0x61);
  EXPECT_EQ(bytes[8191], 0x61);
  EXPECT_EQ(bytes[8192], 0x70);
  EXPECT_EQ(DrainErrors(), EndMarkers(12));  // two gatherings of the base and its extension records
}

TEST_F(AttributeListTest, AttributesThroughListComeInAttributeIdOrder) {
  auto volume = Open();
  auto attributes = volume->GetMftTable()->GetRecord(40, true)->GetAttributes();
  EXPECT_EQ(Ids(attributes), (std::vector<uint16_t>{1, 4, 7}));
  EXPECT_EQ(attributes[0]->GetType(), 0x10u);
  EXPECT_EQ(attributes[1]->GetType(), 0x30u);
  EXPECT_EQ(attributes[2]->GetType(), 0x80u);
}

TEST_F(AttributeListTest, EqualIdsAreOrderedByNameBeforeType) {
  // Two listed attributes with one id: the unnamed one goes first although
  // its type is the higher one.
  FileRecordFields holder;
  holder.baseRecord = 43;
  holder.attributes = {tolvartest::ResidentData(9, Bytes{1})};
  builder_.SetRecord(44, FileRecordBytes(holder));
  AttributeFields named;
  named.type = 0x40;
  named.id = 9;
  named.name = "a";
  named.value = Bytes(16, 0);
  FileRecordFields other;
  other.baseRecord = 43;
  other.attributes = {tolvartest::AttributeBytes(named)};
  builder_.SetRecord(45, FileRecordBytes(other));
  Bytes list;
  tolvartest::PutBytes(&list, 0, AttributeListEntryBytes(0x40, 0, 45, 9, "a"));
  tolvartest::PutBytes(&list, list.size(), AttributeListEntryBytes(0x80, 0, 44, 9));
  AttributeFields listAttribute;
  listAttribute.type = 0x20;
  listAttribute.id = 0;
  listAttribute.value = list;
  FileRecordFields base;
  base.attributes = {tolvartest::AttributeBytes(listAttribute)};
  builder_.SetRecord(43, FileRecordBytes(base));
  auto volume = Open();
  auto attributes = volume->GetMftTable()->GetRecord(43, true)->GetAttributes();
  ASSERT_EQ(attributes.size(), 2u);
  EXPECT_EQ(attributes[0]->GetType(), 0x80u);
  EXPECT_EQ(attributes[1]->GetType(), 0x40u);
  EXPECT_EQ(attributes[1]->GetName(), "a");
}

TEST_F(MftRecordTest, AttributesOfOneTypeComeInAttributeIdOrderWithEqualIdsInRecordOrder) {
  AttributeFields index;
  index.type = 0x90;
  index.id = 1;
  index.name = "$I30";
  index.value = Bytes(8, 0);
  builder_.AddFile(30, "types",
                   {tolvartest::ResidentData(9, Bytes{1}, "z"), tolvartest::AttributeBytes(index),
                    tolvartest::ResidentData(4, Bytes{2}, "y"), tolvartest::ResidentData(4, Bytes{3}, "x"),
                    tolvartest::ResidentData(2, Bytes{4}, "w")});
  auto volume = Open();
  auto record = volume->GetMftTable()->GetRecord(30, true);
  auto data = record->GetAttributes(0x80);
  EXPECT_EQ(Ids(data), (std::vector<uint16_t>{2, 4, 4, 9}));
  ASSERT_EQ(data.size(), 4u);
  EXPECT_EQ(data[0]->GetName(), "w");
  EXPECT_EQ(data[1]->GetName(), "y");
  EXPECT_EQ(data[2]->GetName(), "x");
  EXPECT_EQ(data[3]->GetName(), "z");
  EXPECT_EQ(Ids(record->GetAttributes(0x90)), (std::vector<uint16_t>{1}));
  EXPECT_EQ(Ids(record->GetAttributes(0x30)), (std::vector<uint16_t>{0}));
  EXPECT_TRUE(record->GetAttributes(0x40).empty());
  // Each call walks the record once and meets its end marker once.
  EXPECT_EQ(DrainErrors(), EndMarkers(4));
}

TEST_F(MftRecordTest, AttributeWalkEndsOnARecordLengthOfZero) {
  AttributeFields f;
  f.type = 0x10;
  f.value = Bytes(8, 0);
  Bytes zeroLength = tolvartest::AttributeBytes(f);
  tolvartest::PutLe32(&zeroLength, 4, 0);
  FileRecordFields record;
  record.attributes = {zeroLength};
  builder_.SetRecord(30, FileRecordBytes(record));
  auto volume = Open();
  EXPECT_EQ(volume->GetMftTable()->GetRecord(30, true)->GetAttributes().size(), 1u);
}

TEST_F(MftRecordTest, LongAttributeWalkEndsWhereALengthWrapsBackToAPositionMet) {
  // 39 empty attributes of 24 bytes each; the last one's length takes the
  // 16-bit position round to the first attribute again.
  FileRecordFields record;
  const std::size_t count = 39;
  for (std::size_t i = 0; i < count; ++i) {
    AttributeFields f;
    f.type = 0x10;
    f.id = static_cast<uint16_t>(i);
    record.attributes.push_back(tolvartest::AttributeBytes(f));
  }
  const uint32_t lastPosition = record.firstAttributeOffset + 24 * (count - 1);
  tolvartest::PutLe32(&record.attributes.back(), 4, 0x10000 - (lastPosition - record.firstAttributeOffset));
  builder_.SetRecord(30, FileRecordBytes(record));
  auto volume = Open();
  auto attributes = volume->GetMftTable()->GetRecord(30, true)->GetAttributes();
  ASSERT_EQ(attributes.size(), count);
  std::vector<uint16_t> ids(count);
  for (std::size_t i = 0; i < count; ++i) ids[i] = static_cast<uint16_t>(i);
  EXPECT_EQ(Ids(attributes), ids);
  // No end marker is met, so nothing is reported.
  EXPECT_TRUE(DrainErrors().empty());
}

}  // namespace

namespace {

TEST_F(AttributeListTest, ExtentsUnderDifferentAttributeIdsStaySeparateAttributes) {
  // The second extent's record gives it id 0 (as ntfs-3g writes extension
  // records): grouped by id, name and type it becomes an attribute of its
  // own, which comes first and, not starting at VCN 0, carries no size.
  FileRecordFields second;
  second.baseRecord = 40;
  second.attributes = {tolvartest::NonResidentAttribute(0x80, 0, 2, 2, 0, {{1, 70, 1, 1}})};
  builder_.SetRecord(42, FileRecordBytes(second));
  Bytes list;
  for (const Bytes& entry : {AttributeListEntryBytes(0x30, 0, 40, 4), AttributeListEntryBytes(0x80, 0, 41, 7),
                             AttributeListEntryBytes(0x80, 2, 42, 0)}) {
    tolvartest::PutBytes(&list, list.size(), entry);
  }
  AttributeFields listAttribute;
  listAttribute.type = 0x20;
  listAttribute.id = 2;
  listAttribute.value = list;
  FileRecordFields base;
  base.attributes = {tolvartest::AttributeBytes(listAttribute),
                     tolvartest::FileNameAttribute(4, NtfsImageBuilder::kRootRecord, "split.bin")};
  builder_.SetRecord(40, FileRecordBytes(base));
  auto volume = Open();
  auto record = volume->GetMftTable()->GetRecord(40, true);
  auto data = record->GetAttributes(0x80);
  ASSERT_EQ(data.size(), 2u);
  EXPECT_EQ(data[0]->GetAttributeId(), 0u);
  EXPECT_EQ(data[0]->GetSize(), 0u);
  EXPECT_EQ(data[1]->GetAttributeId(), 7u);
  EXPECT_EQ(data[1]->GetSize(), 3u * 4096);
  NtfsFile file(record);
  EXPECT_EQ(file.GetSize(), 0u);
}

TEST_F(AttributeListTest, ListEntryWithoutAMatchingIdAddsNothing) {
  Bytes list;
  for (const Bytes& entry : {AttributeListEntryBytes(0x30, 0, 40, 4), AttributeListEntryBytes(0x80, 0, 41, 9)}) {
    tolvartest::PutBytes(&list, list.size(), entry);
  }
  AttributeFields listAttribute;
  listAttribute.type = 0x20;
  listAttribute.id = 2;
  listAttribute.value = list;
  FileRecordFields base;
  base.attributes = {tolvartest::AttributeBytes(listAttribute),
                     tolvartest::FileNameAttribute(4, NtfsImageBuilder::kRootRecord, "lost.bin")};
  builder_.SetRecord(40, FileRecordBytes(base));
  auto volume = Open();
  auto attributes = volume->GetMftTable()->GetRecord(40, true)->GetAttributes();
  EXPECT_EQ(Ids(attributes), (std::vector<uint16_t>{4}));
}

// A data attribute whose mapping pairs are cut by the record's allocated
// size after the first run: the terminating 0 lies past the record.
class CutMappingPairsTest : public MftRecordTest {
 protected:
  static constexpr uint64_t kDataCluster = 100;

  void SetUp() override {
    MftRecordTest::SetUp();
    const Bytes name = tolvartest::FileNameAttribute(1, NtfsImageBuilder::kRootRecord, "cut.bin");
    FileRecordFields f;
    f.attributes = {name, tolvartest::NonResidentAttribute(0x80, 2, 0, 0, 4096, {{1, kDataCluster, 1, 1}})};
    // The first pair takes 3 bytes; the record ends where the next header would be.
    cutAt_ = f.firstAttributeOffset + name.size() + kMappingPairsOffset + 3;
    f.allocatedSize = static_cast<uint32_t>(cutAt_);
    builder_.SetRecord(30, FileRecordBytes(f));
    builder_.PutCluster(kDataCluster, tolvartest::PatternBytes(4096));
  }

  static constexpr std::size_t kMappingPairsOffset = 0x48;  // of an unnamed non-resident attribute
  std::size_t cutAt_ = 0;
};

TEST_F(CutMappingPairsTest, EveryReadAndExtentListingReportsTheReadPastTheRecordAgain) {
  auto volume = Open();
  auto data = volume->GetMftTable()->GetRecord(30, true)->GetAttributes(0x80);
  ASSERT_EQ(data.size(), 1u);
  DrainErrors();
  auto reader = data[0]->CreateReader();
  Bytes first(4096);
  EXPECT_EQ(reader->Read(first.data(), 4096, 0), 4096u);
  EXPECT_EQ(first, tolvartest::PatternBytes(4096));
  Bytes second(100);
  EXPECT_EQ(reader->Read(second.data(), 100, 50), 100u);
  EXPECT_EQ(second, Bytes(first.begin() + 50, first.begin() + 150));
  auto extents = reader->GetExtents();
  ASSERT_EQ(extents.size(), 1u);
  EXPECT_EQ(extents[0].volumeOffset, kDataCluster * 4096);
  const std::string message =
      "MftRecord::Read after(" + std::to_string(cutAt_) + ") size(" + std::to_string(cutAt_) + ")";
  EXPECT_EQ(DrainErrors(), std::vector<ErrorRecord>(3, Record(2, message)));
}

}  // namespace
