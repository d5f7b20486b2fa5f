#include "cli/shadow_copy_file_system.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/fixtures/fault_source.h"
#include "tests/fixtures/memory_source.h"

namespace tolvarcli {
namespace {

using Node = ShadowCopyFileSystem::Node;
using tolvartest::FaultSource;
using tolvartest::PatternBytes;

const char kFirst[] = "ec06abc4-bd2f-41cc-a817-921f2046080d";
const char kSecond[] = "d1229f1a-31d8-45de-8a72-0d6a3a1f59e8";

ShadowCopyFileSystem::File FileOf(std::shared_ptr<FaultSource> source, int64_t seconds) {
  ShadowCopyFileSystem::File file;
  file.size = source->GetSize();
  file.source = std::move(source);
  file.time.seconds = seconds;
  return file;
}

class ShadowCopyFileSystemTest : public testing::Test {
 protected:
  ShadowCopyFileSystemTest()
      : volume_(std::make_shared<FaultSource>(PatternBytes(3000))),
        first_(std::make_shared<FaultSource>(PatternBytes(3000))),
        second_(std::make_shared<FaultSource>(std::vector<uint8_t>(3000, 9))),
        fileSystem_(FileOf(volume_, 300)) {
    fileSystem_.AddShadowCopy(kFirst, FileOf(first_, 100));
    fileSystem_.AddShadowCopy(kSecond, FileOf(second_, 200));
  }

  std::shared_ptr<FaultSource> volume_, first_, second_;
  ShadowCopyFileSystem fileSystem_;
};

TEST_F(ShadowCopyFileSystemTest, TheRootListsTheShadowCopiesInCreationOrderThenVolumeAndById) {
  EXPECT_EQ(fileSystem_.List("/"), (std::vector<std::string>{"vss1", "vss2", "volume", "by-id"}));
  EXPECT_EQ(fileSystem_.List("/by-id"), (std::vector<std::string>{kFirst, kSecond}));
  EXPECT_TRUE(fileSystem_.List("/vss1").empty());
}

TEST_F(ShadowCopyFileSystemTest, EachShadowCopyIsOneFileUnderItsNumberAndUnderItsId) {
  EXPECT_EQ(fileSystem_.Lookup("/").kind, Node::kDirectory);
  EXPECT_EQ(fileSystem_.Lookup("/by-id").kind, Node::kDirectory);
  const Node volume = fileSystem_.Lookup("/volume");
  const Node first = fileSystem_.Lookup("/vss1");
  const Node second = fileSystem_.Lookup("/vss2");
  ASSERT_EQ(first.kind, Node::kFile);
  ASSERT_EQ(second.kind, Node::kFile);
  EXPECT_EQ(volume.file, 0u);
  EXPECT_EQ(fileSystem_.Lookup(std::string("/by-id/") + kFirst).file, first.file);
  EXPECT_EQ(fileSystem_.Lookup(std::string("/by-id/") + kSecond).file, second.file);
  EXPECT_EQ(fileSystem_.FileAt(first.file).time.seconds, 100);
  EXPECT_EQ(fileSystem_.FileAt(second.file).time.seconds, 200);
  EXPECT_EQ(fileSystem_.DirectoryTime().seconds, 300);
}

TEST_F(ShadowCopyFileSystemTest, AnyOtherPathIsMissing) {
  for (const char* path : {"", "vss1", "/vss0", "/vss3", "/vss01", "/vss1x", "/vss", "/by-id/", "/by-id/vss1",
                           "/by-idx", "/volume/", "/by-id/ec06abc4", "/VSS1"}) {
    EXPECT_EQ(fileSystem_.Lookup(path).kind, Node::kMissing) << path;
  }
}

TEST_F(ShadowCopyFileSystemTest, AReadEndsAtTheFileEnd) {
  std::vector<uint8_t> buffer(100);
  const Node second = fileSystem_.Lookup("/vss2");
  EXPECT_EQ(fileSystem_.Read(second.file, buffer.data(), 100, 2950), 50);
  EXPECT_EQ(buffer[0], 9);
  EXPECT_EQ(fileSystem_.Read(second.file, buffer.data(), 100, 3000), 0);
}

TEST_F(ShadowCopyFileSystemTest, ASourceThatDeliversLessThanTheFileHoldsFailsTheRead) {
  std::vector<uint8_t> buffer(100);
  first_->ShortBy(1);
  EXPECT_EQ(fileSystem_.Read(fileSystem_.Lookup("/vss1").file, buffer.data(), 100, 0), -1);
}

TEST(ShadowCopyFileSystemTimeTest, AFileTimeCountsHundredsOfNanosecondsSince1601) {
  const auto time = ShadowCopyFileSystem::FromFileTime(116444736000000000ull + 15 * 10000000ull + 1234567);
  EXPECT_EQ(time.seconds, 15);
  EXPECT_EQ(time.nanoseconds, 123456700);
  EXPECT_EQ(ShadowCopyFileSystem::FromFileTime(5).seconds, 0);
}

}  // namespace
}  // namespace tolvarcli
