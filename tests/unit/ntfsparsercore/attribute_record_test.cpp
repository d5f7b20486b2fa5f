#include "ntfsparsercore/attribute_record.h"

#include <gtest/gtest.h>

#include <algorithm>

#include <memory>
#include <vector>

#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/memory_source.h"
#include "tests/fixtures/ntfs_builder.h"

using tolvarcommon::ErrorRecord;

namespace {

using ntfsparsercore::AttributeRecord;
using tolvartest::AttributeBytes;
using tolvartest::AttributeFields;
using tolvartest::Bytes;
using tolvartest::DrainErrors;
using tolvartest::MemorySource;
using tolvartest::Record;

constexpr uint64_t kAt = 0x38;  // where the attribute lies in the record

std::shared_ptr<MemorySource> RecordWith(const Bytes& attribute) {
  Bytes record(kAt + attribute.size(), 0x5A);
  std::copy(attribute.begin(), attribute.end(), record.begin() + kAt);
  tolvartest::PutLe32(&record, record.size(), 0xFFFFFFFF);
  return std::make_shared<MemorySource>(record);
}

class AttributeRecordTest : public tolvartest::QueueTest {};

TEST_F(AttributeRecordTest, ResidentNamedAttributeKeepsItsHeaderFields) {
  AttributeFields fields;
  fields.type = 0x80;
  fields.id = 5;
  fields.flags = 0x8001;
  fields.name = "Zone";
  fields.value = Bytes{1, 2, 3, 4, 5, 6, 7};
  const Bytes bytes = AttributeBytes(fields);
  AttributeRecord record(RecordWith(bytes), kAt);
  EXPECT_EQ(record.GetType(), 0x80u);
  EXPECT_TRUE(record.IsResident());
  EXPECT_TRUE(record.IsNamed());
  EXPECT_TRUE(record.IsCompressed());
  EXPECT_TRUE(record.IsSparse());
  EXPECT_EQ(record.GetName(), "Zone");
  EXPECT_EQ(record.GetAttributeId(), 5u);
  EXPECT_EQ(record.GetRecordLength(), bytes.size());
  EXPECT_EQ(record.GetSize(), 7u);
  EXPECT_EQ(record.GetResidentValueLength(), 7u);
  EXPECT_EQ(record.GetDataOffset(), kAt + 0x20);  // header 0x18, name 8 bytes
  EXPECT_EQ(record.GetOffset(), kAt);
  Bytes value(7);
  EXPECT_EQ(record.Read(value.data(), 7, 0), 7u);
  EXPECT_EQ(value, fields.value);
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(AttributeRecordTest, NonResidentCompressedFirstExtentKeepsSizesAndUnit) {
  AttributeFields fields;
  fields.nonResident = true;
  fields.flags = 0x0001;
  fields.compressionUnit = 4;
  fields.dataSize = 70000;
  fields.compressedSize = 12288;
  fields.mappingPairs = tolvartest::MappingPairs({{3, 16, 1, 1}});
  AttributeRecord record(RecordWith(AttributeBytes(fields)), kAt);
  EXPECT_FALSE(record.IsResident());
  EXPECT_FALSE(record.IsNamed());
  EXPECT_TRUE(record.IsCompressed());
  EXPECT_EQ(record.GetSize(), 70000u);
  EXPECT_EQ(record.GetCompressedSize(), 12288u);
  EXPECT_EQ(record.GetCompressionUnit(), 4u);
  EXPECT_EQ(record.GetStartingVcn(), 0u);
  EXPECT_EQ(record.GetDataOffset(), kAt + 0x48);
  uint8_t pairs[4] = {};
  EXPECT_EQ(record.Read(pairs, 4, 0), 4u);
  EXPECT_EQ(Bytes(pairs, pairs + 4), (Bytes{0x11, 3, 16, 0}));
}

TEST_F(AttributeRecordTest, UncompressedNonResidentAttributeHasNoCompressedSize) {
  AttributeFields fields;
  fields.nonResident = true;
  fields.compressionUnit = 4;
  fields.dataSize = 100;
  fields.compressedSize = 4096;
  AttributeRecord record(RecordWith(AttributeBytes(fields)), kAt);
  EXPECT_EQ(record.GetSize(), 100u);
  EXPECT_EQ(record.GetCompressedSize(), 0u);
  EXPECT_EQ(record.GetCompressionUnit(), 0u);
}

TEST_F(AttributeRecordTest, LaterExtentKeepsSizeZero) {
  AttributeFields fields;
  fields.nonResident = true;
  fields.flags = 0x0001;
  fields.startingVcn = 32;
  fields.dataSize = 70000;
  fields.compressedSize = 12288;
  fields.compressionUnit = 4;
  AttributeRecord record(RecordWith(AttributeBytes(fields)), kAt);
  EXPECT_EQ(record.GetStartingVcn(), 32u);
  EXPECT_EQ(record.GetSize(), 0u);
  EXPECT_EQ(record.GetCompressedSize(), 0u);
  EXPECT_EQ(record.GetCompressionUnit(), 0u);
}

TEST_F(AttributeRecordTest, EndMarkerReportsTheTypeAndKeepsItForTheCallerToStopOn) {
  AttributeRecord record(RecordWith(Bytes()), kAt);
  EXPECT_EQ(record.GetType(), 0xFFFFFFFFu);
  EXPECT_TRUE(record.IsResident());
  EXPECT_FALSE(record.IsNamed());
  EXPECT_EQ(record.GetRecordLength(), 0u);
  EXPECT_EQ(record.GetDataOffset(), 0u);
  EXPECT_EQ(DrainErrors(),
            (std::vector<ErrorRecord>{Record(3, "Unexpected attribute type was expected(4096), actual(4294967295)")}));
}

TEST_F(AttributeRecordTest, TypeJustAboveTheLimitIsReportedAndLeavesDefaults) {
  AttributeFields fields;
  fields.type = 4097;
  fields.flags = 0x0001;
  fields.value = Bytes{1, 2};
  AttributeRecord record(RecordWith(AttributeBytes(fields)), kAt);
  EXPECT_EQ(record.GetType(), 4097u);
  EXPECT_FALSE(record.IsCompressed());
  EXPECT_EQ(record.GetSize(), 0u);
  EXPECT_EQ(DrainErrors(),
            (std::vector<ErrorRecord>{Record(3, "Unexpected attribute type was expected(4096), actual(4097)")}));
}

TEST_F(AttributeRecordTest, TypeOf4096IsAccepted) {
  AttributeFields fields;
  fields.type = 4096;
  AttributeRecord record(RecordWith(AttributeBytes(fields)), kAt);
  EXPECT_EQ(record.GetType(), 4096u);
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(AttributeRecordTest, NonAsciiNameIsConvertedToUtf8) {
  AttributeFields fields;
  Bytes bytes = AttributeBytes(fields);
  // Name of three units: e-acute, a CJK ideograph and a surrogate pair (U+1F600).
  const Bytes name = {0xE9, 0x00, 0x2D, 0x4E, 0x3D, 0xD8, 0x00, 0xDE};
  bytes[0x09] = 4;
  tolvartest::PutLe16(&bytes, 0x0A, 0x40);
  tolvartest::PutBytes(&bytes, 0x40, name);
  AttributeRecord record(RecordWith(bytes), kAt);
  EXPECT_TRUE(record.IsNamed());
  EXPECT_EQ(record.GetName(), "\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80");
}

TEST_F(AttributeRecordTest, ShortHeaderReadLeavesZerosAndParsesAsTypeZero) {
  auto source = std::make_shared<MemorySource>(Bytes(kAt + 4, 0));
  AttributeRecord record(source, kAt);
  EXPECT_EQ(record.GetType(), 0u);
  EXPECT_TRUE(record.IsResident());
  EXPECT_EQ(record.GetSize(), 0u);
  EXPECT_TRUE(DrainErrors().empty());
}

}  // namespace
