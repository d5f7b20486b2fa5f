#include "core/vss/store_layers.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "common/error_queue.h"
#include "common/error_recorder.h"
#include "core/vss/records/catalog.h"
#include "core/vss/snapshot_sequence.h"
#include "core/vss/store_stack.h"
#include "ntfsparsercore/io/i_source.h"
#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/vss_store_builder.h"

using tolvarcommon::ErrorRecord;
using tolvarcommon::ErrorRecorder;
using tolvarcommon::ReportError;

namespace {

using tolvarcore::vss::StoreLayer;
using tolvarcore::vss::StoreLayers;
using tolvarcore::vss::StoreStack;
using tolvartest::DrainErrors;
using tolvartest::Record;
using namespace tolvartest::vss;

constexpr uint64_t kBlock = 16384;

class StoreLayersTest : public tolvartest::QueueTest {
 protected:
  // Two snapshots; each store keeps one block, the newest has a previous bitmap.
  void Build() {
    StoreSpec spec;
    spec.snapshots = {Snap(1, 10), Snap(2, 20)};
    spec.snapshots[0].descriptors = {Block(4 * kBlock)};
    spec.snapshots[1].descriptors = {Block(9 * kBlock)};
    spec.snapshots[1].hasPreviousBitmap = true;
    built_ = BuildStore(spec);
    for (const DeclarationOffsets& offsets : built_.offsets) {
      locations_.push_back(StoreLayers::Location{offsets.index, offsets.bitmap, offsets.previousBitmap});
    }
  }

  // Whether any read of the source started inside the page at offset.
  bool PageWasRead(uint64_t offset) const {
    for (const auto& call : built_.source->Calls()) {
      if (call.offset / kBlock == offset / kBlock) return true;
    }
    return false;
  }

  BuiltStore built_;
  std::vector<StoreLayers::Location> locations_;
};

TEST_F(StoreLayersTest, NothingIsReadUntilAStoreIsFirstNeededThenEveryStoreIs) {
  Build();
  StoreLayers layers(built_.source, locations_);
  EXPECT_EQ(layers.Count(), 2u);
  EXPECT_FALSE(layers.IsRead());
  EXPECT_TRUE(built_.source->Calls().empty());

  ASSERT_NE(layers.At(1).blockMap, nullptr);
  EXPECT_TRUE(layers.IsRead());
  EXPECT_TRUE(PageWasRead(built_.offsets[0].index));
  EXPECT_TRUE(PageWasRead(built_.offsets[1].index));
  EXPECT_TRUE(PageWasRead(built_.offsets[1].bitmap));
  EXPECT_TRUE(PageWasRead(built_.offsets[1].previousBitmap));
  EXPECT_FALSE(PageWasRead(built_.offsets[0].bitmap));  // older stores' bitmaps are never looked at
  EXPECT_NE(layers.At(0).blockMap->Find(4 * kBlock), nullptr);
  EXPECT_NE(layers.At(1).blockMap->Find(9 * kBlock), nullptr);
  EXPECT_FALSE(layers.At(1).unusedBitmap.empty());
  EXPECT_TRUE(layers.At(0).unusedBitmap.empty());

  const std::size_t reads = built_.source->Calls().size();
  layers.At(0);
  EXPECT_EQ(built_.source->Calls().size(), reads);  // read once
}

TEST_F(StoreLayersTest, ReadingTheStoresReportsNothingToTheQueueOrARecorder) {
  Build();
  built_.source->FailReadsAt(built_.offsets[0].index);
  StoreLayers layers(built_.source, locations_);
  ReportError(1, "before");
  ErrorRecorder recorder;
  EXPECT_EQ(layers.At(0).blockMap, nullptr);  // a block list that cannot be read: a store that cannot be read
  EXPECT_TRUE(recorder.Records().empty());
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(1, "before")}));
}

TEST_F(StoreLayersTest, TheStackReadsOnlyTheCatalogUntilAViewReads) {
  Build();
  std::shared_ptr<const StoreStack> stack = StoreStack::Read(*built_.Volume());
  ASSERT_EQ(stack->StoreCount(), 2u);
  EXPECT_TRUE(PageWasRead(built_.catalogOffset));
  EXPECT_FALSE(PageWasRead(built_.offsets[0].index));
  EXPECT_FALSE(PageWasRead(built_.offsets[1].bitmap));

  std::unique_ptr<ntfsparsercore::io::ISource> view(stack->OpenView(Id(1)));
  ASSERT_NE(view, nullptr);
  EXPECT_FALSE(PageWasRead(built_.offsets[0].index));
  uint8_t byte = 0;
  EXPECT_EQ(view->Read(&byte, 1, 4 * kBlock), 1u);
  EXPECT_TRUE(PageWasRead(built_.offsets[0].index));
  EXPECT_TRUE(PageWasRead(built_.offsets[1].bitmap));
}

TEST(StoreLayer, UnusedBlocksAreThoseBothBitmapsMarkWithinBothLengths) {
  std::mt19937_64 random(20261122);
  for (int round = 0; round < 200; ++round) {
    std::vector<uint8_t> current(random() % 6);
    std::vector<uint8_t> previous(random() % 6);
    for (auto& byte : current) byte = static_cast<uint8_t>(random());
    for (auto& byte : previous) byte = static_cast<uint8_t>(random());
    const bool hasPrevious = random() % 2 == 0;
    const std::vector<uint8_t> unused = StoreLayer::UnusedBlocks(current, hasPrevious, previous);
    for (uint64_t block = 0; block < 64; ++block) {
      const uint64_t offset = block * kBlock + random() % kBlock;
      const bool expected =
          StoreLayer::IsBlockSet(current, offset) && (!hasPrevious || StoreLayer::IsBlockSet(previous, offset));
      ASSERT_EQ(StoreLayer::IsBlockSet(unused, offset), expected) << round << " block " << block;
    }
  }
}

TEST_F(StoreLayersTest, ThreadsFirstReadingAtOnceReadTheStoresOnceAndSeeTheSameLayers) {
  Build();
  StoreLayers layers(built_.source, locations_);
  std::vector<const StoreLayer*> seen(8, nullptr);
  std::vector<std::thread> threads;
  for (std::size_t k = 0; k < seen.size(); ++k) {
    threads.emplace_back([&layers, &seen, k] { seen[k] = &layers.At(k % 2); });
  }
  for (auto& thread : threads) thread.join();
  for (std::size_t k = 0; k < seen.size(); ++k) EXPECT_EQ(seen[k], &layers.At(k % 2));
  const std::size_t reads = built_.source->Calls().size();

  StoreLayers alone(built_.source, locations_);
  built_.source->ForgetCalls();
  alone.At(0);
  EXPECT_EQ(reads, built_.source->Calls().size());
  EXPECT_NE(layers.At(1).blockMap->Find(9 * kBlock), nullptr);
}

}  // namespace
