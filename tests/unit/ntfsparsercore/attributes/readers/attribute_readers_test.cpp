// The plain and compressed attribute readers and the factory that picks them.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "ntfsparsercore/attributes/readers/compressed_reader.h"
#include "ntfsparsercore/attributes/readers/plain_attribute_reader.h"
#include "ntfsparsercore/attributes/readers/readers_factory.h"
#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/memory_source.h"
#include "tests/fixtures/memory_volume.h"
#include "tests/fixtures/ntfs_builder.h"

namespace ntfsparsercore {
namespace attributes {
namespace readers {

void PrintTo(const Extent& e, std::ostream* os) {
  *os << "{logical " << e.logicalSize << ", offset " << e.volumeOffset << ", stored " << e.storedSize << "}";
}

}  // namespace readers
}  // namespace attributes
}  // namespace ntfsparsercore

namespace {

using ntfsparsercore::Attribute;
using ntfsparsercore::AttributeRecord;
using ntfsparsercore::attributes::readers::CompressedReader;
using ntfsparsercore::attributes::readers::Extent;
using ntfsparsercore::attributes::readers::ExtentList;
using ntfsparsercore::attributes::readers::IReader;
using ntfsparsercore::attributes::readers::PlainAttributeReader;
using ntfsparsercore::attributes::readers::ReadersFactory;
using tolvartest::AttributeFields;
using tolvartest::Bytes;
using tolvartest::MemorySource;
using tolvartest::MemoryVolume;
using tolvartest::Pair;

constexpr uint64_t kCluster = 512;
constexpr uint64_t kUnit = 16 * kCluster;  // compression unit exponent 4
constexpr uint16_t kCompressed = 0x0001;

// A compressed chunk of 8 bytes that expands to 4096 bytes of "abcabc...".
const Bytes kAbcChunk = {0x05, 0xB0, 0x08, 'a', 'b', 'c', 0xFA, 0x2F};

Bytes Abc(std::size_t size) {
  Bytes out(size);
  for (std::size_t i = 0; i < size; ++i) out[i] = static_cast<uint8_t>("abc"[i % 3]);
  return out;
}

class AttributeReadersTest : public tolvartest::QueueTest {
 protected:
  AttributeReadersTest() : volume_(tolvartest::PatternBytes(300 * kCluster), 512, kCluster) {}

  std::shared_ptr<IReader> Reader(const AttributeFields& fields) {
    auto record =
        std::make_shared<AttributeRecord>(std::make_shared<MemorySource>(tolvartest::AttributeBytes(fields)), 0);
    return factory_.Create(Attribute(nullptr, {record}));
  }

  static AttributeFields NonResident(uint64_t size, const std::vector<Pair>& pairs, uint16_t flags = 0) {
    AttributeFields fields;
    fields.nonResident = true;
    fields.flags = flags;
    fields.dataSize = size;
    fields.compressionUnit = (flags & kCompressed) ? 4 : 0;
    fields.mappingPairs = tolvartest::MappingPairs(pairs);
    return fields;
  }

  Bytes VolumeBytes(uint64_t offset, uint64_t size) {
    return Bytes(volume_.Bytes().begin() + offset, volume_.Bytes().begin() + offset + size);
  }

  static Bytes ReadAll(IReader& reader, uint64_t size, uint64_t offset) {
    Bytes out(size);
    out.resize(reader.Read(out.data(), size, offset));
    return out;
  }

  // A compressed file: one compressed unit (1 cluster at LCN 8 and 15
  // sparse clusters), one stored unit (16 clusters at LCN 100) and an
  // uncompressed tail of 1000 bytes at LCN 200.
  std::shared_ptr<IReader> CompressedFile() {
    Bytes stored = kAbcChunk;
    stored.insert(stored.end(), kAbcChunk.begin(), kAbcChunk.end());
    stored.resize(kCluster, 0);
    volume_.Put(8 * kCluster, stored);
    return Reader(
        NonResident(2 * kUnit + 1000, {{1, 8, 1, 1}, {15, 0, 1, 0}, {16, 92, 1, 1}, {2, 100, 1, 1}}, kCompressed));
  }

  MemoryVolume volume_;
  ReadersFactory factory_{&volume_};
};

TEST_F(AttributeReadersTest, PlainReadAtOffsetEqualToTheSizeReturnsZeroWithoutTouchingTheVolume) {
  auto reader = Reader(NonResident(1000, {{2, 10, 1, 1}}));
  uint8_t buffer[16];
  EXPECT_EQ(reader->Read(buffer, 16, 1000), 0u);
  EXPECT_EQ(reader->Read(buffer, 16, 1001), 0u);
  EXPECT_TRUE(volume_.Calls().empty());
}

TEST_F(AttributeReadersTest, CompressedReadAtOffsetEqualToTheSizeReturnsZeroWithoutTouchingTheVolume) {
  auto reader = CompressedFile();
  volume_.ForgetCalls();
  uint8_t buffer[16];
  EXPECT_EQ(reader->Read(buffer, 16, reader->GetSize()), 0u);
  EXPECT_EQ(reader->Read(buffer, 16, reader->GetSize() + 1), 0u);
  EXPECT_TRUE(volume_.Calls().empty());
}

TEST_F(AttributeReadersTest, PlainReadFollowsTheRunsInOrderAndClampsToTheSize) {
  auto reader = Reader(NonResident(3 * kCluster + 10, {{2, 40, 1, 1}, {2, -30, 1, 1}}));
  const Bytes expected = [&] {
    Bytes e = VolumeBytes(40 * kCluster, 2 * kCluster);
    const Bytes second = VolumeBytes(10 * kCluster, kCluster + 10);
    e.insert(e.end(), second.begin(), second.end());
    return e;
  }();
  EXPECT_EQ(ReadAll(*reader, 4 * kCluster, 0), expected);
  EXPECT_EQ(reader->GetSize(), 3 * kCluster + 10);
}

TEST_F(AttributeReadersTest, PlainReadStartingInsideARunTakesUpToTheWholeRunFromThere) {
  auto reader = Reader(NonResident(4 * kCluster, {{2, 10, 1, 1}, {2, 10, 1, 1}}));
  // From 1 cluster into the first run, 3 clusters: two are taken from that
  // run's position on (running on into cluster 12), then one from the next run.
  Bytes expected = VolumeBytes(11 * kCluster, 2 * kCluster);
  const Bytes next = VolumeBytes(20 * kCluster, kCluster);
  expected.insert(expected.end(), next.begin(), next.end());
  EXPECT_EQ(ReadAll(*reader, 3 * kCluster, kCluster), expected);
}

TEST_F(AttributeReadersTest, PlainReadOfASparseRunGivesZerosWithoutAVolumeRead) {
  auto reader = Reader(NonResident(3 * kCluster, {{1, 10, 1, 1}, {2, 0, 1, 0}}));
  volume_.ForgetCalls();
  EXPECT_EQ(ReadAll(*reader, 2 * kCluster, kCluster), Bytes(2 * kCluster, 0));
  EXPECT_TRUE(volume_.Calls().empty());
}

TEST_F(AttributeReadersTest, PlainReadOfAResidentValueReadsTheRecord) {
  AttributeFields fields;
  fields.value = Bytes{10, 11, 12, 13, 14, 15};
  auto reader = Reader(fields);
  EXPECT_EQ(ReadAll(*reader, 3, 2), (Bytes{12, 13, 14}));
  EXPECT_EQ(ReadAll(*reader, 100, 4), (Bytes{14, 15}));
  uint8_t byte;
  EXPECT_EQ(reader->Read(nullptr, 1, 0), 0u);
  EXPECT_EQ(reader->Read(&byte, 1, 7), 0u);
}

TEST_F(AttributeReadersTest, PlainExtentsFollowTheRunsAndEndAtTheSize) {
  auto reader = Reader(NonResident(3 * kCluster + 10, {{2, 40, 1, 1}, {1, 0, 1, 0}, {4, 10, 1, 1}, {9, 1, 1, 1}}));
  EXPECT_EQ(
      reader->GetExtents(),
      (ExtentList{{2 * kCluster, 40 * kCluster, 2 * kCluster}, {kCluster, 0, kCluster}, {10, 50 * kCluster, 10}}));
}

TEST_F(AttributeReadersTest, TwentyClustersThenTwelveSparseGiveAStoredUnitAndACompressedUnit) {
  auto reader = Reader(NonResident(32 * kCluster, {{20, 50, 1, 1}, {12, 0, 1, 0}}, kCompressed));
  EXPECT_EQ(reader->GetExtents(),
            (ExtentList{{kUnit, 50 * kCluster, kUnit}, {kUnit, (50 + 16) * kCluster, 4 * kCluster}}));
}

TEST_F(AttributeReadersTest, RemainderWithAShortSparseRunAbsorbsItWhole) {
  auto reader = Reader(NonResident(10 * kCluster, {{4, 50, 1, 1}, {6, 0, 1, 0}}, kCompressed));
  EXPECT_EQ(reader->GetExtents(), (ExtentList{{10 * kCluster, 50 * kCluster, 4 * kCluster}}));
}

TEST_F(AttributeReadersTest, PartlyAbsorbedSparseRunKeepsItsStoredSizeAndIsCutInTurn) {
  auto reader = Reader(NonResident(24 * kCluster, {{4, 50, 1, 1}, {20, 0, 1, 0}}, kCompressed));
  EXPECT_EQ(reader->GetExtents(), (ExtentList{{kUnit, 50 * kCluster, 4 * kCluster}, {8 * kCluster, 0, 20 * kCluster}}));
}

TEST_F(AttributeReadersTest, SparseRunLongerThanAUnitGivesSparseUnits) {
  auto reader = Reader(NonResident(48 * kCluster, {{16, 50, 1, 1}, {32, 0, 1, 0}}, kCompressed));
  EXPECT_EQ(reader->GetExtents(), (ExtentList{{kUnit, 50 * kCluster, kUnit}, {kUnit, 0, kUnit}, {kUnit, 0, kUnit}}));
}

TEST_F(AttributeReadersTest, CompressedFileReadsExpandedStoredAndTailUnits) {
  auto reader = CompressedFile();
  EXPECT_EQ(
      reader->GetExtents(),
      (ExtentList{{kUnit, 8 * kCluster, kCluster}, {kUnit, 100 * kCluster, kUnit}, {1000, 200 * kCluster, 1000}}));
  Bytes expected = Abc(4096);
  const Bytes second = Abc(4096);
  expected.insert(expected.end(), second.begin(), second.end());
  const Bytes stored = VolumeBytes(100 * kCluster, kUnit);
  expected.insert(expected.end(), stored.begin(), stored.end());
  const Bytes tail = VolumeBytes(200 * kCluster, 1000);
  expected.insert(expected.end(), tail.begin(), tail.end());
  EXPECT_EQ(ReadAll(*reader, reader->GetSize(), 0), expected);
}

TEST_F(AttributeReadersTest, ShortCompressedUnitGivesAtMostItsLogicalSize) {
  // Four clusters stored and six sparse: a unit of 10 clusters whose data
  // expands to a whole unit, of which only the logical size is taken.
  Bytes stored = kAbcChunk;
  stored.insert(stored.end(), kAbcChunk.begin(), kAbcChunk.end());
  stored.resize(4 * kCluster, 0);
  volume_.Put(8 * kCluster, stored);
  auto reader = Reader(NonResident(10 * kCluster, {{4, 8, 1, 1}, {6, 0, 1, 0}}, kCompressed));
  Bytes buffer(kUnit, 0xEE);
  EXPECT_EQ(reader->Read(buffer.data(), 10 * kCluster, 0), 10 * kCluster);
  Bytes expected = Abc(4096);
  const Bytes second = Abc(10 * kCluster - 4096);
  expected.insert(expected.end(), second.begin(), second.end());
  EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 10 * kCluster), expected);
  EXPECT_EQ(buffer[10 * kCluster], 0xEE);
}

TEST_F(AttributeReadersTest, StoredUnitIsReadFromTheSkipIntoIt) {
  auto reader = CompressedFile();
  EXPECT_EQ(ReadAll(*reader, 50, kUnit + 100), VolumeBytes(100 * kCluster + 100, 50));
}

TEST_F(AttributeReadersTest, CompressedUnitIsExpandedFromItsFirstByteWhateverTheOffset) {
  auto reader = CompressedFile();
  EXPECT_EQ(ReadAll(*reader, 100, 10)[0], 'a');
  Bytes buffer(100);
  reader->Read(buffer.data(), 100, 10);
  EXPECT_EQ(buffer, Abc(100));
}

TEST_F(AttributeReadersTest, FullUnitCountsItsWholeExpansionButWritesOnlyTheCallersRoom) {
  auto reader = CompressedFile();
  Bytes buffer(100 + 16, 0xEE);
  EXPECT_EQ(reader->Read(buffer.data(), 100, 0), kUnit);
  EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 100), Abc(100));
  EXPECT_EQ(Bytes(buffer.begin() + 100, buffer.end()), Bytes(16, 0xEE));
}

TEST_F(AttributeReadersTest, CompressedUnitWhoseStoredBytesCannotBeReadAddsNothing) {
  auto reader = Reader(NonResident(kUnit, {{1, 290, 2, 2}, {15, 0, 1, 0}}, kCompressed));
  volume_.Bytes().resize(290 * kCluster + 10);
  Bytes buffer(kUnit);
  EXPECT_EQ(reader->Read(buffer.data(), kUnit, 0), 0u);
}

TEST_F(AttributeReadersTest, UnitStoringMoreThanAUnitAddsNothingInsteadOfOverrunningTheScratchBuffer) {
  auto reader = Reader(NonResident(24 * kCluster, {{4, 50, 1, 1}, {20, 0, 1, 0}}, kCompressed));
  Bytes buffer(24 * kCluster, 0xEE);
  // The first unit expands whatever the pattern bytes decode to; the second
  // (8 clusters stored as 20) is refused.
  const uint64_t first = reader->Read(buffer.data(), kUnit, 0);
  EXPECT_EQ(reader->Read(buffer.data(), 8 * kCluster, kUnit), 0u);
  EXPECT_LE(first, kUnit);
}

TEST_F(AttributeReadersTest, SparseUnitIsReadFromTheVolumesFirstBytes) {
  auto reader = Reader(NonResident(2 * kUnit, {{16, 50, 1, 1}, {16, 0, 1, 0}}, kCompressed));
  EXPECT_EQ(ReadAll(*reader, 64, kUnit + 8), VolumeBytes(8, 64));
}

TEST_F(AttributeReadersTest, CompressedAttributeOfAnotherTypeIsReadRawByThePlainReader) {
  AttributeFields fields = NonResident(kUnit, {{1, 8, 1, 1}, {15, 0, 1, 0}}, kCompressed);
  fields.type = 0xA0;
  auto reader = Reader(fields);
  EXPECT_NE(dynamic_cast<PlainAttributeReader*>(reader.get()), nullptr);
  EXPECT_EQ(ReadAll(*reader, kCluster, 0), VolumeBytes(8 * kCluster, kCluster));
}

TEST_F(AttributeReadersTest, CompressedReaderOfAResidentValueReadsThroughThePlainReader) {
  AttributeFields fields;
  fields.flags = kCompressed;
  fields.value = Bytes{1, 2, 3};
  auto reader = Reader(fields);
  ASSERT_NE(dynamic_cast<CompressedReader*>(reader.get()), nullptr);
  EXPECT_EQ(ReadAll(*reader, 3, 0), (Bytes{1, 2, 3}));
}

TEST_F(AttributeReadersTest, UnitExponentPastTheWidthLeavesNoUnitsInsteadOfShiftingOutOfRange) {
  AttributeFields fields = NonResident(kUnit, {{16, 50, 1, 1}}, kCompressed);
  fields.compressionUnit = 64;
  auto reader = Reader(fields);
  auto* compressed = dynamic_cast<CompressedReader*>(reader.get());
  ASSERT_NE(compressed, nullptr);
  EXPECT_EQ(compressed->GetUnitSize(), 0u);
  EXPECT_TRUE(reader->GetExtents().empty());
  Bytes buffer(16);
  EXPECT_EQ(reader->Read(buffer.data(), 16, 0), 0u);
}

TEST_F(AttributeReadersTest, UnitLargerThanAnyVolumeCanUseLeavesNoUnitsInsteadOfAllocatingIt) {
  AttributeFields fields = NonResident(kUnit, {{16, 50, 1, 1}}, kCompressed);
  fields.compressionUnit = 17;  // 64 MiB units of 512-byte clusters
  auto reader = Reader(fields);
  EXPECT_EQ(dynamic_cast<CompressedReader*>(reader.get())->GetUnitSize(), 0u);
  Bytes buffer(16);
  EXPECT_EQ(reader->Read(buffer.data(), 16, 0), 0u);
  fields.compressionUnit = 16;  // 32 MiB: still allowed
  EXPECT_EQ(dynamic_cast<CompressedReader*>(Reader(fields).get())->GetUnitSize(), uint64_t{1} << 25);
}

TEST_F(AttributeReadersTest, ReadFarIntoAHugeSparseFilePassesOverItsUnitsWithoutListingThem) {
  // A petabyte of sparse units behind one stored unit; reading the stored
  // unit at the end takes no time although the units before it are many.
  const uint64_t sparseClusters = (uint64_t{1} << 50) / kCluster;
  auto reader =
      Reader(NonResident((uint64_t{1} << 50) + kUnit, {{sparseClusters, 0, 8, 0}, {16, 100, 1, 1}}, kCompressed));
  EXPECT_EQ(ReadAll(*reader, 64, (uint64_t{1} << 50) + 10), VolumeBytes(100 * kCluster + 10, 64));
}

TEST_F(AttributeReadersTest, RunPastTheVolumeEndIsPassedOverAfterItsFirstUnit) {
  // A damaged run of 2^40 clusters beyond the volume, then a stored unit.
  const uint64_t clusters = uint64_t{1} << 40;
  auto reader =
      Reader(NonResident(clusters * kCluster + kUnit, {{clusters, 1000, 8, 2}, {16, -900, 1, 2}}, kCompressed));
  Bytes buffer(kUnit);
  volume_.ForgetCalls();
  // The units past the end add nothing, so the next run's bytes come first.
  EXPECT_EQ(reader->Read(buffer.data(), kUnit, 0), kUnit);
  EXPECT_EQ(buffer, VolumeBytes(100 * kCluster, kUnit));
  EXPECT_EQ(volume_.Calls(), (std::vector<MemoryVolume::ReadCall>{{1000 * kCluster, kUnit}, {100 * kCluster, kUnit}}));
  EXPECT_EQ(ReadAll(*reader, 32, clusters * kCluster), VolumeBytes(100 * kCluster, 32));
}

TEST_F(AttributeReadersTest, ClusterSizeZeroLeavesNoUnitsInsteadOfCuttingForever) {
  MemoryVolume noGeometry(Bytes(4096, 1), 512, 0);
  ReadersFactory factory(&noGeometry);
  auto record = std::make_shared<AttributeRecord>(
      std::make_shared<MemorySource>(tolvartest::AttributeBytes(NonResident(100, {{16, 50, 1, 1}}, kCompressed))), 0);
  auto reader = factory.Create(Attribute(nullptr, {record}));
  EXPECT_TRUE(reader->GetExtents().empty());
  Bytes buffer(16);
  EXPECT_EQ(reader->Read(buffer.data(), 16, 0), 0u);
}

}  // namespace

namespace {

TEST_F(AttributeReadersTest, HugeSparseCompressedFileListsItsFarSparseUnitsAsOneExtent) {
  // A petabyte of sparse units, then one stored unit; the volume is 300
  // clusters (18.75 units). Units are listed one by one up to the volume's
  // size; the rest of the sparse run is one extent, so positions still add up.
  const uint64_t sparseClusters = (uint64_t{1} << 50) / kCluster;
  auto reader =
      Reader(NonResident((uint64_t{1} << 50) + kUnit, {{sparseClusters, 0, 8, 0}, {16, 100, 1, 1}}, kCompressed));
  const auto extents = reader->GetExtents();
  ASSERT_EQ(extents.size(), 19u + 1 + 1);
  for (std::size_t i = 0; i < 19; ++i) EXPECT_EQ(extents[i], (Extent{kUnit, 0, kUnit}));
  const uint64_t rest = (uint64_t{1} << 50) - 19 * kUnit;
  EXPECT_EQ(extents[19], (Extent{rest, 0, rest}));
  EXPECT_EQ(extents[20], (Extent{kUnit, 100 * kCluster, kUnit}));
}

TEST_F(AttributeReadersTest, RunStoredPastTheVolumeEndIsListedAsOneExtentAfterItsFirstUnit) {
  const uint64_t clusters = uint64_t{1} << 40;
  auto reader =
      Reader(NonResident(clusters * kCluster + kUnit, {{clusters, 1000, 8, 2}, {16, -900, 1, 2}}, kCompressed));
  const auto extents = reader->GetExtents();
  ASSERT_EQ(extents.size(), 3u);
  EXPECT_EQ(extents[0], (Extent{kUnit, 1000 * kCluster, kUnit}));
  const uint64_t rest = clusters * kCluster - kUnit;
  EXPECT_EQ(extents[1], (Extent{rest, 1000 * kCluster + kUnit, rest}));
  EXPECT_EQ(extents[2], (Extent{kUnit, 100 * kCluster, kUnit}));
}

TEST_F(AttributeReadersTest, SparseUnitsWithinTheVolumeSizeAreListedOneByOne) {
  // Eight sparse units and a stored one: all within the volume's 18.75 units.
  auto reader = Reader(NonResident(9 * kUnit, {{8 * 16, 0, 2, 0}, {16, 100, 1, 1}}, kCompressed));
  const auto extents = reader->GetExtents();
  ASSERT_EQ(extents.size(), 9u);
  for (std::size_t i = 0; i < 8; ++i) EXPECT_EQ(extents[i], (Extent{kUnit, 0, kUnit}));
}

// A volume whose boot sector claims far more than its source holds: reads
// past the source's 300 clusters deliver nothing.
class ClaimingVolume : public MemoryVolume {
 public:
  using MemoryVolume::MemoryVolume;
  uint64_t GetSize() override { return uint64_t{1} << 50; }
  uint64_t GetSourceSize() override { return Bytes().size(); }
};

class ClaimingVolumeReadersTest : public AttributeReadersTest {
 protected:
  std::shared_ptr<IReader> ClaimingReader(const AttributeFields& fields) {
    auto record =
        std::make_shared<AttributeRecord>(std::make_shared<MemorySource>(tolvartest::AttributeBytes(fields)), 0);
    return claimingFactory_.Create(Attribute(nullptr, {record}));
  }

  ClaimingVolume claiming_{tolvartest::PatternBytes(300 * kCluster), 512, kCluster};
  ReadersFactory claimingFactory_{&claiming_};
};

TEST_F(ClaimingVolumeReadersTest, RunPastTheSourceEndIsPassedOverAfterItsFirstUnitDeliveredNothing) {
  // A damaged run of 2^30 64 KiB units inside the claimed volume but past
  // its source, then a stored unit: each unit would be read and fail.
  const uint64_t clusters = uint64_t{1} << 34;
  auto reader =
      ClaimingReader(NonResident(clusters * kCluster + kUnit, {{clusters, 1000, 8, 2}, {16, -900, 1, 2}}, kCompressed));
  Bytes buffer(kUnit);
  claiming_.ForgetCalls();
  EXPECT_EQ(reader->Read(buffer.data(), kUnit, 0), kUnit);
  EXPECT_EQ(buffer,
            Bytes(claiming_.Bytes().begin() + 100 * kCluster, claiming_.Bytes().begin() + 100 * kCluster + kUnit));
  EXPECT_EQ(claiming_.Calls(),
            (std::vector<MemoryVolume::ReadCall>{{1000 * kCluster, kUnit}, {100 * kCluster, kUnit}}));
}

TEST_F(ClaimingVolumeReadersTest, RunStoredPastTheSourceEndIsListedAsOneExtentAfterItsFirstUnit) {
  const uint64_t clusters = uint64_t{1} << 34;
  auto reader =
      ClaimingReader(NonResident(clusters * kCluster + kUnit, {{clusters, 1000, 8, 2}, {16, -900, 1, 2}}, kCompressed));
  const auto extents = reader->GetExtents();
  ASSERT_EQ(extents.size(), 3u);
  EXPECT_EQ(extents[0], (Extent{kUnit, 1000 * kCluster, kUnit}));
  const uint64_t rest = clusters * kCluster - kUnit;
  EXPECT_EQ(extents[1], (Extent{rest, 1000 * kCluster + kUnit, rest}));
  EXPECT_EQ(extents[2], (Extent{kUnit, 100 * kCluster, kUnit}));
}

TEST_F(ClaimingVolumeReadersTest, SparseUnitsPastTheSourceSizeAreListedAsOneExtent) {
  // 2^34 sparse clusters: units are listed one by one up to the source's
  // 18.75 units, not up to the claimed petabyte.
  const uint64_t clusters = uint64_t{1} << 34;
  auto reader =
      ClaimingReader(NonResident(clusters * kCluster + kUnit, {{clusters, 0, 8, 0}, {16, 100, 1, 1}}, kCompressed));
  const auto extents = reader->GetExtents();
  ASSERT_EQ(extents.size(), 19u + 1 + 1);
  const uint64_t rest = clusters * kCluster - 19 * kUnit;
  EXPECT_EQ(extents[19], (Extent{rest, 0, rest}));
  EXPECT_EQ(extents[20], (Extent{kUnit, 100 * kCluster, kUnit}));
}

}  // namespace
