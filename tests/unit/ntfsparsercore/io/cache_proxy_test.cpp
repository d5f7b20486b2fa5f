#include "ntfsparsercore/io/cache_proxy.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <utility>
#include <vector>

#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/fault_source.h"

using tolvarcommon::ErrorRecord;
using tolvarcommon::kErrorIo;
using tolvarcommon::Low32;
using tolvarcommon::ReportError;

namespace {

using ntfsparsercore::io::CacheProxy;
using tolvartest::DrainErrors;
using tolvartest::FaultSource;
using tolvartest::PatternBytes;
using tolvartest::Record;
using ReadCall = FaultSource::ReadCall;
using ntfsparsercore::io::ISource;

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

// Reads that start at chosen offsets fail: such a read writes its first
// `written` bytes and claims `returned` (either may be the larger). Every
// read fails or succeeds the same way each time it is made.
class FailingLines : public ISource {
 public:
  explicit FailingLines(std::vector<uint8_t> bytes) : bytes_(std::move(bytes)) {}

  void Fail(uint64_t offset, uint64_t written, uint64_t returned) { failures_[offset] = {written, returned}; }

  uint64_t Read(void* buffer, uint64_t size, uint64_t offset) override {
    if (offset >= bytes_.size()) return 0;
    const uint64_t available = std::min<uint64_t>(size, bytes_.size() - offset);
    uint64_t written = available;
    uint64_t returned = available;
    auto failure = failures_.find(offset);
    if (failure != failures_.end()) {
      written = std::min(failure->second.first, available);
      returned = failure->second.second;
    }
    std::memcpy(buffer, bytes_.data() + offset, static_cast<std::size_t>(written));
    return returned;
  }
  uint64_t GetSize() override { return bytes_.size(); }

 private:
  std::vector<uint8_t> bytes_;
  std::map<uint64_t, std::pair<uint64_t, uint64_t>> failures_;  // offset -> written, returned
};

// The line cache read one line at a time, each line through the line
// buffer: what the proxy must return and report, whatever fails.
class LineByLine {
 public:
  LineByLine(std::shared_ptr<ISource> source, uint64_t lineSize)
      : source_(std::move(source)), line_(lineSize, 0xFF), lineStart_(UINT64_MAX - lineSize), lineSize_(lineSize) {}

  uint64_t Read(uint8_t* out, uint64_t size, uint64_t offset) {
    uint64_t done = 0;
    for (;;) {
      const uint64_t position = offset + done;
      if (!(lineStart_ <= position && position - lineStart_ < lineSize_)) {
        lineStart_ = position - position % lineSize_;
        if (source_->Read(line_.data(), lineSize_, lineStart_) != lineSize_) {
          ReportError(kErrorIo, "Failed read cluster, position %lu", Low32(position));
          return done;
        }
      }
      const uint64_t n = std::min(size - done, lineStart_ + lineSize_ - position);
      std::memcpy(out + done, line_.data() + (position - lineStart_), static_cast<std::size_t>(n));
      done += n;
      if (n == 0 || done == size) return done;
    }
  }

 private:
  std::shared_ptr<ISource> source_;
  std::vector<uint8_t> line_;
  uint64_t lineStart_;
  uint64_t lineSize_;
};

// Random reads over a source whose failures write more or less than they
// claim, each compared with reading line by line: the count, the bytes up
// to it (stale lines included) and the messages; with Read also the bytes
// past the count, which ReadDirect does not promise.
void ExpectReadsAsLineByLine(bool direct) {
  std::mt19937_64 random(20261122);
  for (int round = 0; round < 300; ++round) {
    auto source = std::make_shared<FailingLines>(PatternBytes(16 * 24 + random() % 16));
    for (int failures = random() % 4; failures > 0; --failures) {
      source->Fail(16 * (random() % 26), random() % 17, random() % 16);
    }
    CacheProxy proxy(source, 16);
    LineByLine model(source, 16);
    for (int read = 0; read < 40; ++read) {
      const uint64_t offset = random() % (16 * 26);
      const uint64_t size = 1 + random() % (16 * 7);
      std::vector<uint8_t> got(size, 0xA5);
      std::vector<uint8_t> expected(size, 0xA5);
      const uint64_t modelCount = model.Read(expected.data(), size, offset);
      const std::vector<ErrorRecord> modelErrors = DrainErrors();
      const uint64_t count = direct ? proxy.ReadDirect(got.data(), size, offset) : proxy.Read(got.data(), size, offset);
      ASSERT_EQ(count, modelCount) << "round " << round << ", read " << read;
      if (direct) {
        got.resize(count);
        expected.resize(count);
      }
      ASSERT_EQ(got, expected) << "round " << round << ", read " << read;
      ASSERT_EQ(DrainErrors(), modelErrors) << "round " << round << ", read " << read;
    }
  }
}

TEST_F(CacheProxyTest, ReadsOfAnySizeReturnAndReportWhatReadingLineByLineDoesWhateverFails) {
  ExpectReadsAsLineByLine(false);
}

TEST_F(CacheProxyTest, DirectReadsReturnAndReportWhatReadingLineByLineDoesAndLeaveTheSameLine) {
  ExpectReadsAsLineByLine(true);
}

TEST_F(CacheProxyTest, DirectReadReadsEachWholeLineOnceAndHoldsTheLast) {
  MakeProxy(128);
  std::vector<uint8_t> buffer(64);
  ASSERT_EQ(proxy_->ReadDirect(buffer.data(), 64, 32), 64u);
  EXPECT_EQ(buffer, Expected(32, 64));
  EXPECT_EQ(source_->Calls(), (std::vector<ReadCall>{{32, kLine}, {48, kLine}, {64, kLine}, {80, kLine}}));
  // The last line of the read is the one held.
  ASSERT_EQ(proxy_->Read(buffer.data(), 4, 90), 4u);
  EXPECT_EQ(source_->ReadCount(), 4u);
}

}  // namespace
