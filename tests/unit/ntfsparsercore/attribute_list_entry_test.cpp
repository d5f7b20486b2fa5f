#include "ntfsparsercore/attribute_list_entry.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "ntfsparsercore/attributes/readers/readers_factory.h"
#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/memory_source.h"
#include "tests/fixtures/memory_volume.h"
#include "tests/fixtures/ntfs_builder.h"

namespace {

using ntfsparsercore::Attribute;
using ntfsparsercore::AttributeListEntry;
using ntfsparsercore::AttributeRecord;
using ntfsparsercore::ParseAttributeList;
using ntfsparsercore::attributes::readers::ReadersFactory;
using tolvartest::AttributeFields;
using tolvartest::AttributeListEntryBytes;
using tolvartest::Bytes;
using tolvartest::MemorySource;
using tolvartest::MemoryVolume;

class AttributeListEntryTest : public tolvartest::QueueTest {
 protected:
  std::vector<AttributeListEntry> Parse(const std::vector<Bytes>& entries) {
    Bytes value;
    for (const Bytes& e : entries) value.insert(value.end(), e.begin(), e.end());
    return ParseValue(value);
  }

  std::vector<AttributeListEntry> ParseValue(const Bytes& value) {
    AttributeFields fields;
    fields.type = 0x20;
    fields.value = value;
    auto record = std::make_shared<AttributeRecord>(std::make_shared<MemorySource>(AttributeBytes(fields)), 0);
    Attribute list(factory_, {record});
    return ParseAttributeList(list);
  }

  static Bytes AttributeBytes(const AttributeFields& fields) { return tolvartest::AttributeBytes(fields); }

  MemoryVolume volume_{Bytes(), 512, 4096};
  std::shared_ptr<ReadersFactory> factory_ = std::make_shared<ReadersFactory>(&volume_);
};

TEST_F(AttributeListEntryTest, EntriesKeepTheirFieldsAndDropTheSequenceNumber) {
  const auto entries = Parse({AttributeListEntryBytes(0x10, 0, 0x123456789ABCull, 4)});
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].type, 0x10u);
  EXPECT_EQ(entries[0].recordLength, 32u);
  EXPECT_EQ(entries[0].startingVcn, 0u);
  EXPECT_EQ(entries[0].recordNumber, 0x123456789ABCull);
  EXPECT_EQ(entries[0].attributeId, 4u);
  EXPECT_EQ(entries[0].name, "");
}

TEST_F(AttributeListEntryTest, TypeZeroEntryAdvancesBy26ThenToTheNextMultipleOf8) {
  Bytes zeroType = AttributeListEntryBytes(0, 0, 1, 0);
  tolvartest::PutLe16(&zeroType, 4, 64);  // its own length would step further
  zeroType.resize(32);
  const auto entries = Parse({zeroType, AttributeListEntryBytes(0x80, 0, 9, 2)});
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].type, 0u);
  EXPECT_EQ(entries[0].recordLength, 64u);
  EXPECT_EQ(entries[1].type, 0x80u);
  EXPECT_EQ(entries[1].recordNumber, 9u);
}

TEST_F(AttributeListEntryTest, EntriesDifferingOnlyInNameSortByStartingVcnAsIfUnnamed) {
  const auto entries =
      Parse({AttributeListEntryBytes(0x80, 10, 5, 1, "a"), AttributeListEntryBytes(0x80, 0, 6, 2, "b")});
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].startingVcn, 0u);
  EXPECT_EQ(entries[0].attributeId, 2u);
  EXPECT_EQ(entries[1].startingVcn, 10u);
  EXPECT_EQ(entries[0].name, "");
  EXPECT_EQ(entries[1].name, "");
}

TEST_F(AttributeListEntryTest, EntriesSortByTypeThenStartingVcnKeepingTiesInOrder) {
  const auto entries = Parse({AttributeListEntryBytes(0x80, 64, 20, 1), AttributeListEntryBytes(0x30, 0, 1, 2),
                              AttributeListEntryBytes(0x80, 0, 21, 3), AttributeListEntryBytes(0x10, 0, 1, 4),
                              AttributeListEntryBytes(0x80, 0, 22, 5)});
  std::vector<uint16_t> ids;
  for (const auto& e : entries) ids.push_back(e.attributeId);
  EXPECT_EQ(ids, (std::vector<uint16_t>{4, 2, 3, 5, 1}));
}

TEST_F(AttributeListEntryTest, ShortTailEndsTheParse) {
  Bytes value = AttributeListEntryBytes(0x10, 0, 1, 4);
  value.resize(value.size() + 20, 0x11);  // less than one entry header
  EXPECT_EQ(ParseValue(value).size(), 1u);
}

TEST_F(AttributeListEntryTest, EntryOfLengthZeroEndsTheParseInsteadOfRepeatingForever) {
  Bytes entry = AttributeListEntryBytes(0x80, 0, 1, 4);
  tolvartest::PutLe16(&entry, 4, 0);
  const auto entries = Parse({entry, AttributeListEntryBytes(0x90, 0, 1, 5)});
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].type, 0x80u);
}

TEST_F(AttributeListEntryTest, EmptyValueGivesNoEntries) { EXPECT_TRUE(ParseValue(Bytes()).empty()); }

}  // namespace

namespace {

TEST_F(AttributeListEntryTest, HugeSparseListIsParsedOnlyUpToTheVolumeSize) {
  // A non-resident list whose one run is sparse and whose size is 2^40
  // bytes, on a volume of 64 KiB: zeros past the volume's size are not parsed.
  volume_.Bytes().resize(65536);
  AttributeFields fields;
  fields.type = 0x20;
  fields.nonResident = true;
  fields.dataSize = uint64_t{1} << 40;
  fields.mappingPairs = tolvartest::MappingPairs({{uint64_t{1} << 28, 0, 4, 0}});
  auto record = std::make_shared<AttributeRecord>(std::make_shared<MemorySource>(AttributeBytes(fields)), 0);
  const auto entries = ParseAttributeList(Attribute(factory_, {record}));
  // Type-0 entries step by 26 bytes rounded up to 32.
  EXPECT_EQ(entries.size(), 65536u / 32);
  for (const auto& entry : entries) EXPECT_EQ(entry.type, 0u);
}

TEST_F(AttributeListEntryTest, ResidentListIsNotCutByTheVolumeSize) {
  // The volume of this fixture is empty; a resident list lies in its record.
  const auto entries = Parse({AttributeListEntryBytes(0x10, 0, 5, 0), AttributeListEntryBytes(0x80, 0, 6, 1)});
  EXPECT_EQ(entries.size(), 2u);
}

}  // namespace
