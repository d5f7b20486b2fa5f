// FileRecordParser against the library's parser: for every record it reads,
// it must give what ReadFileRecordInfo gives for the same bytes, and every
// record it does not read must be left to the parser.
#include "cli/file_record_parser.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "ntfsparsercore/attributes/readers/readers_factory.h"
#include "ntfsparsercore/mft_table.h"
#include "tests/fixtures/memory_source.h"
#include "tests/fixtures/memory_volume.h"
#include "tests/fixtures/ntfs_image_builder.h"

namespace tolvarcli {
namespace {

using tolvartest::AttributeBytes;
using tolvartest::AttributeFields;
using tolvartest::Bytes;
using tolvartest::FileNameAttribute;
using tolvartest::FileRecordBytes;
using tolvartest::FileRecordFields;
using tolvartest::NonResidentAttribute;
using tolvartest::ResidentData;

constexpr uint64_t kRecordSize = 1024;
constexpr uint64_t kClusterSize = 4096;

Bytes StandardInformation(uint16_t id, uint64_t firstTime, uint32_t attributes) {
  AttributeFields f;
  f.type = 0x10;
  f.id = id;
  f.value.resize(72, 0);
  for (int t = 0; t < 4; ++t) tolvartest::PutLe64(&f.value, 8 * t, firstTime + t);
  tolvartest::PutLe32(&f.value, 32, attributes);
  return AttributeBytes(f);
}

// An MFT of three records whose record 1 holds bytes, read both ways.
struct BothWays {
  bool parsed = false;    // FileRecordParser read it
  FileRecordInfo fast;    // what it gave
  FileRecordInfo parser;  // what the library's parser gave
};

BothWays Read(const Bytes& record, uint32_t sectorSize = 512) {
  constexpr uint64_t kNumber = 1;
  Bytes mft(3 * kRecordSize, 0);
  std::copy(record.begin(), record.end(), mft.begin() + kNumber * kRecordSize);
  tolvartest::MemoryVolume volume(mft, sectorSize, kClusterSize);
  ntfsparsercore::MftTable table(&volume, std::make_shared<tolvartest::MemorySource>(mft),
                                 std::make_shared<ntfsparsercore::attributes::readers::ReadersFactory>(&volume), 0,
                                 kRecordSize);
  BothWays both;
  const Bytes raw(mft.begin() + kNumber * kRecordSize, mft.begin() + (kNumber + 1) * kRecordSize);
  both.parsed = FileRecordParser::Parse(kNumber, raw, {kNumber * kRecordSize, sectorSize, kClusterSize}, &both.fast);
  both.parser = ReadFileRecordInfo(table, kClusterSize, kNumber);
  return both;
}

void ExpectSame(const FileRecordInfo& a, const FileRecordInfo& b) {
  EXPECT_EQ(a.record, b.record);
  EXPECT_EQ(a.sequence, b.sequence);
  EXPECT_EQ(a.zero, b.zero);
  EXPECT_EQ(a.damaged, b.damaged);
  EXPECT_EQ(a.inUse, b.inUse);
  EXPECT_EQ(a.directory, b.directory);
  EXPECT_EQ(a.baseRecord, b.baseRecord);
  ASSERT_EQ(a.names.size(), b.names.size());
  for (std::size_t i = 0; i < a.names.size(); ++i) {
    EXPECT_EQ(a.names[i].parent, b.names[i].parent);
    EXPECT_EQ(a.names[i].parentSequence, b.names[i].parentSequence);
    EXPECT_EQ(a.names[i].nameSpace, b.names[i].nameSpace);
    EXPECT_EQ(a.names[i].name, b.names[i].name);
  }
  EXPECT_EQ(a.hasTimes, b.hasTimes);
  EXPECT_TRUE(std::equal(a.times, a.times + FileRecordInfo::kTimeCount, b.times));
  EXPECT_EQ(a.attributes, b.attributes);
  ASSERT_EQ(a.streams.size(), b.streams.size());
  for (std::size_t i = 0; i < a.streams.size(); ++i) {
    const DataStream& x = a.streams[i];
    const DataStream& y = b.streams[i];
    EXPECT_EQ(x.name, y.name);
    EXPECT_EQ(x.size, y.size);
    EXPECT_EQ(x.initializedSize, y.initializedSize);
    EXPECT_EQ(x.resident, y.resident);
    EXPECT_EQ(x.compressed, y.compressed);
    EXPECT_EQ(x.sparse, y.sparse);
    EXPECT_EQ(x.compressionUnit, y.compressionUnit);
    EXPECT_EQ(x.residentValue, y.residentValue);
    EXPECT_EQ(x.runs, y.runs);
  }
}

void ExpectReadAsTheParserDoes(const Bytes& record, uint32_t sectorSize = 512) {
  const BothWays both = Read(record, sectorSize);
  ASSERT_TRUE(both.parsed);
  ExpectSame(both.fast, both.parser);
}

FileRecordFields OrdinaryFile() {
  FileRecordFields f;
  f.attributes = {StandardInformation(0, 132000000000000000ull, 0x20), FileNameAttribute(2, 5, "report.txt", 1),
                  FileNameAttribute(3, 5, "REPORT~1.TXT", 2),
                  NonResidentAttribute(0x80, 4, 0, 9, 40000, {{4, 20, 1, 1}, {6, -8, 1, 1}}),
                  ResidentData(5, Bytes{'z', 'o', 'n', 'e'}, "Zone.Identifier")};
  return f;
}

TEST(FileRecordParserTest, AnOrdinaryFileReadsAsTheParserReadsIt) {
  ExpectReadAsTheParserDoes(FileRecordBytes(OrdinaryFile()));
  const BothWays both = Read(FileRecordBytes(OrdinaryFile()));
  EXPECT_EQ(both.fast.names.size(), 2u);
  EXPECT_EQ(both.fast.streams.size(), 2u);
}

TEST(FileRecordParserTest, AZeroRecordAFreeRecordAndAnExtensionRecordHaveNoAttributesToRead) {
  ExpectReadAsTheParserDoes(Bytes(kRecordSize, 0));
  FileRecordFields free = OrdinaryFile();
  free.flags = 0;
  ExpectReadAsTheParserDoes(FileRecordBytes(free));
  FileRecordFields extension = OrdinaryFile();
  extension.baseRecord = 40;
  ExpectReadAsTheParserDoes(FileRecordBytes(extension));
  FileRecordFields directory = OrdinaryFile();
  directory.flags = 0x0003;
  ExpectReadAsTheParserDoes(FileRecordBytes(directory));
}

TEST(FileRecordParserTest, FixupsArePutBackBeforeValuesAreRead) {
  // A resident value across the end of the first sector: its bytes 510 and
  // 511 are stored in the fix-up array.
  Bytes value(700);
  for (std::size_t i = 0; i < value.size(); ++i) value[i] = static_cast<uint8_t>(i * 7);
  FileRecordFields f;
  f.attributes = {StandardInformation(0, 1, 0), ResidentData(1, value)};
  ExpectReadAsTheParserDoes(FileRecordBytes(f));
  EXPECT_EQ(Read(FileRecordBytes(f)).fast.streams.at(0).residentValue, value);
}

TEST(FileRecordParserTest, FixupsFollowSectorsCountedFromTheSourcesStart) {
  // With 4,096-byte sectors, record 1 starts 1,024 bytes into a sector: the
  // parser puts back the bytes of whole sectors only, by their distance
  // from the record.
  Bytes value(900, 0x5A);
  FileRecordFields f;
  f.attributes = {StandardInformation(0, 1, 0), ResidentData(1, value)};
  ExpectReadAsTheParserDoes(FileRecordBytes(f), 4096);
}

TEST(FileRecordParserTest, ReadsAreCutAtTheAllocatedSize) {
  FileRecordFields f = OrdinaryFile();
  f.attributes.push_back(ResidentData(6, Bytes(300, 0x41), "late"));
  for (uint32_t allocated : {0x60u, 0x100u, 0x180u, 0x200u, 0x300u}) {
    f.allocatedSize = allocated;
    SCOPED_TRACE(allocated);
    ExpectReadAsTheParserDoes(FileRecordBytes(f));
  }
}

TEST(FileRecordParserTest, AttributesOfOneTypeAreTakenInOrderOfTheirIds) {
  FileRecordFields f;
  f.attributes = {StandardInformation(7, 50, 0),       StandardInformation(1, 10, 0),
                  FileNameAttribute(9, 5, "b", 1),     FileNameAttribute(4, 5, "a", 1),
                  ResidentData(8, Bytes{2}, "second"), ResidentData(3, Bytes{1}, "first")};
  ExpectReadAsTheParserDoes(FileRecordBytes(f));
  const BothWays both = Read(FileRecordBytes(f));
  EXPECT_EQ(both.fast.times[0], 10u);
  EXPECT_EQ(both.fast.names.at(0).name, u"a");
  EXPECT_EQ(both.fast.streams.at(0).name, u"first");
}

TEST(FileRecordParserTest, ACompressedSparseStreamKeepsItsUnitAndHoles) {
  AttributeFields data;
  data.type = 0x80;
  data.id = 2;
  data.flags = 0x8001;
  data.nonResident = true;
  data.lastVcn = 31;
  data.compressionUnit = 4;
  data.dataSize = 100000;
  data.initializedSize = 90000;
  data.mappingPairs = tolvartest::MappingPairs({{3, 40, 1, 1}, {13, 0, 1, 0}, {16, 10, 1, 1}});
  FileRecordFields f;
  f.attributes = {StandardInformation(0, 1, 0x800), AttributeBytes(data)};
  ExpectReadAsTheParserDoes(FileRecordBytes(f));
  const BothWays both = Read(FileRecordBytes(f));
  EXPECT_EQ(both.fast.streams.at(0).compressionUnit, 4u);
  EXPECT_EQ(both.fast.streams.at(0).initializedSize, 90000u);
}

TEST(FileRecordParserTest, AWalkThatComesBackToAPositionEnds) {
  FileRecordFields f = OrdinaryFile();
  Bytes looping = ResidentData(9, Bytes{1, 2, 3});
  tolvartest::PutLe32(&looping, 4, 0);  // a length of 0 names the same position again
  f.attributes.insert(f.attributes.begin() + 2, looping);
  ExpectReadAsTheParserDoes(FileRecordBytes(f));
}

TEST(FileRecordParserTest, RecordsThisDoesNotReadAreLeftToTheParser) {
  FileRecordFields listed = OrdinaryFile();
  AttributeFields list;
  list.type = 0x20;
  list.id = 9;
  list.value = tolvartest::AttributeListEntryBytes(0x80, 0, 7, 1, "");
  listed.attributes.push_back(AttributeBytes(list));
  EXPECT_FALSE(Read(FileRecordBytes(listed)).parsed);

  FileRecordFields damaged = OrdinaryFile();
  damaged.magic = 0x44414142;  // "BAAD"
  const BothWays both = Read(FileRecordBytes(damaged));
  EXPECT_FALSE(both.parsed);
  EXPECT_TRUE(both.parser.damaged);

  FileRecordFields twice;
  twice.attributes = {ResidentData(1, Bytes{1}), ResidentData(2, Bytes{2})};
  EXPECT_FALSE(Read(FileRecordBytes(twice)).parsed);

  AttributeFields packed;
  packed.type = 0x80;
  packed.flags = 0x0001;
  packed.value = Bytes{1, 2, 3};
  FileRecordFields compressed;
  compressed.attributes = {AttributeBytes(packed)};
  EXPECT_FALSE(Read(FileRecordBytes(compressed)).parsed);

  FileRecordFields past = OrdinaryFile();
  past.allocatedSize = 4096;  // reads would reach the next record
  EXPECT_FALSE(Read(FileRecordBytes(past)).parsed);
}

}  // namespace
}  // namespace tolvarcli
