#include "cli/chunk_read_ahead.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

namespace tolvarcli {
namespace {

constexpr uint64_t kChunk = 16;

// Fills a chunk with the low byte of its offset divided by kChunk.
bool Fill(uint64_t offset, uint64_t size, uint8_t* buffer) {
  for (uint64_t at = 0; at < size; ++at) buffer[at] = static_cast<uint8_t>(offset / kChunk);
  return true;
}

TEST(ChunkReadAheadTest, EveryChunkArrivesInOrderWithItsOffsetSizeAndBytes) {
  ChunkReadAhead chunks(10 * kChunk + 5, kChunk, 3, Fill);
  uint64_t offset = 0;
  uint64_t size = 0;
  std::vector<uint64_t> offsets;
  while (const uint8_t* bytes = chunks.Next(&offset, &size)) {
    offsets.push_back(offset);
    EXPECT_EQ(size, offset == 10 * kChunk ? 5u : kChunk);
    EXPECT_EQ(std::vector<uint8_t>(bytes, bytes + size), std::vector<uint8_t>(size, offset / kChunk));
  }
  ASSERT_EQ(offsets.size(), 11u);
  for (uint64_t chunk = 0; chunk < offsets.size(); ++chunk) EXPECT_EQ(offsets[chunk], chunk * kChunk);
  EXPECT_FALSE(chunks.Failed());
  EXPECT_EQ(chunks.Next(&offset, &size), nullptr);
}

TEST(ChunkReadAheadTest, NoChunkIsReadMoreThanDepthAheadOfTheOneHeld) {
  std::atomic<uint64_t> furthest{0};
  ChunkReadAhead chunks(40 * kChunk, kChunk, 4, [&](uint64_t offset, uint64_t size, uint8_t* buffer) {
    furthest = offset / kChunk;
    return Fill(offset, size, buffer);
  });
  uint64_t offset = 0;
  uint64_t size = 0;
  while (const uint8_t* bytes = chunks.Next(&offset, &size)) {
    const uint64_t held = offset / kChunk;
    EXPECT_LE(furthest.load(), held + 3);
    std::this_thread::yield();
    // The chunk held was not read over while it was held.
    EXPECT_EQ(bytes[0], static_cast<uint8_t>(held));
  }
}

TEST(ChunkReadAheadTest, AFailedReadEndsTheChunksAfterTheOnesBeforeIt) {
  ChunkReadAhead chunks(10 * kChunk, kChunk, 2, [](uint64_t offset, uint64_t size, uint8_t* buffer) {
    return offset < 4 * kChunk && Fill(offset, size, buffer);
  });
  uint64_t offset = 0;
  uint64_t size = 0;
  uint64_t handed = 0;
  while (chunks.Next(&offset, &size) != nullptr) ++handed;
  EXPECT_EQ(handed, 4u);
  EXPECT_TRUE(chunks.Failed());
}

TEST(ChunkReadAheadTest, ACallerThatStopsEarlyStopsTheReader) {
  std::atomic<uint64_t> reads{0};
  {
    ChunkReadAhead chunks(1000 * kChunk, kChunk, 2, [&](uint64_t offset, uint64_t size, uint8_t* buffer) {
      ++reads;
      return Fill(offset, size, buffer);
    });
    uint64_t offset = 0;
    uint64_t size = 0;
    ASSERT_NE(chunks.Next(&offset, &size), nullptr);
  }
  EXPECT_LE(reads.load(), 3u);
}

TEST(ChunkReadAheadTest, NothingToReadGivesNoChunk) {
  ChunkReadAhead chunks(0, kChunk, 2, Fill);
  uint64_t offset = 0;
  uint64_t size = 0;
  EXPECT_EQ(chunks.Next(&offset, &size), nullptr);
  EXPECT_FALSE(chunks.Failed());
}

}  // namespace
}  // namespace tolvarcli
