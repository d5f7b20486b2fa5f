#include "ntfsparsercore/io/cache_proxy.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/fault_source.h"

namespace {

using ntfsparsercore::io::CacheProxy;
using tolvartest::DrainErrors;
using tolvartest::FaultSource;
using tolvartest::PatternBytes;
using tolvartest::Record;
using ReadCall = FaultSource::ReadCall;

class CacheProxyTest : public tolvartest::QueueTest {
 protected:
  static constexpr uint64_t kLine = 16;

  void MakeProxy(std::size_t sourceSize) {
    bytes_ = PatternBytes(sourceSize);
    source_ = std::make_shared<FaultSource>(bytes_);
    proxy_ = std::make_unique<CacheProxy>(source_, kLine);
  }

  std::vector<uint8_t> Expected(uint64_t offset, uint64_t size) const {
    return std::vector<uint8_t>(bytes_.begin() + offset, bytes_.begin() + offset + size);
  }

  std::vector<uint8_t> bytes_;
  std::shared_ptr<FaultSource> source_;
  std::unique_ptr<CacheProxy> proxy_;
};

TEST_F(CacheProxyTest, ReadOfSizeZeroReturnsZeroWithoutSourceRead) {
  MakeProxy(64);
  uint8_t buffer[4];
  EXPECT_EQ(proxy_->Read(buffer, 0, 5), 0u);
  EXPECT_EQ(source_->ReadCount(), 0u);
}

TEST_F(CacheProxyTest, ReadInsideOneLineAfterAReadOfThatLineDoesNotReadTheSource) {
  MakeProxy(64);
  std::vector<uint8_t> buffer(4);
  ASSERT_EQ(proxy_->Read(buffer.data(), 4, 17), 4u);
  EXPECT_EQ(buffer, Expected(17, 4));
  EXPECT_EQ(source_->Calls(), (std::vector<ReadCall>{{16, kLine}}));
  ASSERT_EQ(proxy_->Read(buffer.data(), 4, 28), 4u);
  EXPECT_EQ(buffer, Expected(28, 4));
  EXPECT_EQ(source_->ReadCount(), 1u);
}

TEST_F(CacheProxyTest, ReadStraddlingTwoLinesReadsBothAlignedAndReturnsBytesInOrder) {
  MakeProxy(64);
  std::vector<uint8_t> buffer(10);
  ASSERT_EQ(proxy_->Read(buffer.data(), 10, 12), 10u);
  EXPECT_EQ(buffer, Expected(12, 10));
  EXPECT_EQ(source_->Calls(), (std::vector<ReadCall>{{0, kLine}, {16, kLine}}));
}

TEST_F(CacheProxyTest, ReadPastTheEndReturnsTheCompleteLinesAndReportsTheFirstMissingPosition) {
  MakeProxy(40);  // lines 0 and 16 are whole; line 32 is short
  std::vector<uint8_t> buffer(30);
  EXPECT_EQ(proxy_->Read(buffer.data(), 30, 10), 22u);
  EXPECT_EQ(std::vector<uint8_t>(buffer.begin(), buffer.begin() + 22), Expected(10, 22));
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(1, "Failed read cluster, position 32")}));
}

TEST_F(CacheProxyTest, FailedLineStaysCurrentAndIsServedWithoutANewSourceRead) {
  MakeProxy(64);
  source_->FailAll(true);
  std::vector<uint8_t> buffer(4);
  EXPECT_EQ(proxy_->Read(buffer.data(), 4, 20), 0u);
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(1, "Failed read cluster, position 20")}));
  source_->FailAll(false);
  // The line at 16 counts as held: its bytes are what the failed read left,
  // here the 0xFF of a fresh line.
  ASSERT_EQ(proxy_->Read(buffer.data(), 4, 24), 4u);
  EXPECT_EQ(buffer, (std::vector<uint8_t>{0xFF, 0xFF, 0xFF, 0xFF}));
  EXPECT_EQ(source_->ReadCount(), 1u);
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(CacheProxyTest, ShortLineReadReportsAndKeepsWhatItDelivered) {
  MakeProxy(64);
  source_->ShortBy(1);
  std::vector<uint8_t> buffer(4);
  EXPECT_EQ(proxy_->Read(buffer.data(), 4, 3), 0u);
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(1, "Failed read cluster, position 3")}));
  source_->ShortBy(0);
  // Served from the stale line: the first 15 bytes came from the source.
  ASSERT_EQ(proxy_->Read(buffer.data(), 4, 4), 4u);
  EXPECT_EQ(buffer, Expected(4, 4));
  EXPECT_EQ(source_->ReadCount(), 1u);
}

TEST_F(CacheProxyTest, FirstReadAtAnyOffsetMissesAndEveryMissReplacesTheLine) {
  MakeProxy(64);
  std::vector<uint8_t> buffer(1);
  ASSERT_EQ(proxy_->Read(buffer.data(), 1, 48), 1u);
  ASSERT_EQ(proxy_->Read(buffer.data(), 1, 0), 1u);
  ASSERT_EQ(proxy_->Read(buffer.data(), 1, 49), 1u);
  EXPECT_EQ(buffer, Expected(49, 1));
  EXPECT_EQ(source_->Calls(), (std::vector<ReadCall>{{48, kLine}, {0, kLine}, {48, kLine}}));
}

TEST_F(CacheProxyTest, LongReadSpanningManyLinesReadsEachOnce) {
  MakeProxy(128);
  std::vector<uint8_t> buffer(100);
  ASSERT_EQ(proxy_->Read(buffer.data(), 100, 5), 100u);
  EXPECT_EQ(buffer, Expected(5, 100));
  EXPECT_EQ(source_->ReadCount(), 7u);  // lines 0..96
}

TEST_F(CacheProxyTest, PositionAbove4GiBIsReportedByItsLow32Bits) {
  MakeProxy(16);
  std::vector<uint8_t> buffer(1);
  EXPECT_EQ(proxy_->Read(buffer.data(), 1, 0x100000010ull), 0u);
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(1, "Failed read cluster, position 16")}));
}

TEST_F(CacheProxyTest, GetSizeIsTheSourceSize) {
  MakeProxy(40);
  EXPECT_EQ(proxy_->GetSize(), 40u);
}

}  // namespace
