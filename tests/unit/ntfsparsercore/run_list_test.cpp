#include "ntfsparsercore/run_list.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/memory_source.h"
#include "tests/fixtures/ntfs_builder.h"

namespace ntfsparsercore {

// Shown as {offset, length} in failure messages.
void PrintTo(const Run& run, std::ostream* os) { *os << '{' << run.volumeOffset << ", " << run.length << '}'; }

}  // namespace ntfsparsercore

namespace {

using ntfsparsercore::Attribute;
using ntfsparsercore::AttributeRecord;
using ntfsparsercore::BuildRunList;
using ntfsparsercore::DecodeRunList;
using ntfsparsercore::RunList;
using Pair = ntfsparsercore::Run;
using tolvartest::AttributeBytes;
using tolvartest::AttributeFields;
using tolvartest::Bytes;
using tolvartest::MemorySource;

constexpr uint64_t kCluster = 4096;

std::shared_ptr<AttributeRecord> RecordWithPairs(const Bytes& pairs, uint64_t startingVcn = 0) {
  AttributeFields fields;
  fields.nonResident = true;
  fields.startingVcn = startingVcn;
  fields.mappingPairs = pairs;
  return std::make_shared<AttributeRecord>(std::make_shared<MemorySource>(AttributeBytes(fields)), 0);
}

RunList Decode(const Bytes& pairs) { return DecodeRunList(*RecordWithPairs(pairs), kCluster); }

uint64_t Lcn(int64_t lcn) { return static_cast<uint64_t>(lcn) * kCluster; }

class RunListTest : public tolvartest::QueueTest {};

TEST_F(RunListTest, OneByteDeltaFFIsMinusOneFromTheAccumulator) {
  EXPECT_EQ(Decode({0x11, 0x05, 0xFF, 0x00}), (RunList{{Lcn(-1), 5 * kCluster}}));
  EXPECT_EQ(Decode({0x11, 0x03, 0x10, 0x11, 0x05, 0xFF, 0x00}),
            (RunList{{Lcn(16), 3 * kCluster}, {Lcn(15), 5 * kCluster}}));
}

TEST_F(RunListTest, PairWithoutDeltaIsASparseRun) {
  EXPECT_EQ(Decode({0x01, 0x08, 0x00}), (RunList{{0, 8 * kCluster}}));
  // A sparse run does not move the accumulator.
  EXPECT_EQ(Decode({0x11, 0x01, 0x20, 0x01, 0x08, 0x11, 0x01, 0x02, 0x00}),
            (RunList{{Lcn(0x20), kCluster}, {0, 8 * kCluster}, {Lcn(0x22), kCluster}}));
}

TEST_F(RunListTest, FiveByteDeltaWithBitSevenSetIsNegativeThoughItsTopBitIsClear) {
  // First a positive 4-byte LCN, then a 5-byte delta 80 00 00 00 01.
  const auto runs = Decode({0x41, 0x01, 0x00, 0x00, 0x00, 0x10, 0x51, 0x02, 0x80, 0x00, 0x00, 0x00, 0x01, 0x00});
  ASSERT_EQ(runs.size(), 2u);
  EXPECT_EQ(runs[0], (Pair{Lcn(0x10000000), kCluster}));
  // Magnitude 1 + 0x7F + 0xFF00 + 0xFF0000 + 0xFF000000 + 0xFE00000000.
  const uint64_t lcn = uint64_t{0x10000000} - uint64_t{0xFEFFFFFF80};
  EXPECT_EQ(runs[1], (Pair{lcn * kCluster, 2 * kCluster}));
}

TEST_F(RunListTest, FiveByteDeltaWithBitSevenClearIsPositiveThoughItsTopBitIsSet) {
  const auto runs = Decode({0x51, 0x01, 0x7F, 0x00, 0x00, 0x00, 0x80, 0x00});
  EXPECT_EQ(runs, (RunList{{uint64_t{0x800000007F} * kCluster, kCluster}}));
}

TEST_F(RunListTest, SixAndSevenByteDeltasTestBitsFifteenAndTwentyThree) {
  EXPECT_EQ(Decode({0x61, 0x01, 0x00, 0x80, 0x00, 0x00, 0x00, 0x00, 0x00}),
            (RunList{{(0 - uint64_t{0xFFFFFFFF8000}) * kCluster, kCluster}}));
  EXPECT_EQ(Decode({0x71, 0x01, 0x00, 0x00, 0x80, 0x00, 0x00, 0x00, 0x00, 0x00}),
            (RunList{{(0 - uint64_t{0xFFFFFFFF800000}) * kCluster, kCluster}}));
}

TEST_F(RunListTest, TwoThreeAndFourByteDeltasUseTheirTopBit) {
  EXPECT_EQ(Decode({0x21, 0x01, 0x00, 0x80, 0x00}), (RunList{{Lcn(-0x8000), kCluster}}));
  EXPECT_EQ(Decode({0x31, 0x01, 0xFF, 0xFF, 0x7F, 0x00}), (RunList{{Lcn(0x7FFFFF), kCluster}}));
  EXPECT_EQ(Decode({0x41, 0x01, 0xFE, 0xFF, 0xFF, 0xFF, 0x00}), (RunList{{Lcn(-2), kCluster}}));
}

TEST_F(RunListTest, EightByteDeltaIsNegativeWhenAnyOfBits31To63IsSet) {
  // Only bit 31 set: negative under the sign-extended mask.
  const auto runs = Decode({0x81, 0x01, 0x00, 0x00, 0x00, 0x80, 0x00, 0x00, 0x00, 0x00, 0x00});
  EXPECT_EQ(runs, (RunList{{(0 - uint64_t{0xFFFFFFFF80000000}) * kCluster, kCluster}}));
  EXPECT_EQ(Decode({0x81, 0x01, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00}), (RunList{{Lcn(-1), kCluster}}));
}

TEST_F(RunListTest, DeltaWiderThanEightBytesIsUnsigned) {
  Bytes pairs = {0x91, 0x01, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00};
  EXPECT_EQ(Decode(pairs), (RunList{{(~uint64_t{0}) * kCluster, kCluster}}));
}

TEST_F(RunListTest, LengthWiderThanEightBytesKeepsItsLow64Bits) {
  Bytes pairs = {0x1A, 0x02, 0, 0, 0, 0, 0, 0, 0, 0x05, 0x05, 0x03, 0x00};
  EXPECT_EQ(Decode(pairs), (RunList{{Lcn(3), 2 * kCluster}}));
}

TEST_F(RunListTest, RecordsAreConcatenatedAndEachStartsItsOwnAccumulator) {
  AttributeFields fields;
  auto first = RecordWithPairs({0x11, 0x02, 0x40, 0x00});
  auto second = RecordWithPairs({0x11, 0x03, 0x08, 0x00}, 2);
  Attribute attribute(nullptr, {first, second});
  EXPECT_EQ(BuildRunList(attribute, kCluster), (RunList{{Lcn(0x40), 2 * kCluster}, {Lcn(0x08), 3 * kCluster}}));
}

TEST_F(RunListTest, MappingPairsThatRunOffTheRecordEndAtTheFirstUnreadableHeader) {
  Bytes bytes = AttributeBytes([] {
    AttributeFields fields;
    fields.nonResident = true;
    return fields;
  }());
  bytes.resize(0x48);
  bytes.insert(bytes.end(), {0x11, 0x01, 0x05, 0x11, 0x01});  // second pair cut short
  AttributeRecord record(std::make_shared<MemorySource>(bytes), 0);
  EXPECT_EQ(DecodeRunList(record, kCluster), (RunList{{Lcn(5), kCluster}, {Lcn(5), kCluster}}));
}

}  // namespace
