#include "ntfsparsercore/io/hot_page_proxy.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <random>
#include <vector>

#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/fault_source.h"

using tolvarcommon::ErrorRecord;

namespace {

using ntfsparsercore::io::HotPageProxy;
using tolvartest::DrainErrors;
using tolvartest::FaultSource;
using tolvartest::PatternBytes;
using tolvartest::Record;
using ReadCall = FaultSource::ReadCall;

class HotPageProxyTest : public tolvartest::QueueTest {
 protected:
  static constexpr uint64_t kPage = 32;

  void MakePool(uint64_t pageCount, std::size_t sourceSize = 32 * 16) {
    bytes_ = PatternBytes(sourceSize);
    source_ = std::make_shared<FaultSource>(bytes_);
    pool_ = std::make_unique<HotPageProxy>(source_, kPage, pageCount);
  }

  std::vector<uint8_t> ReadBack(uint64_t offset, uint64_t size) {
    std::vector<uint8_t> buffer(size);
    buffer.resize(pool_->Read(buffer.data(), size, offset));
    return buffer;
  }

  std::vector<uint8_t> Expected(uint64_t offset, uint64_t size) const {
    return std::vector<uint8_t>(bytes_.begin() + offset, bytes_.begin() + offset + size);
  }

  std::vector<uint8_t> bytes_;
  std::shared_ptr<FaultSource> source_;
  std::unique_ptr<HotPageProxy> pool_;
};

TEST_F(HotPageProxyTest, OnePageAlternatingBetweenPagesZeroAndOneReloadsTheLineEveryRead) {
  MakePool(1);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(ReadBack(4, 8), Expected(4, 8));
    EXPECT_EQ(ReadBack(kPage + 4, 8), Expected(kPage + 4, 8));
  }
  std::vector<ReadCall> expected;
  for (int i = 0; i < 3; ++i) {
    expected.push_back({0, kPage});
    expected.push_back({kPage, kPage});
  }
  EXPECT_EQ(source_->Calls(), expected);
}

TEST_F(HotPageProxyTest, PageCountZeroHoldsOneProxy) {
  MakePool(0);
  EXPECT_EQ(pool_->GetProxyCount(), 1u);
  EXPECT_EQ(pool_->GetPage(0), 0u);
  EXPECT_EQ(ReadBack(kPage * 2, 4), Expected(kPage * 2, 4));
  EXPECT_EQ(pool_->GetPage(0), 2u);
}

TEST_F(HotPageProxyTest, ReadOfSizeZeroReturnsZeroAndLeavesTheAccessCounterUnchanged) {
  MakePool(4);
  uint8_t byte = 0;
  EXPECT_EQ(pool_->Read(&byte, 0, 40), 0u);
  EXPECT_EQ(pool_->GetAccessCounter(), 0u);
  EXPECT_EQ(source_->ReadCount(), 0u);
}

TEST_F(HotPageProxyTest, MidPageReadOfOnePageIsServedByTheFirstPagesProxyAndRefreshesOnlyItsStamp) {
  MakePool(4);
  EXPECT_EQ(ReadBack(kPage / 2, kPage), Expected(kPage / 2, kPage));
  EXPECT_EQ(pool_->GetAccessCounter(), 1u);
  EXPECT_EQ(pool_->GetLastUse(0), 1u);
  EXPECT_EQ(pool_->GetLastUse(1), 0u);
  EXPECT_EQ(pool_->GetLastUse(2), 0u);
  EXPECT_EQ(pool_->GetLastUse(3), 0u);
  // Proxy 0 read on into page 1 through its own line logic.
  EXPECT_EQ(source_->Calls(), (std::vector<ReadCall>{{0, kPage}, {kPage, kPage}}));
  EXPECT_EQ(pool_->GetPage(0), 0u);
  EXPECT_EQ(pool_->GetPage(1), 1u);
}

TEST_F(HotPageProxyTest, RightAfterConstructionPageThreeOfFourIsAHitOnProxyThreeWhichLoadsItsLine) {
  MakePool(4);
  EXPECT_EQ(ReadBack(3 * kPage + 1, 5), Expected(3 * kPage + 1, 5));
  EXPECT_EQ(pool_->GetPage(3), 3u);
  EXPECT_EQ(pool_->GetLastUse(3), 1u);
  for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(pool_->GetLastUse(i), 0u);
  EXPECT_EQ(source_->Calls(), (std::vector<ReadCall>{{3 * kPage, kPage}}));
}

TEST_F(HotPageProxyTest, LongReadIsCutIntoPageSizedPiecesEachStampedOnce) {
  MakePool(4);
  EXPECT_EQ(ReadBack(0, 3 * kPage), Expected(0, 3 * kPage));
  EXPECT_EQ(pool_->GetAccessCounter(), 3u);
  EXPECT_EQ(pool_->GetLastUse(0), 1u);
  EXPECT_EQ(pool_->GetLastUse(1), 2u);
  EXPECT_EQ(pool_->GetLastUse(2), 3u);
  // A second read of the same pages is served from memory.
  source_->ForgetCalls();
  EXPECT_EQ(ReadBack(kPage + 3, 20), Expected(kPage + 3, 20));
  EXPECT_EQ(source_->ReadCount(), 0u);
}

TEST_F(HotPageProxyTest, MissReplacesTheLeastRecentlyUsedProxy) {
  MakePool(3);
  ReadBack(0, 4);          // proxy 0, stamp 1
  ReadBack(kPage, 4);      // proxy 1, stamp 2
  ReadBack(2 * kPage, 4);  // proxy 2, stamp 3
  ReadBack(0, 4);          // proxy 0, stamp 4
  source_->ForgetCalls();
  EXPECT_EQ(ReadBack(5 * kPage, 4), Expected(5 * kPage, 4));
  EXPECT_EQ(pool_->GetPage(1), 5u);
  EXPECT_EQ(pool_->GetLastUse(1), 5u);
  EXPECT_EQ(source_->Calls(), (std::vector<ReadCall>{{5 * kPage, kPage}}));
  // Page 1 lost its proxy: reading it again takes the next victim, proxy 2.
  EXPECT_EQ(ReadBack(kPage, 4), Expected(kPage, 4));
  EXPECT_EQ(pool_->GetPage(2), 1u);
}

TEST_F(HotPageProxyTest, RepeatedReadsOfTheNewestPageStampItEachTimeAndKeepTheVictimOrder) {
  MakePool(3);
  ReadBack(0, 4);          // proxy 0, stamp 1
  ReadBack(kPage, 4);      // proxy 1, stamp 2
  ReadBack(2 * kPage, 4);  // proxy 2, stamp 3
  for (uint64_t stamp = 4; stamp < 7; ++stamp) {
    EXPECT_EQ(ReadBack(2 * kPage + stamp, 2), Expected(2 * kPage + stamp, 2));
    EXPECT_EQ(pool_->GetLastUse(2), stamp);
    EXPECT_EQ(pool_->GetAccessCounter(), stamp);
  }
  ReadBack(0, 4);  // proxy 0, stamp 7
  source_->ForgetCalls();
  EXPECT_EQ(ReadBack(6 * kPage, 4), Expected(6 * kPage, 4));
  EXPECT_EQ(pool_->GetPage(1), 6u);
  EXPECT_EQ(source_->Calls(), (std::vector<ReadCall>{{6 * kPage, kPage}}));
  // Then proxy 2 (stamp 6) goes before proxy 0 (stamp 7).
  ReadBack(7 * kPage, 4);
  EXPECT_EQ(pool_->GetPage(2), 7u);
  EXPECT_EQ(pool_->GetPage(0), 0u);
}

TEST_F(HotPageProxyTest, VictimsMatchAFullScanForTheSmallestStamp) {
  const uint64_t pages = 16;
  MakePool(5, kPage * pages);
  // Touch every proxy once so that no two stamps are equal.
  for (uint64_t i = 0; i < 5; ++i) ReadBack(i * kPage, 1);
  std::map<uint64_t, std::size_t> pageOf;  // reference model: page -> proxy
  for (std::size_t i = 0; i < 5; ++i) pageOf[i] = i;
  std::vector<uint64_t> stamp = {1, 2, 3, 4, 5};
  std::mt19937 random(7);
  for (uint64_t counter = 6; counter < 2000; ++counter) {
    const uint64_t page = random() % pages;
    std::size_t proxy;
    if (pageOf.count(page)) {
      proxy = pageOf[page];
    } else {
      proxy = 0;
      for (std::size_t i = 1; i < stamp.size(); ++i)
        if (stamp[i] < stamp[proxy]) proxy = i;
      for (auto it = pageOf.begin(); it != pageOf.end(); ++it) {
        if (it->second == proxy) {
          pageOf.erase(it);
          break;
        }
      }
      pageOf[page] = proxy;
    }
    stamp[proxy] = counter;
    ASSERT_EQ(ReadBack(page * kPage + 3, 7), Expected(page * kPage + 3, 7));
    ASSERT_EQ(pool_->GetPage(proxy), page) << "access " << counter;
    ASSERT_EQ(pool_->GetLastUse(proxy), counter);
  }
}

TEST_F(HotPageProxyTest, PieceThatDeliversNothingEndsTheReadWithTheBytesGathered) {
  MakePool(4, kPage * 2);
  std::vector<uint8_t> buffer(3 * kPage);
  EXPECT_EQ(pool_->Read(buffer.data(), 3 * kPage, 0), 2 * kPage);
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(1, "Failed read cluster, position 64")}));
}

TEST_F(HotPageProxyTest, GetSizeForwardsTheSourceSize) {
  MakePool(2, 1000);
  EXPECT_EQ(pool_->GetSize(), 1000u);
}

TEST_F(HotPageProxyTest, PageSizeZeroDeliversNothingInsteadOfDividingByZero) {
  bytes_ = PatternBytes(64);
  source_ = std::make_shared<FaultSource>(bytes_);
  HotPageProxy pool(source_, 0, 2);
  uint8_t buffer[4];
  EXPECT_EQ(pool.Read(buffer, 4, 0), 0u);
  EXPECT_EQ(source_->ReadCount(), 0u);
}

TEST_F(HotPageProxyTest, AHugePoolMakesNoProxyBeforeItIsUsed) {
  bytes_ = PatternBytes(4096);
  source_ = std::make_shared<FaultSource>(bytes_);
  // 50 MiB of one-byte pages: a pool made up front would need gigabytes.
  HotPageProxy pool(source_, 1, 52428800);
  EXPECT_EQ(pool.GetProxyCount(), 52428800u);
  std::vector<uint8_t> buffer(16);
  EXPECT_EQ(pool.Read(buffer.data(), buffer.size(), 100), buffer.size());
  EXPECT_EQ(buffer, std::vector<uint8_t>(bytes_.begin() + 100, bytes_.begin() + 116));
  EXPECT_EQ(pool.GetPage(100), 100u);
  EXPECT_EQ(pool.GetLastUse(115), 16u);
  EXPECT_EQ(pool.GetLastUse(116), 0u);
}

TEST_F(HotPageProxyTest, APagePastThePoolTakesTheUnusedProxyOfTheLowestNumber) {
  MakePool(4);
  ReadBack(0, 4);          // proxy 0, its own page
  ReadBack(2 * kPage, 4);  // proxy 2, its own page
  source_->ForgetCalls();
  EXPECT_EQ(ReadBack(9 * kPage, 4), Expected(9 * kPage, 4));
  EXPECT_EQ(pool_->GetPage(1), 9u);
  EXPECT_EQ(pool_->GetLastUse(1), 3u);
  // Page 1 lost its proxy: it goes to proxy 3, the last unused one.
  EXPECT_EQ(ReadBack(kPage, 4), Expected(kPage, 4));
  EXPECT_EQ(pool_->GetPage(3), 1u);
  // Every proxy used: page 3 takes the least recently used, proxy 0.
  EXPECT_EQ(ReadBack(3 * kPage, 4), Expected(3 * kPage, 4));
  EXPECT_EQ(pool_->GetPage(0), 3u);
  EXPECT_EQ(source_->Calls(), (std::vector<ReadCall>{{9 * kPage, kPage}, {kPage, kPage}, {3 * kPage, kPage}}));
}

}  // namespace
