#include "cli/block_pipeline.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <vector>

namespace tolvarcli {
namespace {

// Submits blocks 0..count-1, each filled with its own index, as the
// backup's walk does; stops early when Acquire says the consumer failed.
uint64_t SubmitBlocks(BlockPipeline& pipeline, uint64_t count) {
  uint64_t submitted = 0;
  for (uint64_t i = 0; i < count; ++i) {
    BlockPipeline::Item* item = pipeline.Acquire();
    if (item == nullptr) break;
    item->index = i;
    item->oldHash = i * 3;
    std::fill(item->block.begin(), item->block.end(), static_cast<uint8_t>(i));
    pipeline.Submit(item);
    ++submitted;
  }
  return submitted;
}

TEST(BlockPipelineTest, ConsumerSeesEveryBlockInTheOrderSubmitted) {
  std::vector<uint64_t> seen;
  bool contentsMatch = true;
  BlockPipeline pipeline(16, 4, [&](const BlockPipeline::Item& item) {
    seen.push_back(item.index);
    contentsMatch = contentsMatch && item.oldHash == item.index * 3 &&
                    item.block == std::vector<uint8_t>(16, static_cast<uint8_t>(item.index));
    return true;
  });
  EXPECT_EQ(SubmitBlocks(pipeline, 1000), 1000u);
  EXPECT_TRUE(pipeline.Finish());
  ASSERT_EQ(seen.size(), 1000u);
  for (uint64_t i = 0; i < seen.size(); ++i) EXPECT_EQ(seen[i], i);
  EXPECT_TRUE(contentsMatch);
}

TEST(BlockPipelineTest, ConsumerFailureStopsTheWalkAndFinishReportsIt) {
  std::atomic<uint64_t> consumed{0};
  BlockPipeline pipeline(8, 2, [&](const BlockPipeline::Item& item) {
    ++consumed;
    return item.index != 5;
  });
  const uint64_t submitted = SubmitBlocks(pipeline, 1000);
  EXPECT_FALSE(pipeline.Finish());
  EXPECT_LT(submitted, 1000u);
  // Nothing reaches the consumer after the block it failed on.
  EXPECT_EQ(consumed.load(), 6u);
}

TEST(BlockPipelineTest, FinishWithNothingSubmittedSucceeds) {
  BlockPipeline pipeline(8, 2, [](const BlockPipeline::Item&) { return false; });
  EXPECT_TRUE(pipeline.Finish());
}

TEST(BlockPipelineTest, DestroyedWhileBlocksAreQueuedReturns) {
  std::atomic<uint64_t> consumed{0};
  {
    BlockPipeline pipeline(8, 64, [&](const BlockPipeline::Item&) {
      ++consumed;
      return true;
    });
    SubmitBlocks(pipeline, 64);
  }
  EXPECT_LE(consumed.load(), 64u);
}

TEST(BlockPipelineTest, SlotsAreAtLeastOne) {
  uint64_t consumed = 0;
  BlockPipeline pipeline(8, 0, [&](const BlockPipeline::Item&) {
    ++consumed;
    return true;
  });
  EXPECT_EQ(SubmitBlocks(pipeline, 10), 10u);
  EXPECT_TRUE(pipeline.Finish());
  EXPECT_EQ(consumed, 10u);
}

}  // namespace
}  // namespace tolvarcli
