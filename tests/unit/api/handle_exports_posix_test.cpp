// The main use through the exports on store files built in memory. POSIX
// only: the shadow copies are rebuilt from the store, with no service.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "common/error_queue.h"
#include "tests/fixtures/allocation_counter.h"
#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/temp_volume_file.h"
#include "tests/fixtures/vss_store_builder.h"
#include "tolvar/tolvar.h"

using tolvarcommon::ErrorRecord;

namespace {

using tolvartest::DrainErrors;
using tolvartest::vss::Block;
using tolvartest::vss::BuildStore;
using tolvartest::vss::Snap;
using tolvartest::vss::StoreSpec;

constexpr uint32_t kFlags = TOLVAR_OPTION_ERROR_QUEUE;
constexpr uint64_t kChangedOffset = 0x100000;  // 16 KiB block 64

std::string ShadowCopyId(uint32_t n) { return tolvartest::vss::Id(0x100 + n).ToString(); }

class MainUse : public tolvartest::QueueTest {
 protected:
  void Build(const StoreSpec& spec) {
    built_ = BuildStore(spec);
    file_ = std::make_unique<tolvartest::TempVolumeFile>(*built_.source);
  }

  TolvarHandle Open(uint32_t from, uint32_t to, uint64_t blockSize, uint32_t flags = kFlags) {
    TolvarHandle handle = nullptr;
    EXPECT_EQ(
        Init(&handle, file_->Path().c_str(), ShadowCopyId(from).c_str(), ShadowCopyId(to).c_str(), blockSize, flags),
        TOLVAR_OK);
    // Every index walk ends with its closing message; nothing else is expected.
    for (const auto& record : DrainErrors()) {
      EXPECT_EQ(record, tolvartest::Record(1, "Failed to read index record"));
    }
    return handle;
  }

  std::vector<uint8_t> Bitmap(TolvarHandle handle) {
    uint64_t size = 0;
    EXPECT_EQ(GetDiffBitmap(handle, nullptr, &size), TOLVAR_SIZE_RETURNED);
    std::vector<uint8_t> bytes(size);
    EXPECT_EQ(GetDiffBitmap(handle, bytes.data(), &size), TOLVAR_OK);
    return bytes;
  }

  static std::vector<uint64_t> SetBits(const std::vector<uint8_t>& bytes) {
    std::vector<uint64_t> bits;
    for (uint64_t i = 0; i < bytes.size() * 8; ++i) {
      if ((bytes[i / 8] >> (i % 8)) & 1) bits.push_back(i);
    }
    return bits;
  }

  // Two snapshots; the end one's block list names kChangedOffset twice,
  // the second time as an overlay. Neither bitmap marks anything unused.
  StoreSpec EndOnlyChange() {
    StoreSpec spec;
    spec.snapshots = {Snap(1, 10), Snap(2, 20)};
    spec.snapshots[1].descriptors = {Block(kChangedOffset), Block(kChangedOffset, 2)};
    return spec;
  }

  tolvartest::vss::BuiltStore built_;
  std::unique_ptr<tolvartest::TempVolumeFile> file_;
};

TEST_F(MainUse, GetDiffBitmapSizeQueryShortBufferAndCopy) {
  StoreSpec spec;
  spec.snapshots = {Snap(1, 10), Snap(2, 20)};
  spec.snapshots[0].descriptors = {Block(kChangedOffset)};
  Build(spec);
  TolvarHandle handle = Open(1, 2, 4096);
  ASSERT_NE(handle, nullptr);
  uint64_t size = 0;
  EXPECT_EQ(GetDiffBitmap(handle, nullptr, &size), TOLVAR_SIZE_RETURNED);
  EXPECT_EQ(size, 4u * (64 * tolvartest::vss::kMiB / 16384 / 8));
  std::vector<uint8_t> bytes(size, 0xEE);
  uint64_t shortSize = size - 1;
  EXPECT_EQ(GetDiffBitmap(handle, bytes.data(), &shortSize), TOLVAR_E_FAILED);
  EXPECT_EQ(shortSize, size - 1);
  EXPECT_EQ(bytes[0], 0xEE);
  uint64_t fullSize = size + 10;
  EXPECT_EQ(GetDiffBitmap(handle, bytes.data(), &fullSize), TOLVAR_OK);
  EXPECT_EQ(fullSize, size);
  EXPECT_EQ(SetBits(bytes), (std::vector<uint64_t>{256, 257, 258, 259}));
  FreeHandle(handle);
}

TEST_F(MainUse, BlockSize8192OnA100MiBVolumeGivesA1600ByteBitmap) {
  StoreSpec spec;
  spec.volumeSize = 100 * tolvartest::vss::kMiB;
  spec.snapshots = {Snap(1, 10), Snap(2, 20)};
  Build(spec);
  TolvarHandle handle = Open(1, 2, 8192);
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(Bitmap(handle).size(), 1600u);
  FreeHandle(handle);
}

TEST_F(MainUse, SameStartAndEndMarkNoIndexRecordWithoutBit0) {
  StoreSpec spec;
  spec.snapshots = {Snap(1, 10)};
  spec.snapshots[0].descriptors = {Block(kChangedOffset), Block(kChangedOffset, 2)};
  for (uint64_t block = 0; block < 64 * tolvartest::vss::kMiB / 16384; ++block) {
    spec.snapshots[0].bitmapBlocks.push_back(block);  // nothing in use: the bitmaps add nothing
  }
  Build(spec);
  TolvarHandle plain = Open(1, 1, 16384);
  EXPECT_TRUE(SetBits(Bitmap(plain)).empty());
  FreeHandle(plain);
  TolvarHandle withPass = Open(1, 1, 16384, kFlags | TOLVAR_OPTION_NEWEST_PASS);
  EXPECT_EQ(SetBits(Bitmap(withPass)), std::vector<uint64_t>{64});
  FreeHandle(withPass);
}

TEST_F(MainUse, WithBit0ClearChangesOnlyInTheEndIndexRecordDoNotReachTheBitmap) {
  Build(EndOnlyChange());
  TolvarHandle plain = Open(1, 2, 4096);
  EXPECT_TRUE(SetBits(Bitmap(plain)).empty());
  FreeHandle(plain);
  TolvarHandle withPass = Open(1, 2, 4096, kFlags | TOLVAR_OPTION_NEWEST_PASS);
  EXPECT_EQ(SetBits(Bitmap(withPass)), (std::vector<uint64_t>{256, 257, 258, 259}));
  FreeHandle(withPass);
}

// The changed bitmap at 16 KiB is the end snapshot's store bitmap combined
// with the start's (start AND NOT end over the bytes both have, the end's
// own bytes beyond), cut or padded to whole bytes of the end's volume,
// plus every block that the index records of the snapshots before the end
// name; volumes of every size, not only multiples of 128 KiB.
TEST_F(MainUse, DiffBitmapCombinesTheStoreBitmapsAndIndexRecordsForAnyVolumeSizes) {
  constexpr uint64_t kBlock = 16384;
  std::mt19937_64 random(20261122);
  const std::vector<std::pair<uint64_t, uint64_t>> sizes = {
      {32 * tolvartest::vss::kMiB, 32 * tolvartest::vss::kMiB},
      {32 * tolvartest::vss::kMiB + 3 * kBlock, 32 * tolvartest::vss::kMiB + 3 * kBlock},
      {16 * tolvartest::vss::kMiB + kBlock + 512, 32 * tolvartest::vss::kMiB + 5 * kBlock},
      {32 * tolvartest::vss::kMiB + 7 * kBlock, 16 * tolvartest::vss::kMiB + 2 * kBlock + 100}};
  for (const auto& size : sizes) {
    StoreSpec spec;
    spec.snapshots = {Snap(1, 10), Snap(2, 20), Snap(3, 30)};
    const uint64_t volumeSizes[] = {size.first, size.second / 2, size.second};
    std::vector<std::vector<uint8_t>> raw(3);
    for (int s = 0; s < 3; ++s) {
      spec.snapshots[s].volumeSize = volumeSizes[s];
      raw[s].assign(volumeSizes[s] >> 17, 0);
      for (uint64_t block = 0; block < raw[s].size() * 8; ++block) {
        if (random() % 3 != 0) continue;
        spec.snapshots[s].bitmapBlocks.push_back(block);
        raw[s][block / 8] |= static_cast<uint8_t>(1u << (block % 8));
      }
      spec.snapshots[s].descriptors = {Block((random() % (volumeSizes[s] / kBlock)) * kBlock)};
    }
    Build(spec);

    std::vector<uint8_t> current = raw[2];
    const std::vector<uint8_t>& reference = raw[0];
    for (std::size_t k = 0; k < std::min(current.size(), reference.size()); ++k) {
      current[k] = static_cast<uint8_t>(reference[k] & ~current[k]);
    }
    const uint64_t endBlocks = (size.second + kBlock - 1) / kBlock;
    std::vector<uint8_t> expected((endBlocks + 7) / 8, 0);
    for (std::size_t k = 0; k < std::min(current.size(), expected.size()); ++k) expected[k] = current[k];
    for (int s = 0; s < 2; ++s) {
      const uint64_t block = spec.snapshots[s].descriptors[0].original / kBlock;
      if (block / 8 < expected.size()) expected[block / 8] |= static_cast<uint8_t>(1u << (block % 8));
    }

    TolvarHandle handle = Open(1, 3, kBlock);
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(Bitmap(handle), expected) << size.first << " " << size.second;
    FreeHandle(handle);
  }
}

TEST_F(MainUse, GetBlockWithAShortBufferAsksForTheBlockSizeThenServesTheFirstBlock) {
  StoreSpec spec;
  spec.snapshots = {Snap(1, 10), Snap(2, 20)};
  spec.snapshots[0].descriptors = {Block(kChangedOffset)};
  Build(spec);
  TolvarHandle handle = Open(1, 2, 8192);
  std::vector<uint8_t> buffer(8192);
  uint64_t size = 100;
  uint64_t index = 99;
  EXPECT_EQ(GetBlock(handle, buffer.data(), &size, &index, 0), TOLVAR_E_BLOCK);
  EXPECT_EQ(size, 8192u);
  EXPECT_EQ(index, 99u);
  EXPECT_EQ(GetBlock(handle, buffer.data(), &size, &index, 0), TOLVAR_OK);
  EXPECT_EQ(index, kChangedOffset / 8192);
  EXPECT_EQ(GetBlock(handle, buffer.data(), &size, nullptr, 0), TOLVAR_OK);
  EXPECT_EQ(size, 8192u);
  FreeHandle(handle);
}

TEST_F(MainUse, AfterTheLastChangedBlockGetBlockKeepsReturning2) {
  StoreSpec spec;
  spec.snapshots = {Snap(1, 10), Snap(2, 20)};
  spec.snapshots[0].descriptors = {Block(kChangedOffset)};
  Build(spec);
  TolvarHandle handle = Open(1, 2, 16384);
  std::vector<uint8_t> buffer(16384);
  uint64_t size = buffer.size();
  uint64_t index = 0;
  ASSERT_EQ(GetBlock(handle, buffer.data(), &size, &index, 0), TOLVAR_OK);
  EXPECT_EQ(index, 64u);
  // The newest snapshot's store keeps nothing for it: the current volume's bytes.
  std::vector<uint8_t> current(16384);
  built_.source->Read(current.data(), current.size(), kChangedOffset);
  EXPECT_EQ(buffer, current);
  for (int call = 0; call < 3; ++call) {
    EXPECT_EQ(GetBlock(handle, buffer.data(), &size, &index, 1), TOLVAR_END_OF_BLOCKS);
  }
  FreeHandle(handle);
}

TEST_F(MainUse, GetBlockAllocatesNothingAfterItsFirstCall) {
  StoreSpec spec;
  spec.snapshots = {Snap(1, 10), Snap(2, 20), Snap(3, 30)};
  for (uint64_t i = 0; i < 40; ++i) spec.snapshots[0].descriptors.push_back(Block(kChangedOffset + i * 16384));
  spec.snapshots[1].descriptors = {Block(kChangedOffset), Block(kChangedOffset + 0x400000)};
  Build(spec);
  TolvarHandle handle = nullptr;
  std::vector<uint8_t> buffer(4096);
  uint64_t size = buffer.size();
  uint64_t index = 0;
  // Kept blocks differ from the current volume, so the comparison serves them.
  for (uint64_t i = 0; i < 40; ++i) {
    std::vector<uint8_t> old(16384, static_cast<uint8_t>(i + 1));
    built_.source->Write(0x2000000 + kChangedOffset + i * 16384, old);
  }
  file_ = std::make_unique<tolvartest::TempVolumeFile>(*built_.source);
  handle = Open(1, 3, 4096);
  ASSERT_EQ(GetBlock(handle, buffer.data(), &size, &index, 1), TOLVAR_OK);
  int served = 1;
  tolvartest::AllocationCounter allocations;
  while (GetBlock(handle, buffer.data(), &size, &index, 1) == TOLVAR_OK) ++served;
  EXPECT_EQ(allocations.Count(), 0u);
  EXPECT_GE(served, 160);
  FreeHandle(handle);
}

TEST_F(MainUse, EndBeforeStartFailsWithTheEndMessage) {
  StoreSpec spec;
  spec.snapshots = {Snap(1, 10), Snap(2, 20)};
  Build(spec);
  TolvarHandle handle = nullptr;
  EXPECT_EQ(Init(&handle, file_->Path().c_str(), ShadowCopyId(2).c_str(), ShadowCopyId(1).c_str(), 4096, kFlags),
            TOLVAR_E_FAILED);
  EXPECT_EQ(DrainErrors(),
            (std::vector<ErrorRecord>{tolvartest::Record(14, "Failed build snapshot sequence. End snapshot not find"),
                                      tolvartest::Record(12, "Failed to get snapshot sequence")}));
}

}  // namespace
