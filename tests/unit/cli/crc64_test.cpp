#include "cli/crc64.h"

#include <gtest/gtest.h>

#include <string>

namespace tolvarcli {
namespace {

TEST(Crc64Test, CheckValueOfTheStandardString) {
  Crc64 crc;
  const std::string text = "123456789";
  crc.Update(text.data(), text.size());
  EXPECT_EQ(crc.Value(), 0x995DC9BBDF1939FAull);
}

TEST(Crc64Test, NothingAddedGivesZero) { EXPECT_EQ(Crc64().Value(), 0u); }

TEST(Crc64Test, PiecesGiveTheSameAsTheWhole) {
  const std::string text = "incremental block-level backup";
  Crc64 whole;
  whole.Update(text.data(), text.size());
  Crc64 pieces;
  pieces.Update(text.data(), 5);
  pieces.Update(text.data() + 5, text.size() - 5);
  EXPECT_EQ(pieces.Value(), whole.Value());
}

TEST(Crc64Test, OneFlippedBitChangesIt) {
  std::string text(4096, 'a');
  Crc64 before;
  before.Update(text.data(), text.size());
  text[2000] ^= 0x10;
  Crc64 after;
  after.Update(text.data(), text.size());
  EXPECT_NE(before.Value(), after.Value());
}

}  // namespace
}  // namespace tolvarcli
