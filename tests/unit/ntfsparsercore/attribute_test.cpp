#include "ntfsparsercore/attribute.h"

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

using tolvarcommon::ErrorRecord;

namespace {

using ntfsparsercore::Attribute;
using ntfsparsercore::AttributeRecord;
using ntfsparsercore::attributes::readers::CompressedReader;
using ntfsparsercore::attributes::readers::PlainAttributeReader;
using ntfsparsercore::attributes::readers::ReadersFactory;
using tolvartest::AttributeBytes;
using tolvartest::AttributeFields;
using tolvartest::Bytes;
using tolvartest::DrainErrors;
using tolvartest::MemorySource;
using tolvartest::MemoryVolume;
using tolvartest::Record;

class AttributeTest : public tolvartest::QueueTest {
 protected:
  std::shared_ptr<AttributeRecord> MakeRecord(const AttributeFields& fields) {
    auto source = std::make_shared<MemorySource>(AttributeBytes(fields));
    return std::make_shared<AttributeRecord>(source, 0);
  }

  MemoryVolume volume_{Bytes(), 512, 4096};
  std::shared_ptr<ReadersFactory> factory_ = std::make_shared<ReadersFactory>(&volume_);
};

TEST_F(AttributeTest, EmptyRecordListReportsAndKeepsDefaults) {
  Attribute attribute(factory_, {});
  EXPECT_EQ(attribute.GetType(), 0u);
  EXPECT_TRUE(attribute.IsResident());
  EXPECT_EQ(attribute.GetSize(), 0u);
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(2, "Attribute: records are empty")}));
}

TEST_F(AttributeTest, FirstRecordWithTypeAboveTheLimitReportsAfterTheRecordsOwnMessage) {
  AttributeFields fields;
  fields.type = 0xFFFFFFFF;
  auto record = MakeRecord(fields);
  Attribute attribute(factory_, {record});
  EXPECT_EQ(attribute.GetType(), 0u);
  EXPECT_TRUE(attribute.IsResident());
  EXPECT_EQ(attribute.GetRecords().size(), 1u);
  EXPECT_EQ(DrainErrors(),
            (std::vector<ErrorRecord>{Record(3, "Unexpected attribute type was expected(4096), actual(4294967295)"),
                                      Record(2, "Attribute: input records do not have standard ntfs records")}));
}

TEST_F(AttributeTest, FieldsComeFromTheFirstRecord) {
  AttributeFields first;
  first.nonResident = true;
  first.flags = 0x8001;
  first.id = 9;
  first.name = "ads";
  first.dataSize = 5000;
  first.compressedSize = 4096;
  first.compressionUnit = 4;
  AttributeFields second = first;
  second.startingVcn = 2;
  second.id = 3;
  auto r1 = MakeRecord(first);
  auto r2 = MakeRecord(second);
  Attribute attribute(factory_, {r1, r2});
  EXPECT_EQ(attribute.GetType(), 0x80u);
  EXPECT_FALSE(attribute.IsResident());
  EXPECT_TRUE(attribute.IsCompressed());
  EXPECT_TRUE(attribute.IsSparse());
  EXPECT_TRUE(attribute.IsNamed());
  EXPECT_EQ(attribute.GetName(), "ads");
  EXPECT_EQ(attribute.GetAttributeId(), 9u);
  EXPECT_EQ(attribute.GetRecordLength(), r1->GetRecordLength());
  EXPECT_EQ(attribute.GetSize(), 5000u);
  EXPECT_EQ(attribute.GetCompressedSize(), 4096u);
  EXPECT_EQ(attribute.GetCompressionUnit(), 4u);
  EXPECT_EQ(attribute.GetRecords(), (Attribute::RecordList{r1, r2}));
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(AttributeTest, ResidentAttributeCopiesTheValueLength) {
  AttributeFields fields;
  fields.type = 0x30;
  fields.value = Bytes(66, 1);
  Attribute attribute(factory_, {MakeRecord(fields)});
  EXPECT_EQ(attribute.GetResidentValueLength(), 66u);
  EXPECT_EQ(attribute.GetSize(), 66u);
}

TEST_F(AttributeTest, CompressedDataAttributeGetsACompressedReader) {
  AttributeFields fields;
  fields.nonResident = true;
  fields.flags = 0x0001;
  fields.compressionUnit = 4;
  Attribute attribute(factory_, {MakeRecord(fields)});
  auto reader = attribute.CreateReader();
  EXPECT_NE(dynamic_cast<CompressedReader*>(reader.get()), nullptr);
}

TEST_F(AttributeTest, UncompressedDataAttributeGetsAPlainReader) {
  AttributeFields fields;
  fields.nonResident = true;
  Attribute attribute(factory_, {MakeRecord(fields)});
  EXPECT_NE(dynamic_cast<PlainAttributeReader*>(attribute.CreateReader().get()), nullptr);
}

TEST_F(AttributeTest, WithoutAFactoryThereIsNoReader) {
  AttributeFields fields;
  Attribute attribute(nullptr, {MakeRecord(fields)});
  EXPECT_EQ(attribute.CreateReader(), nullptr);
}

}  // namespace
