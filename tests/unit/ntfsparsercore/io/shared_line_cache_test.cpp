#include "ntfsparsercore/io/shared_line_cache.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include "tests/fixtures/fault_source.h"
#include "tests/fixtures/memory_source.h"

namespace {

using ntfsparsercore::io::SharedLineCache;
using tolvartest::FaultSource;
using tolvartest::MemorySource;
using tolvartest::PatternBytes;

constexpr uint64_t kLine = 4096;
constexpr uint64_t kSourceSize = 40 * kLine + 1000;  // ends inside a line

std::vector<uint8_t> Read(SharedLineCache& cache, uint64_t size, uint64_t offset) {
  std::vector<uint8_t> bytes(static_cast<std::size_t>(size), 0xEE);
  bytes.resize(static_cast<std::size_t>(cache.Read(bytes.data(), size, offset)));
  return bytes;
}

std::vector<uint8_t> Expected(const std::vector<uint8_t>& source, uint64_t size, uint64_t offset) {
  if (offset >= source.size()) return {};
  const uint64_t end = std::min<uint64_t>(source.size(), offset + size);
  return std::vector<uint8_t>(source.begin() + static_cast<std::ptrdiff_t>(offset),
                              source.begin() + static_cast<std::ptrdiff_t>(end));
}

TEST(SharedLineCacheTest, EveryReadDeliversWhatTheSourceHoldsUpToItsEnd) {
  const auto bytes = PatternBytes(kSourceSize);
  SharedLineCache cache(std::make_shared<MemorySource>(bytes), kLine, 4);
  EXPECT_EQ(cache.GetSize(), kSourceSize);
  std::mt19937_64 random(7);
  for (int k = 0; k < 2000; ++k) {
    const uint64_t offset = random() % (kSourceSize + kLine);
    const uint64_t size = random() % (5 * kLine);
    ASSERT_EQ(Read(cache, size, offset), Expected(bytes, size, offset)) << offset << " " << size;
  }
}

TEST(SharedLineCacheTest, WholeLinesGoStraightToTheCallerInOneReadAndAreNotKept) {
  auto source = std::make_shared<FaultSource>(PatternBytes(kSourceSize));
  SharedLineCache cache(source, kLine, 4);
  EXPECT_EQ(Read(cache, 3 * kLine, 2 * kLine).size(), 3 * kLine);
  ASSERT_EQ(source->Calls().size(), 1u);
  EXPECT_EQ(source->Calls()[0], (FaultSource::ReadCall{2 * kLine, 3 * kLine}));
  EXPECT_EQ(cache.Loads(), 0u);
}

TEST(SharedLineCacheTest, PartOfALineReadsTheWholeLineOnceAndLaterPartsComeFromIt) {
  auto source = std::make_shared<FaultSource>(PatternBytes(kSourceSize));
  SharedLineCache cache(source, kLine, 4);
  Read(cache, 100, kLine + 10);
  Read(cache, 200, kLine + 3000);
  ASSERT_EQ(source->Calls().size(), 1u);
  EXPECT_EQ(source->Calls()[0], (FaultSource::ReadCall{kLine, kLine}));
  EXPECT_EQ(cache.Loads(), 1u);
  EXPECT_EQ(cache.Hits(), 1u);
}

TEST(SharedLineCacheTest, TheLastLineIsAsLongAsTheSourceLeaves) {
  auto source = std::make_shared<FaultSource>(PatternBytes(kSourceSize));
  SharedLineCache cache(source, kLine, 4);
  EXPECT_EQ(Read(cache, kLine, 40 * kLine + 500).size(), 500u);
  EXPECT_EQ(source->Calls()[0], (FaultSource::ReadCall{40 * kLine, 1000}));
}

TEST(SharedLineCacheTest, TheLeastRecentlyUsedLineOfAShardGoesFirst) {
  auto source = std::make_shared<FaultSource>(PatternBytes(kSourceSize));
  SharedLineCache cache(source, kLine, 2);  // two shards of one line: lines 0 and 2 share one
  Read(cache, 1, 0);
  Read(cache, 1, 2 * kLine);
  Read(cache, 1, 0);
  EXPECT_EQ(cache.Loads(), 3u);
  EXPECT_EQ(cache.Hits(), 0u);
  Read(cache, 1, kLine);
  Read(cache, 1, 0);
  EXPECT_EQ(cache.Hits(), 1u);
}

TEST(SharedLineCacheTest, AShortSourceReadIsPassedOnAsFarAsItCameAndNotKept) {
  auto source = std::make_shared<FaultSource>(PatternBytes(kSourceSize));
  SharedLineCache cache(source, kLine, 4);
  source->ShortBy(1000);
  EXPECT_EQ(Read(cache, 2000, 2 * kLine + 2000), Expected(source->Bytes(), kLine - 1000 - 2000, 2 * kLine + 2000));
  EXPECT_EQ(Read(cache, 100, 2 * kLine + 3500).size(), 0u);
  EXPECT_EQ(cache.Loads(), 0u);
  source->ShortBy(0);
  EXPECT_EQ(Read(cache, 2000, 2 * kLine + 2000), Expected(source->Bytes(), 2000, 2 * kLine + 2000));
  EXPECT_EQ(cache.Loads(), 1u);
}

TEST(SharedLineCacheTest, SeveralThreadsReadingAtOnceEachGetTheSourceBytes) {
  const auto bytes = PatternBytes(kSourceSize);
  SharedLineCache cache(std::make_shared<MemorySource>(bytes), kLine, 6);
  std::vector<std::thread> threads;
  std::mutex failuresGuard;
  int failures = 0;
  for (unsigned seed = 1; seed <= 4; ++seed) {
    threads.emplace_back([&, seed] {
      std::mt19937_64 random(seed);
      for (int k = 0; k < 3000; ++k) {
        const uint64_t offset = random() % kSourceSize;
        const uint64_t size = random() % (2 * kLine);
        if (Read(cache, size, offset) != Expected(bytes, size, offset)) {
          std::lock_guard<std::mutex> lock(failuresGuard);
          ++failures;
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(failures, 0);
  EXPECT_GT(cache.Hits(), 0u);
}

}  // namespace
