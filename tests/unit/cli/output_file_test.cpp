// The rules of the command's output files: a regular target is written
// beside itself and appears only when committed, zeros become its holes
// and its length, and an output that is dropped leaves nothing behind.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "cli/output_file.h"
#include "tests/fixtures/unique_temp_path.h"

namespace tolvarcli {
namespace {

class OutputFileTest : public ::testing::Test {
 protected:
  void SetUp() override { path_ = tolvartest::UniqueTempPath("tolvar-output-"); }
  void TearDown() override {
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
    std::filesystem::remove(path_ + OutputFile::kTemporarySuffix, ignored);
  }

  std::vector<uint8_t> Contents(const std::string& path) const {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }

  std::string path_;
};

TEST_F(OutputFileTest, ARegularTargetAppearsOnlyWhenCommitted) {
  OutputFile out(path_);
  ASSERT_TRUE(out.Open());
  ASSERT_TRUE(out.Write("abc", 3));
  EXPECT_FALSE(std::filesystem::exists(path_));
  EXPECT_EQ(out.WritingName(), path_ + OutputFile::kTemporarySuffix);
  ASSERT_TRUE(out.Commit());
  EXPECT_EQ(Contents(path_), (std::vector<uint8_t>{'a', 'b', 'c'}));
  EXPECT_FALSE(std::filesystem::exists(path_ + OutputFile::kTemporarySuffix));
}

TEST_F(OutputFileTest, AnOutputDroppedBeforeCommitLeavesNothing) {
  {
    OutputFile out(path_);
    ASSERT_TRUE(out.Open());
    ASSERT_TRUE(out.Write("abc", 3));
  }
  EXPECT_FALSE(std::filesystem::exists(path_));
  EXPECT_FALSE(std::filesystem::exists(path_ + OutputFile::kTemporarySuffix));
}

TEST_F(OutputFileTest, ZerosReadBackAsZerosAndATrailingRunGivesTheLength) {
  OutputFile out(path_);
  ASSERT_TRUE(out.Open());
  ASSERT_TRUE(out.WriteZeros(5));
  ASSERT_TRUE(out.Write("x", 1));
  ASSERT_TRUE(out.WriteZeros(3));
  ASSERT_TRUE(out.Commit());
  EXPECT_EQ(Contents(path_), (std::vector<uint8_t>{0, 0, 0, 0, 0, 'x', 0, 0, 0}));
}

TEST_F(OutputFileTest, WriteAtOverwritesAndContinuesAfterIt) {
  OutputFile out(path_);
  ASSERT_TRUE(out.Open());
  ASSERT_TRUE(out.Write("abcdef", 6));
  ASSERT_TRUE(out.WriteAt(1, "XY", 2));
  ASSERT_TRUE(out.Write("Z", 1));
  ASSERT_TRUE(out.Commit());
  EXPECT_EQ(Contents(path_), (std::vector<uint8_t>{'a', 'X', 'Y', 'Z', 'e', 'f'}));
}

TEST_F(OutputFileTest, LargePiecesWrittenAroundTheBufferLandInOrderWithTheSmallOnes) {
  const std::vector<uint8_t> large(OutputFile::kWriteThroughSize, 'L');
  OutputFile out(path_);
  ASSERT_TRUE(out.Open());
  ASSERT_TRUE(out.Write("ab", 2));
  ASSERT_TRUE(out.Write(large.data(), large.size()));
  ASSERT_TRUE(out.Write("c", 1));
  ASSERT_TRUE(out.WriteAt(1, "X", 1));
  ASSERT_TRUE(out.Write(large.data(), large.size()));
  ASSERT_TRUE(out.Commit());
  std::vector<uint8_t> expected(large.size() + 3, 'L');
  expected.front() = 'a';
  expected[1] = 'X';
  expected.back() = 'c';
  const std::vector<uint8_t> contents = Contents(path_);
  EXPECT_EQ(contents, expected);
}

TEST_F(OutputFileTest, AnExistingRegularFileIsReplacedWhole) {
  { std::ofstream(path_) << "old contents that are longer"; }
  OutputFile out(path_);
  ASSERT_TRUE(out.Open());
  ASSERT_TRUE(out.Write("new", 3));
  EXPECT_EQ(Contents(path_).size(), 28u);
  ASSERT_TRUE(out.Commit());
  EXPECT_EQ(Contents(path_), (std::vector<uint8_t>{'n', 'e', 'w'}));
}

TEST_F(OutputFileTest, AMissingFolderFailsToOpen) {
  OutputFile out(path_ + "-no-such-folder/x");
  EXPECT_FALSE(out.Open());
}

TEST_F(OutputFileTest, DashIsStandardOutput) {
  OutputFile out(OutputFile::kStandardOutput);
  EXPECT_TRUE(out.IsStandardOutput());
  EXPECT_EQ(out.WritingName(), "standard output");
}

}  // namespace
}  // namespace tolvarcli
