#include "ntfsparsercore/file_name_value.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "ntfsparsercore/io/little_endian.h"
#include "tests/fixtures/memory_source.h"

namespace {

using ntfsparsercore::FileNameValue;
using tolvartest::MemorySource;

std::vector<uint8_t> NameValue(uint64_t parentReference, uint8_t nameSpace, const std::u16string& name) {
  std::vector<uint8_t> value(FileNameValue::kName + 2 * name.size());
  ntfsparsercore::io::StoreLe64(&value[FileNameValue::kParentReference], parentReference);
  value[FileNameValue::kNameLength] = static_cast<uint8_t>(name.size());
  value[FileNameValue::kNamespace] = nameSpace;
  for (std::size_t i = 0; i < name.size(); ++i)
    ntfsparsercore::io::StoreLe16(&value[FileNameValue::kName + 2 * i], name[i]);
  return value;
}

TEST(FileNameValue, ParentIsTheRecordNumberOfTheParentReference) {
  MemorySource source(NameValue(0x0003000000000005ull, FileNameValue::kNamespaceWin32, u"a"));
  FileNameValue value;
  ASSERT_TRUE(value.ReadHeader(source));
  EXPECT_EQ(value.ParentRecordNumber(), 5u);
  EXPECT_EQ(value.Namespace(), FileNameValue::kNamespaceWin32);
}

TEST(FileNameValue, NameIsReadAsUtf8) {
  MemorySource source(NameValue(5, FileNameValue::kNamespacePosix, u"R\u00e9sum\u00e9.txt"));
  FileNameValue value;
  ASSERT_TRUE(value.ReadHeader(source));
  EXPECT_EQ(value.NameLength(), 10);
  EXPECT_EQ(value.ReadName(source), "R\xc3\xa9sum\xc3\xa9.txt");
}

TEST(FileNameValue, ShortHeaderIsNotRead) {
  MemorySource source(std::vector<uint8_t>(FileNameValue::kHeaderSize - 1));
  FileNameValue value;
  EXPECT_FALSE(value.ReadHeader(source));
}

TEST(FileNameValue, NameCutShortEndsWhereTheBytesEnd) {
  std::vector<uint8_t> bytes = NameValue(5, FileNameValue::kNamespacePosix, u"ab");
  bytes.resize(bytes.size() - 2);
  MemorySource source(bytes);
  FileNameValue value;
  ASSERT_TRUE(value.ReadHeader(source));
  EXPECT_EQ(value.ReadName(source), "a");
}

}  // namespace
