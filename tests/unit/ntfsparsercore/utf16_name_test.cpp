#include "ntfsparsercore/utf16_name.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using ntfsparsercore::Utf16LeToUtf8;

std::string Convert(const std::vector<uint16_t>& units) {
  std::vector<uint8_t> bytes;
  for (uint16_t u : units) {
    bytes.push_back(static_cast<uint8_t>(u));
    bytes.push_back(static_cast<uint8_t>(u >> 8));
  }
  return Utf16LeToUtf8(bytes.data(), units.size());
}

TEST(Utf16NameTest, AsciiAccentedCjkAndNonBmpCharactersBecomeUtf8) {
  EXPECT_EQ(Convert({'$', 'I', '3', '0'}), "$I30");
  EXPECT_EQ(Convert({0x00E9}), "\xC3\xA9");
  EXPECT_EQ(Convert({0x4E2D}), "\xE4\xB8\xAD");
  EXPECT_EQ(Convert({0xD83D, 0xDE00}), "\xF0\x9F\x98\x80");
}

TEST(Utf16NameTest, ConversionStopsAtTheFirstZeroUnit) { EXPECT_EQ(Convert({'a', 0, 'b'}), "a"); }

TEST(Utf16NameTest, LoneSurrogatesBecomeTheReplacementCharacter) {
  EXPECT_EQ(Convert({0xD83D, 'x'}), "\xEF\xBF\xBDx");
  EXPECT_EQ(Convert({0xDE00}), "\xEF\xBF\xBD");
  EXPECT_EQ(Convert({'y', 0xD83D}), "y\xEF\xBF\xBD");
}

}  // namespace
