#include "cli/json_text.h"

#include <gtest/gtest.h>

namespace tolvarcli {
namespace {

TEST(JsonTextTest, PlainTextIsQuoted) { EXPECT_EQ(JsonText("/tmp/demo.img"), "\"/tmp/demo.img\""); }

TEST(JsonTextTest, QuotesBackslashesAndControlsAreEscaped) {
  EXPECT_EQ(JsonText("\\\\.\\C:"), "\"\\\\\\\\.\\\\C:\"");
  EXPECT_EQ(JsonText("a\"b\n\x01"), "\"a\\\"b\\u000a\\u0001\"");
}

TEST(JsonTextTest, BytesAboveAsciiPassThrough) { EXPECT_EQ(JsonText("\xc3\xa9"), "\"\xc3\xa9\""); }

}  // namespace
}  // namespace tolvarcli
