#include "cli/record_bytes_source.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "tests/fixtures/memory_source.h"

namespace tolvarcli {
namespace {

// A source of 64 bytes valued by position, with 16 bytes from 16 on held apart.
std::shared_ptr<tolvartest::MemorySource> Positions() {
  std::vector<uint8_t> bytes(64);
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i);
  return std::make_shared<tolvartest::MemorySource>(bytes);
}

class RecordBytesSourceTest : public ::testing::Test {
 protected:
  RecordBytesSource source_{Positions(), 16, std::vector<uint8_t>(16, 0xEE)};
};

TEST_F(RecordBytesSourceTest, ReadsWithinTheRecordComeFromItsBytes) {
  uint8_t out[16] = {};
  EXPECT_EQ(source_.Read(out, 16, 16), 16u);
  EXPECT_EQ(out[0], 0xEE);
  EXPECT_EQ(out[15], 0xEE);
  EXPECT_EQ(source_.Read(out, 4, 28), 4u);
  EXPECT_EQ(out[3], 0xEE);
  EXPECT_EQ(source_.Read(out, 0, 32), 0u);
}

TEST_F(RecordBytesSourceTest, ReadsThatReachOutsideTheRecordComeFromTheSource) {
  uint8_t out[8] = {};
  EXPECT_EQ(source_.Read(out, 8, 28), 8u);  // crosses the record's end
  EXPECT_EQ(out[0], 28);
  EXPECT_EQ(out[7], 35);
  EXPECT_EQ(source_.Read(out, 4, 60), 4u);
  EXPECT_EQ(out[0], 60);
  EXPECT_EQ(source_.Read(out, 8, 62), 2u);  // short where the source is
  EXPECT_EQ(source_.GetSize(), 64u);
}

}  // namespace
}  // namespace tolvarcli
