#include "cli/volume_file_layout.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "core/vss/store_block_map.h"
#include "core/vss/store_format.h"
#include "core/vss/store_layer.h"
#include "core/vss/store_layers.h"
#include "ntfsparsercore/io/cache_proxy.h"
#include "ntfsparsercore/io/system_file.h"
#include "ntfsparsercore/io/window_source.h"
#include "tests/fixtures/memory_source.h"
#include "tests/fixtures/unique_temp_path.h"

namespace tolvarcli {
namespace {

using ntfsparsercore::io::CacheProxy;
using ntfsparsercore::io::ISource;
using ntfsparsercore::io::SystemFile;
using ntfsparsercore::io::WindowSource;
using tolvarcore::vss::BlockDescriptor;
using tolvarcore::vss::StoreBlockMap;
using tolvarcore::vss::StoreLayer;
using tolvarcore::vss::StoreLayers;
using tolvarcore::vss::StoreSnapshotSource;
using Stretch = VolumeFileLayout::Stretch;

constexpr uint64_t kBlock = tolvarcore::vss::format::kBlockSize;
constexpr uint64_t kFileSize = 32 * kBlock;
constexpr uint64_t kWindowStart = 4 * kBlock;
constexpr uint64_t kWindowSize = 16 * kBlock;

// A file of kFileSize bytes on disk, removed with the test.
class VolumeFileLayoutTest : public testing::Test {
 protected:
  VolumeFileLayoutTest() : path_(tolvartest::UniqueTempPath("tolvar-layout-", ".img")) {
    std::ofstream(path_, std::ios::binary).write(std::string(kFileSize, 'v').data(), kFileSize);
    file_ = std::shared_ptr<ISource>(SystemFile::Open(path_.c_str()));
  }
  ~VolumeFileLayoutTest() override {
    file_.reset();
    std::remove(path_.c_str());
  }

  std::shared_ptr<ISource> Window() const { return std::make_shared<WindowSource>(file_, kWindowStart, kWindowSize); }

  // A shadow copy over volume whose store keeps block 2 in block dataBlock
  // and reads blocks 5 and 6 as zeros.
  static std::shared_ptr<const StoreSnapshotSource> ShadowCopy(std::shared_ptr<ISource> volume, uint64_t dataBlock) {
    BlockDescriptor kept;
    kept.originalOffset = 2 * kBlock;
    kept.storeDataOffset = dataBlock * kBlock;
    StoreLayer layer;
    layer.blockMap = std::make_shared<StoreBlockMap>(std::vector<BlockDescriptor>{kept});
    layer.unusedBitmap = StoreLayer::UnusedBlocks({0x60}, false, {});
    auto layers = std::make_shared<const StoreLayers>(std::vector<StoreLayer>{layer});
    const uint64_t size = volume->GetSize();
    return std::make_shared<StoreSnapshotSource>(std::move(volume), layers, 0, size);
  }

  std::string path_;
  std::shared_ptr<ISource> file_;
};

TEST_F(VolumeFileLayoutTest, TheVolumeIsOneStretchOfItsFile) {
  auto layout = VolumeFileLayout::OfVolume(file_);
  ASSERT_NE(layout, nullptr);
  EXPECT_EQ(layout->Locate(100, 7), (std::vector<Stretch>{{false, 7, 100}}));
}

TEST_F(VolumeFileLayoutTest, AWindowShiftsEveryStretchByItsStart) {
  auto layout = VolumeFileLayout::OfVolume(Window());
  ASSERT_NE(layout, nullptr);
  EXPECT_EQ(layout->Locate(kBlock, 3), (std::vector<Stretch>{{false, kWindowStart + 3, kBlock}}));
}

TEST_F(VolumeFileLayoutTest, CachesInFrontOfTheFileAndTheWindowAreLookedThrough) {
  auto cachedFile = std::make_shared<CacheProxy>(file_, kBlock);
  auto window = std::make_shared<WindowSource>(cachedFile, kWindowStart, kWindowSize);
  auto layout = VolumeFileLayout::OfVolume(std::make_shared<CacheProxy>(window, kBlock));
  ASSERT_NE(layout, nullptr);
  EXPECT_EQ(layout->Locate(10, 0), (std::vector<Stretch>{{false, kWindowStart, 10}}));
}

TEST_F(VolumeFileLayoutTest, ASourceThatIsNotAPlainFileHasNoLayout) {
  auto memory = std::make_shared<tolvartest::MemorySource>(std::vector<uint8_t>(kFileSize));
  EXPECT_EQ(VolumeFileLayout::OfVolume(memory), nullptr);
  EXPECT_EQ(VolumeFileLayout::OfShadowCopy(ShadowCopy(memory, 10)), nullptr);
  EXPECT_EQ(VolumeFileLayout::OfVolume(nullptr), nullptr);
}

TEST_F(VolumeFileLayoutTest, AShadowCopyLiesWhereItsViewReadsInTheFile) {
  auto layout = VolumeFileLayout::OfShadowCopy(ShadowCopy(Window(), 10));
  ASSERT_NE(layout, nullptr);
  EXPECT_EQ(layout->Locate(7 * kBlock, kBlock), (std::vector<Stretch>{{false, kWindowStart + kBlock, kBlock},
                                                                      {false, kWindowStart + 10 * kBlock, kBlock},
                                                                      {false, kWindowStart + 3 * kBlock, 2 * kBlock},
                                                                      {true, 0, 2 * kBlock},
                                                                      {false, kWindowStart + 7 * kBlock, kBlock}}));
}

TEST_F(VolumeFileLayoutTest, StoreDataOutsideTheVolumeLeavesTheReadToTheView) {
  auto layout = VolumeFileLayout::OfShadowCopy(ShadowCopy(Window(), kWindowSize / kBlock));
  ASSERT_NE(layout, nullptr);
  EXPECT_TRUE(layout->Locate(2 * kBlock, kBlock).empty());
  EXPECT_EQ(layout->Locate(kBlock, 3 * kBlock), (std::vector<Stretch>{{false, kWindowStart + 3 * kBlock, kBlock}}));
}

// Each byte of stretches as the file offset it comes from, -1 for a zero.
std::vector<int64_t> Origins(const std::vector<Stretch>& stretches) {
  std::vector<int64_t> origins;
  for (const Stretch& stretch : stretches) {
    for (uint64_t at = 0; at < stretch.size; ++at) {
      origins.push_back(stretch.zeros ? -1 : static_cast<int64_t>(stretch.at + at));
    }
  }
  return origins;
}

TEST_F(VolumeFileLayoutTest, AShadowCopyReadsAsFromTheStartOfThePageWhereverTheReadStarts) {
  // Block 3 is kept in part, sector by sector, by an overlay: the view reads
  // other bytes from inside a sector than from its start.
  BlockDescriptor overlay;
  overlay.originalOffset = 3 * kBlock;
  overlay.storeDataOffset = 9 * kBlock;
  overlay.relativeOffset = 1;
  overlay.flags = tolvarcore::vss::format::kDescriptorFlagOverlay;
  overlay.allocationBitmap = 0x0000FF0F;
  StoreLayer layer;
  layer.blockMap = std::make_shared<StoreBlockMap>(std::vector<BlockDescriptor>{overlay});
  layer.unusedBitmap = StoreLayer::UnusedBlocks({}, false, {});
  auto layers = std::make_shared<const StoreLayers>(std::vector<StoreLayer>{layer});
  auto view = std::make_shared<StoreSnapshotSource>(Window(), layers, 0, kWindowSize);
  auto layout = VolumeFileLayout::OfShadowCopy(view);
  ASSERT_NE(layout, nullptr);
  const uint64_t page = 3 * kBlock + 4096;
  const std::vector<int64_t> whole = Origins(layout->Locate(4096, page));
  ASSERT_EQ(whole.size(), 4096u);
  for (uint64_t start : {uint64_t{1}, uint64_t{700}, uint64_t{3684}, uint64_t{4000}}) {
    const uint64_t size = 4096 - start;
    EXPECT_EQ(Origins(layout->Locate(size, page + start)),
              std::vector<int64_t>(whole.begin() + static_cast<std::ptrdiff_t>(start), whole.end()))
        << "from byte " << start << " of the page";
  }
  // The view itself, read from inside sector 15 (kept) gives the bytes of
  // sector 16 (not kept) there.
  const uint64_t insideSector15 = 15 * 512 + 100 - 4096;
  const auto fromInside = view->Map(100, page + insideSector15);
  ASSERT_FALSE(fromInside.empty());
  EXPECT_NE(static_cast<int64_t>(kWindowStart + fromInside[0].at), whole[insideSector15]);
}

TEST_F(VolumeFileLayoutTest, BytesPastTheVolumeEndHaveNoStretches) {
  auto layout = VolumeFileLayout::OfVolume(Window());
  ASSERT_NE(layout, nullptr);
  EXPECT_TRUE(layout->Locate(2, kWindowSize - 1).empty());
  EXPECT_TRUE(layout->Locate(1, UINT64_MAX).empty());
}

}  // namespace
}  // namespace tolvarcli
