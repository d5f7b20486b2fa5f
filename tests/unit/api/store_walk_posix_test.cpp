// The block walk over a shadow copy rebuilt from its store, at every block
// size the benchmarks use, compare off and on: each block returned holds
// what the stores and the volume say that shadow copy held, and a block
// whose old contents lie past the end of the image ends the walk. POSIX
// only: the shadow copies are rebuilt from the store.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <map>
#include <set>
#include <memory>
#include <string>
#include <vector>

#include "common/error_queue.h"
#include "ntfsparsercore/io/little_endian.h"
#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/temp_volume_file.h"
#include "tests/fixtures/vss_store_builder.h"
#include "tolvar/tolvar.h"

using tolvarcommon::ErrorRecord;

namespace {

using tolvartest::DrainErrors;
using tolvartest::Record;
using tolvartest::vss::Descriptor;
using tolvartest::vss::Snap;
using tolvartest::vss::StoreSpec;

constexpr uint64_t kStoreBlock = 16384;  // bytes one descriptor describes
constexpr uint64_t kVolumeSize = 64 * tolvartest::vss::kMiB;
constexpr uint64_t kDataArea = 0x3000000;  // where the stores' old contents go
constexpr uint64_t kFirst = 1024;          // the first 16 KiB block the stores keep (at 16 MiB)
constexpr uint64_t kBlockSizes[] = {4096, 65536, 131072};

std::string ShadowCopyId(uint32_t n) { return tolvartest::vss::Id(0x100 + n).ToString(); }

// 16 KiB of one repeated 8-byte value: tag in the high half, block in the low.
std::vector<uint8_t> Pattern(uint32_t tag, uint64_t block) {
  std::vector<uint8_t> bytes(kStoreBlock);
  for (uint64_t at = 0; at < kStoreBlock; at += 8) {
    ntfsparsercore::io::StoreLe64(bytes.data() + at, static_cast<uint64_t>(tag) << 32 | block);
  }
  return bytes;
}

class StoreWalk : public tolvartest::QueueTest {
 protected:
  // Three snapshots. Store 1 keeps blocks kFirst + 0, 1, 2 and 16; store 2
  // keeps + 1 and 17; store 3 keeps + 2 and 18. Every kept block has old
  // contents of its own (tag = store number); the volume's carry tag 9.
  void SetUp() override {
    held_ = {{kFirst, 1},     {kFirst + 1, 1},  {kFirst + 2, 1}, {kFirst + 16, 1},
             {kFirst + 1, 2}, {kFirst + 17, 2}, {kFirst + 2, 3}, {kFirst + 18, 3}};
    StoreSpec spec;
    spec.volumeSize = kVolumeSize;
    spec.snapshots = {Snap(1, 10), Snap(2, 20), Snap(3, 30)};
    for (const auto& kept : held_) {
      const uint64_t block = kept.first;
      const uint32_t store = kept.second;
      spec.snapshots[store - 1].descriptors.push_back(
          Descriptor{block * kStoreBlock, 0x4000 + block * kStoreBlock, DataOffset(store, block), 0, 0});
    }
    built_ = tolvartest::vss::BuildStore(spec);
    for (uint64_t block = kFirst - 8; block < kFirst + 40; ++block)
      built_.source->Write(block * kStoreBlock, Pattern(9, block));
    for (const auto& kept : held_) {
      built_.source->Write(DataOffset(kept.second, kept.first), Pattern(kept.second, kept.first));
    }
  }

  static uint64_t DataOffset(uint32_t store, uint64_t block) {
    return kDataArea + (store * 64 + block - kFirst) * kStoreBlock;
  }

  // What shadow copy `to` held in the 16 KiB block: the old contents kept
  // by the oldest store from `to` on that keeps it, else the volume's.
  std::vector<uint8_t> Expected(uint32_t to, uint64_t block) const {
    for (uint32_t store = to; store <= 3; ++store) {
      if (held_.count({block, store}) != 0) return Pattern(store, block);
    }
    return Pattern(9, block);
  }

  std::vector<uint8_t> ExpectedBlock(uint32_t to, uint64_t index, uint64_t blockSize) const {
    std::vector<uint8_t> bytes;
    for (uint64_t at = index * blockSize; at < (index + 1) * blockSize; at += kStoreBlock) {
      const std::vector<uint8_t> whole = Expected(to, at / kStoreBlock);
      const uint64_t take = std::min(kStoreBlock, blockSize);
      bytes.insert(bytes.end(), whole.begin() + static_cast<std::ptrdiff_t>(at % kStoreBlock),
                   whole.begin() + static_cast<std::ptrdiff_t>(at % kStoreBlock + take));
    }
    return bytes;
  }

  TolvarHandle Open(const std::string& path, uint32_t from, uint32_t to, uint64_t blockSize) {
    TolvarHandle handle = nullptr;
    EXPECT_EQ(Init(&handle, path.c_str(), ShadowCopyId(from).c_str(), ShadowCopyId(to).c_str(), blockSize,
                   TOLVAR_OPTION_ERROR_QUEUE),
              TOLVAR_OK);
    DrainErrors();
    return handle;
  }

  // Walks to the end; checks every block against the stores and returns
  // the indices served.
  std::vector<uint64_t> WalkAndCheck(TolvarHandle handle, uint32_t to, uint64_t blockSize, bool compare) {
    std::vector<uint64_t> served;
    std::vector<uint8_t> buffer(blockSize);
    uint64_t size = blockSize;
    uint64_t index = 0;
    while (GetBlock(handle, buffer.data(), &size, &index, compare ? 1 : 0) == TOLVAR_OK) {
      EXPECT_EQ(size, blockSize);
      EXPECT_TRUE(buffer == ExpectedBlock(to, index, blockSize)) << "block " << index << " of " << blockSize;
      served.push_back(index);
      size = blockSize;
    }
    EXPECT_EQ(GetBlock(handle, buffer.data(), &size, &index, 0), TOLVAR_END_OF_BLOCKS);
    return served;
  }

  // The indices at blockSize of the 16 KiB blocks that stores from..to-1 keep.
  std::vector<uint64_t> MarkedBy(uint32_t from, uint32_t to, uint64_t blockSize) const {
    std::map<uint64_t, bool> indices;
    for (const auto& kept : held_) {
      if (kept.second >= from && kept.second < to) {
        for (uint64_t at = kept.first * kStoreBlock; at < (kept.first + 1) * kStoreBlock; at += blockSize) {
          indices[at / blockSize] = true;
        }
      }
    }
    std::vector<uint64_t> result;
    for (const auto& entry : indices) result.push_back(entry.first);
    return result;
  }

  std::set<std::pair<uint64_t, uint32_t>> held_;  // (16 KiB block, store number) of every block a store keeps
  tolvartest::vss::BuiltStore built_;
};

TEST_F(StoreWalk, OlderShadowCopyServesEachBlockFromItsOwnStoreNewerStoresOrTheVolume) {
  tolvartest::TempVolumeFile file(*built_.source);
  for (uint64_t blockSize : kBlockSizes) {
    for (bool compare : {false, true}) {
      TolvarHandle handle = Open(file.Path(), 1, 2, blockSize);
      ASSERT_NE(handle, nullptr);
      EXPECT_EQ(WalkAndCheck(handle, 2, blockSize, compare), MarkedBy(1, 2, blockSize)) << blockSize;
      FreeHandle(handle);
      EXPECT_TRUE(DrainErrors().empty());
    }
  }
}

TEST_F(StoreWalk, NewestShadowCopyServesEachBlockFromItsStoreOrTheVolume) {
  tolvartest::TempVolumeFile file(*built_.source);
  for (uint64_t blockSize : kBlockSizes) {
    for (bool compare : {false, true}) {
      TolvarHandle handle = Open(file.Path(), 1, 3, blockSize);
      ASSERT_NE(handle, nullptr);
      EXPECT_EQ(WalkAndCheck(handle, 3, blockSize, compare), MarkedBy(1, 3, blockSize)) << blockSize;
      FreeHandle(handle);
      EXPECT_TRUE(DrainErrors().empty());
    }
  }
}

TEST_F(StoreWalk, OldContentsPastTheEndOfTheImageEndTheWalkWithTheViewsMessage) {
  // Store 2's copy of block kFirst + 1 lies past the end of the cut image.
  tolvartest::TempVolumeFile file(*built_.source);
  std::filesystem::resize_file(file.Path(), DataOffset(2, kFirst + 1) + 100);
  for (uint64_t blockSize : kBlockSizes) {
    TolvarHandle handle = Open(file.Path(), 1, 2, blockSize);
    ASSERT_NE(handle, nullptr);
    std::vector<uint8_t> buffer(blockSize);
    uint64_t size = blockSize;
    uint64_t index = 0;
    int32_t status;
    uint64_t served = 0;
    while ((status = GetBlock(handle, buffer.data(), &size, &index, 0)) == TOLVAR_OK) {
      EXPECT_TRUE(buffer == ExpectedBlock(2, index, blockSize)) << "block " << index << " of " << blockSize;
      ++served;
    }
    // Only the blocks before kFirst + 1 come; 4 KiB blocks split kFirst in four.
    EXPECT_EQ(served, blockSize == 4096 ? 4u : 0u) << blockSize;
    EXPECT_EQ(status, TOLVAR_E_BLOCK);
    EXPECT_EQ(GetBlock(handle, buffer.data(), &size, &index, 0), TOLVAR_END_OF_BLOCKS);
    EXPECT_EQ(GetBlock(handle, buffer.data(), &size, &index, 0), TOLVAR_END_OF_BLOCKS);
    const std::vector<ErrorRecord> messages = DrainErrors();
    ASSERT_FALSE(messages.empty());
    EXPECT_EQ(messages.back(),
              Record(1, "Failed read cluster, position " + std::to_string((kFirst + 1) * kStoreBlock)));
    FreeHandle(handle);
  }
}

// Every store's bitmap marks blocks kFirst + 16 to + 23 unused. Only the
// newest view reads zeros, and only where the newest store's bitmap says so
// and no store from the view on keeps the block: kFirst + 16, kept by store
// 1 alone, reads zeros in view 3 and the volume's contents in view 2.
class StoreWalkWithUnusedBlocks : public StoreWalk {
 protected:
  void SetUp() override {
    StoreWalk::SetUp();
    held_.clear();
    held_ = {{kFirst, 1}, {kFirst + 16, 1}, {kFirst + 17, 1}, {kFirst + 17, 2}, {kFirst + 18, 3}};
    StoreSpec spec;
    spec.volumeSize = kVolumeSize;
    spec.snapshots = {Snap(1, 10), Snap(2, 20), Snap(3, 30)};
    for (auto& snapshot : spec.snapshots) {
      for (uint64_t block = kFirst + 16; block < kFirst + 24; ++block) snapshot.bitmapBlocks.push_back(block);
    }
    for (const auto& kept : held_) {
      spec.snapshots[kept.second - 1].descriptors.push_back(Descriptor{
          kept.first * kStoreBlock, 0x4000 + kept.first * kStoreBlock, DataOffset(kept.second, kept.first), 0, 0});
    }
    built_ = tolvartest::vss::BuildStore(spec);
    for (uint64_t block = kFirst - 8; block < kFirst + 40; ++block)
      built_.source->Write(block * kStoreBlock, Pattern(9, block));
    for (const auto& kept : held_) {
      built_.source->Write(DataOffset(kept.second, kept.first), Pattern(kept.second, kept.first));
    }
  }

  // As StoreWalk's, with zeros where the newest view finds no store keeping
  // a block that the newest store's bitmap marks unused.
  std::vector<uint8_t> ExpectedWithZeros(uint32_t to, uint64_t index, uint64_t blockSize) const {
    std::vector<uint8_t> bytes = ExpectedBlock(to, index, blockSize);
    for (uint64_t at = index * blockSize; at < (index + 1) * blockSize; at += kStoreBlock) {
      const uint64_t block = at / kStoreBlock;
      bool kept = false;
      for (uint32_t store = to; store <= 3; ++store) kept = kept || held_.count({block, store}) != 0;
      if (to == 3 && !kept && block >= kFirst + 16 && block < kFirst + 24) {
        const uint64_t from = at - index * blockSize;
        std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(from),
                  bytes.begin() + static_cast<std::ptrdiff_t>(from + std::min(kStoreBlock, blockSize)), 0);
      }
    }
    return bytes;
  }
};

TEST_F(StoreWalkWithUnusedBlocks, OnlyTheNewestViewReadsZerosWhereTheNewestBitmapMarksABlockUnused) {
  tolvartest::TempVolumeFile file(*built_.source);
  for (uint32_t to : {2u, 3u}) {
    for (uint64_t blockSize : kBlockSizes) {
      TolvarHandle handle = Open(file.Path(), 1, to, blockSize);
      ASSERT_NE(handle, nullptr);
      std::vector<uint8_t> buffer(blockSize);
      uint64_t size = blockSize;
      uint64_t index = 0;
      bool sawUnusedBlock = false;
      while (GetBlock(handle, buffer.data(), &size, &index, 0) == TOLVAR_OK) {
        EXPECT_TRUE(buffer == ExpectedWithZeros(to, index, blockSize))
            << to << ": block " << index << " of " << blockSize;
        sawUnusedBlock =
            sawUnusedBlock || index * blockSize / kStoreBlock == kFirst + 16 ||
            (index * blockSize <= (kFirst + 16) * kStoreBlock && (kFirst + 16) * kStoreBlock < (index + 1) * blockSize);
        size = blockSize;
      }
      EXPECT_TRUE(sawUnusedBlock) << to << " " << blockSize;
      FreeHandle(handle);
      EXPECT_TRUE(DrainErrors().empty());
    }
  }
}

}  // namespace
