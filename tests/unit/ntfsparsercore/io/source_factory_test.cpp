#include "ntfsparsercore/io/source_factory.h"

#include <gtest/gtest.h>

#include <memory>

#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/memory_source.h"

namespace {

using ntfsparsercore::io::ISource;
using ntfsparsercore::io::SourceFactory;
using tolvartest::DrainErrors;
using tolvartest::MemorySource;

// Counts its destructions, to see who owns it.
class TrackedSource : public MemorySource {
 public:
  explicit TrackedSource(int* destroyed) : MemorySource(tolvartest::PatternBytes(64)), destroyed_(destroyed) {}
  ~TrackedSource() override { ++*destroyed_; }

 private:
  int* destroyed_;
};

TEST(SourceFactory, CreateCacheProxyWithLineSizeZeroReturnsNullAndLeavesTheSource) {
  SourceFactory factory;
  int destroyed = 0;
  auto source = std::make_shared<TrackedSource>(&destroyed);
  EXPECT_EQ(factory.CreateCacheProxy(source, 0), nullptr);
  EXPECT_EQ(destroyed, 0);
  EXPECT_EQ(source.use_count(), 1);
  source.reset();
  EXPECT_EQ(destroyed, 1);
}

TEST(SourceFactory, CreateCacheProxyWithNullSourceReturnsNull) {
  SourceFactory factory;
  EXPECT_EQ(factory.CreateCacheProxy(nullptr, 16384), nullptr);
}

TEST(SourceFactory, CacheProxyTakesOverItsSource) {
  SourceFactory factory;
  int destroyed = 0;
  std::unique_ptr<ISource> proxy = factory.CreateCacheProxy(std::make_shared<TrackedSource>(&destroyed), 16);
  ASSERT_NE(proxy, nullptr);
  uint8_t byte = 0;
  EXPECT_EQ(proxy->Read(&byte, 1, 33), 1u);
  EXPECT_EQ(byte, tolvartest::PatternBytes(64)[33]);
  EXPECT_EQ(proxy->GetSize(), 64u);
  proxy.reset();
  EXPECT_EQ(destroyed, 1);
}

class SourceFactoryOpen : public tolvartest::QueueTest {};

TEST_F(SourceFactoryOpen, MissingPathReportsOpenFailureWithTheLastError) {
  SourceFactory factory;
  const char* path = "/nonexistent/tolvar/volume.img";
  EXPECT_EQ(factory.Open(path), nullptr);
  auto records = DrainErrors();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].code, 1u);
  // ENOENT on POSIX, ERROR_PATH_NOT_FOUND on Windows.
  const std::string prefix = std::string("Open file(") + path + ") failed - ";
  EXPECT_EQ(records[0].message.substr(0, prefix.size()), prefix);
  const std::string number = records[0].message.substr(prefix.size());
  EXPECT_TRUE(number == "2." || number == "3.") << records[0].message;
}

}  // namespace
