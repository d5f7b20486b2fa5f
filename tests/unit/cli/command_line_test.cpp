#include "cli/command_line.h"

#include <gtest/gtest.h>

namespace tolvarcli {
namespace {

const CommandLine::Grammar kDiff{3, {"--json", "--extra-pass"}, {"--block-size", "--bitmap-out"}};

TEST(CommandLineTest, PositionalsFlagsAndValuesInAnyOrder) {
  CommandLine line;
  std::string error;
  ASSERT_TRUE(line.Parse({"--json", "vol", "--block-size", "8K", "a", "b"}, kDiff, &error)) << error;
  EXPECT_EQ(line.Positional(0), "vol");
  EXPECT_EQ(line.Positional(2), "b");
  EXPECT_TRUE(line.Has("--json"));
  EXPECT_FALSE(line.Has("--extra-pass"));
  uint64_t blockSize = 0;
  ASSERT_TRUE(line.BlockSize(65536, &blockSize));
  EXPECT_EQ(blockSize, 8192u);
  EXPECT_EQ(line.Value("--bitmap-out", "none"), "none");
}

TEST(CommandLineTest, RepeatedOptionKeepsEveryValueInOrder) {
  const CommandLine::Grammar grammar{1, {}, {"--path"}};
  CommandLine line;
  std::string error;
  ASSERT_TRUE(line.Parse({"--path", "/a", "vol", "--path", "/b c"}, grammar, &error)) << error;
  EXPECT_EQ(line.Values("--path"), (std::vector<std::string>{"/a", "/b c"}));
  EXPECT_EQ(line.Value("--path", ""), "/b c");
  EXPECT_TRUE(line.Values("--other").empty());
}

TEST(CommandLineTest, ShortOptionsCountOnlyWhereTheGrammarNamesThem) {
  const CommandLine::Grammar mount{2, {"-f"}, {"-o"}};
  CommandLine line;
  std::string error;
  ASSERT_TRUE(line.Parse({"vol", "-o", "allow_other", "-f", "dir"}, mount, &error)) << error;
  EXPECT_TRUE(line.Has("-f"));
  EXPECT_EQ(line.Value("-o", ""), "allow_other");
  EXPECT_EQ(line.Positional(1), "dir");

  CommandLine other;
  EXPECT_FALSE(other.Parse({"vol", "a", "b", "-f"}, kDiff, &error));
  EXPECT_EQ(error, "expected 3 arguments, got 4");
}

TEST(CommandLineTest, UnknownOptionIsRefused) {
  CommandLine line;
  std::string error;
  EXPECT_FALSE(line.Parse({"vol", "a", "b", "--exclude", "x"}, kDiff, &error));
  EXPECT_EQ(error, "unknown option --exclude");
}

TEST(CommandLineTest, WrongCountOfArgumentsIsRefused) {
  CommandLine line;
  std::string error;
  EXPECT_FALSE(line.Parse({"vol", "a"}, kDiff, &error));
  EXPECT_EQ(error, "expected 3 arguments, got 2");
}

TEST(CommandLineTest, OptionWithoutValueIsRefused) {
  CommandLine line;
  std::string error;
  EXPECT_FALSE(line.Parse({"vol", "a", "b", "--block-size"}, kDiff, &error));
  EXPECT_EQ(error, "--block-size needs a value");
}

TEST(CommandLineTest, BlockSizeDefaultsAndRejectsText) {
  CommandLine plain;
  std::string error;
  ASSERT_TRUE(plain.Parse({"vol", "a", "b"}, kDiff, &error));
  uint64_t blockSize = 0;
  ASSERT_TRUE(plain.BlockSize(65536, &blockSize));
  EXPECT_EQ(blockSize, 65536u);
  for (const char* bad : {"", "K", "12x", "4096KK", "99999999999999999999"}) {
    CommandLine line;
    ASSERT_TRUE(line.Parse({"vol", "a", "b", "--block-size", bad}, kDiff, &error));
    EXPECT_FALSE(line.BlockSize(65536, &blockSize)) << bad;
  }
}

TEST(CommandLineTest, OptionalPositionalsAndOneLetterFlags) {
  const CommandLine::Grammar ls{2, {"-l", "-r"}, {}, 1};
  CommandLine both;
  std::string error;
  ASSERT_TRUE(both.Parse({"vol", "-l", "id", "/Dir", "-r"}, ls, &error)) << error;
  EXPECT_EQ(both.PositionalCount(), 3u);
  EXPECT_EQ(both.Positional(2), "/Dir");
  EXPECT_TRUE(both.Has("-l"));
  EXPECT_TRUE(both.Has("-r"));
  CommandLine without;
  ASSERT_TRUE(without.Parse({"vol", "id"}, ls, &error)) << error;
  EXPECT_EQ(without.PositionalCount(), 2u);
  CommandLine tooMany;
  EXPECT_FALSE(tooMany.Parse({"vol", "id", "/a", "/b"}, ls, &error));
  EXPECT_EQ(error, "expected 2 to 3 arguments, got 4");
}

}  // namespace
}  // namespace tolvarcli
