#include "cli/up_case_table.h"

#include <gtest/gtest.h>

namespace tolvarcli {
namespace {

// A table that folds a-z to A-Z and U+00E9 to U+00C9, as $UpCase does.
UpCaseTable LatinTable() {
  std::vector<uint8_t> bytes(2 * UpCaseTable::kUnitCount);
  for (std::size_t unit = 0; unit < UpCaseTable::kUnitCount; ++unit) {
    std::size_t upper = unit;
    if (unit >= 'a' && unit <= 'z') upper = unit - 32;
    if (unit == 0xE9) upper = 0xC9;
    bytes[2 * unit] = static_cast<uint8_t>(upper & 0xFF);
    bytes[2 * unit + 1] = static_cast<uint8_t>(upper >> 8);
  }
  return UpCaseTable(bytes);
}

TEST(UpCaseTableTest, NamesThatFoldAlikeAreTheSameName) {
  const UpCaseTable table = LatinTable();
  EXPECT_TRUE(table.SameName(u"Report.TXT", u"report.txt"));
  EXPECT_TRUE(table.SameName(u"caf\u00e9", u"CAF\u00c9"));
  EXPECT_FALSE(table.SameName(u"report.txt", u"report.txt2"));
  EXPECT_FALSE(table.SameName(u"a", u"b"));
}

TEST(UpCaseTableTest, FoldingFollowsTheTableNotTheLocale) {
  // U+00FF has no entry that changes it in this table, though it has an upper case.
  const UpCaseTable table = LatinTable();
  EXPECT_FALSE(table.SameName(u"\u00ff", u"\u0178"));
  EXPECT_EQ(table.Fold(u"ab\u00e9"), u"AB\u00c9");
}

TEST(UpCaseTableTest, AShortTableFoldsTheRestToThemselves) {
  const UpCaseTable table(std::vector<uint8_t>{'A', 0});  // only unit 0, mapped to 'A'
  EXPECT_EQ(table.Fold(char16_t{0}), u'A');
  EXPECT_EQ(table.Fold(u'a'), u'a');
  EXPECT_FALSE(table.SameName(u"a", u"A"));
}

TEST(UpCaseTableTest, Utf8BecomesUtf16AndBack) {
  const std::string text =
      "\xc3\xbcn\xc3\xaf"
      "c\xc3\xb6"
      "d\xc3\xa9/\xe6\x97\xa5\xe6\x9c\xac/\xf0\x9f\x98\x80";
  const std::u16string units = Utf8ToUtf16(text);
  EXPECT_EQ(units, u"\u00fcn\u00efc\u00f6d\u00e9/\u65e5\u672c/\U0001F600");
  EXPECT_EQ(Utf16ToUtf8(units), text);
}

TEST(UpCaseTableTest, BrokenUtf8BecomesReplacementCharacters) {
  EXPECT_EQ(Utf8ToUtf16("a\xff"
                        "b"),
            u"a\ufffdb");
  EXPECT_EQ(Utf8ToUtf16("\xc3"), u"\ufffd");
  EXPECT_EQ(Utf8ToUtf16("\xe6\x97"
                        "x"),
            u"\ufffd\ufffdx");
}

}  // namespace
}  // namespace tolvarcli
