// ExcludeFiles and GetFileChangesMap on handles built over small NTFS
// volumes held in memory.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "api/tracking_handle.h"
#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/fault_source.h"
#include "tests/fixtures/file_volume_images.h"
#include "tolvar/tolvar.h"

using tolvarcommon::ErrorRecord;

namespace {

using tolvarcore::BitMap;
using tolvarcore::BlockProcessor;
using tolvartest::DrainErrors;
using tolvartest::FaultSource;
using tolvartest::FileVolumeImages;
using tolvartest::Record;

constexpr uint64_t kBlock = 4096;
constexpr uint64_t kBootSectorBytes = 512;

class ProcessorWithResult : public BlockProcessor {
 public:
  using BlockProcessor::BlockProcessor;
  using BlockProcessor::SetResult;
};

class FileExports : public tolvartest::QueueTest {
 protected:
  void SetUp() override {
    QueueTest::SetUp();
    changed_ = std::make_shared<BitMap>(FileVolumeImages::kTotalClusters / 8);
    for (uint64_t b : {3, 40, 41, 42, 60, 70, 100}) changed_->Set(b);
    older_ = std::make_shared<FaultSource>(FileVolumeImages::Build(false));
    newer_ = std::make_shared<FaultSource>(FileVolumeImages::Build(true));
  }

  void TearDown() override {
    for (TolvarHandle h : handles_) FreeHandle(h);
    QueueTest::TearDown();
  }

  TolvarHandle MakeHandle() {
    auto processor = std::make_unique<ProcessorWithResult>(kBlock, 0);
    processor->SetResult(changed_, std::make_shared<BitMap>(changed_->SizeInBytes()), older_, newer_);
    auto handle = new TrackingHandle();
    handle->blockProcessor = std::move(processor);
    handles_.push_back(handle);
    return handle;
  }

  // Reads of a boot sector: one per NTFS view opened.
  static int BootReads(const FaultSource& source) {
    const auto& calls = source.Calls();
    return static_cast<int>(std::count(calls.begin(), calls.end(), FaultSource::ReadCall{0, kBootSectorBytes}));
  }

  static std::vector<uint64_t> Walk(TolvarHandle handle) {
    std::vector<uint64_t> indices;
    std::vector<unsigned char> buffer(kBlock);
    for (;;) {
      uint64_t size = kBlock;
      uint64_t index = 0;
      int32_t status = GetBlock(handle, buffer.data(), &size, &index, 0);
      if (status != TOLVAR_OK) break;
      indices.push_back(index);
    }
    return indices;
  }

  static std::vector<uint8_t> DiffBitmap(TolvarHandle handle) {
    uint64_t size = 0;
    EXPECT_EQ(GetDiffBitmap(handle, nullptr, &size), TOLVAR_SIZE_RETURNED);
    std::vector<uint8_t> bytes(size);
    EXPECT_EQ(GetDiffBitmap(handle, bytes.data(), &size), TOLVAR_OK);
    return bytes;
  }

  std::shared_ptr<BitMap> changed_;
  std::shared_ptr<FaultSource> older_;
  std::shared_ptr<FaultSource> newer_;
  std::vector<TolvarHandle> handles_;
};

TEST_F(FileExports, AnExcludedHandleWalksFromBlockZeroAfterTheSourceWalkEnded) {
  TolvarHandle source = MakeHandle();
  EXPECT_EQ(Walk(source), (std::vector<uint64_t>{3, 40, 41, 42, 60, 70, 100}));
  const char* paths[] = {"/b.bin", nullptr};
  TolvarHandle excluded = nullptr;
  ASSERT_EQ(ExcludeFiles(source, &excluded, paths), TOLVAR_OK);
  ASSERT_NE(excluded, nullptr);
  handles_.push_back(excluded);
  EXPECT_EQ(Walk(excluded), (std::vector<uint64_t>{3, 40, 41, 42, 100}));
  std::vector<uint8_t> sourceBits = DiffBitmap(source);
  EXPECT_EQ(sourceBits[60 / 8] & (1u << (60 % 8)), 0u);
  EXPECT_EQ(sourceBits[70 / 8] & (1u << (70 % 8)), 0u);
  EXPECT_EQ(sourceBits, DiffBitmap(excluded));
  // The source handle's walk stays ended.
  EXPECT_TRUE(Walk(source).empty());
  auto* made = static_cast<TrackingHandle*>(excluded);
  auto* from = static_cast<TrackingHandle*>(source);
  EXPECT_EQ(made->volumeProvider, nullptr);
  EXPECT_EQ(made->olderVolume, from->olderVolume);
  EXPECT_EQ(made->newerVolume, from->newerVolume);
}

TEST_F(FileExports, OneMissingPathAmongExistingOnesGivesNotFoundAndNoHandle) {
  TolvarHandle source = MakeHandle();
  const char* paths[] = {"/a.bin", "/nothing.bin", "/b.bin", nullptr};
  TolvarHandle excluded = reinterpret_cast<TolvarHandle>(0x1);
  EXPECT_EQ(ExcludeFiles(source, &excluded, paths), TOLVAR_E_NOT_FOUND);
  EXPECT_EQ(excluded, reinterpret_cast<TolvarHandle>(0x1));
  std::vector<uint8_t> expected(changed_->SizeInBytes());
  changed_->CopyOut(expected.data());
  EXPECT_EQ(DiffBitmap(source), expected);
  EXPECT_EQ(Walk(source), (std::vector<uint64_t>{3, 40, 41, 42, 60, 70, 100}));
}

TEST_F(FileExports, AMapWrittenIntoABufferReturnsZeroAndLeavesTheSize) {
  TolvarHandle handle = MakeHandle();
  uint64_t size = 0;
  EXPECT_EQ(GetFileChangesMap(handle, "/b.bin", nullptr, &size), TOLVAR_SIZE_RETURNED);
  EXPECT_EQ(size, 1u);
  unsigned char map[4] = {0, 0x11, 0x22, 0x33};
  size = sizeof map;
  EXPECT_EQ(GetFileChangesMap(handle, "/b.bin", map, &size), TOLVAR_OK);
  EXPECT_EQ(size, sizeof map);
  // Block 0 lies on changed volume block 60, block 2 moved from 62 to 70.
  EXPECT_EQ(map[0], 0x05);
  EXPECT_EQ(map[1], 0x11);
}

TEST_F(FileExports, ASecondFileOperationDoesNotOpenTheViewsAgain) {
  TolvarHandle handle = MakeHandle();
  uint64_t size = 0;
  EXPECT_EQ(GetFileChangesMap(handle, "/a.bin", nullptr, &size), TOLVAR_SIZE_RETURNED);
  EXPECT_EQ(BootReads(*older_), 1);
  EXPECT_EQ(BootReads(*newer_), 1);
  auto* tracking = static_cast<TrackingHandle*>(handle);
  auto olderView = tracking->olderVolume;
  auto newerView = tracking->newerVolume;
  ASSERT_TRUE(olderView && newerView);
  const char* paths[] = {"/a.bin", nullptr};
  TolvarHandle excluded = nullptr;
  EXPECT_EQ(ExcludeFiles(handle, &excluded, paths), TOLVAR_OK);
  handles_.push_back(excluded);
  EXPECT_EQ(GetFileChangesMap(excluded, "/a.bin", nullptr, &size), TOLVAR_SIZE_RETURNED);
  EXPECT_EQ(BootReads(*older_), 1);
  EXPECT_EQ(BootReads(*newer_), 1);
  EXPECT_EQ(tracking->olderVolume, olderView);
  EXPECT_EQ(tracking->newerVolume, newerView);
}

TEST_F(FileExports, NullArgumentsGiveFailedAfterTheViewsAreOpened) {
  TolvarHandle handle = MakeHandle();
  const char* paths[] = {"/a.bin", nullptr};
  TolvarHandle excluded = nullptr;
  uint64_t size = 0;
  EXPECT_EQ(ExcludeFiles(nullptr, &excluded, paths), TOLVAR_E_FAILED);
  EXPECT_EQ(ExcludeFiles(handle, nullptr, paths), TOLVAR_E_FAILED);
  EXPECT_EQ(BootReads(*newer_), 1);
  EXPECT_EQ(ExcludeFiles(handle, &excluded, nullptr), TOLVAR_E_FAILED);
  EXPECT_EQ(excluded, nullptr);
  EXPECT_EQ(GetFileChangesMap(nullptr, "/a.bin", nullptr, &size), TOLVAR_E_FAILED);
  EXPECT_EQ(GetFileChangesMap(handle, nullptr, nullptr, &size), TOLVAR_E_FAILED);
  EXPECT_EQ(GetFileChangesMap(handle, "/a.bin", nullptr, nullptr), TOLVAR_E_FAILED);
  EXPECT_EQ(BootReads(*newer_), 1);
}

TEST_F(FileExports, ABufferTooSmallGivesFailedAndAMissingPathNotFound) {
  TolvarHandle handle = MakeHandle();
  unsigned char map[1] = {0x77};
  uint64_t size = 0;
  EXPECT_EQ(GetFileChangesMap(handle, "/a.bin", map, &size), TOLVAR_E_FAILED);
  EXPECT_EQ(map[0], 0x77);
  EXPECT_EQ(size, 0u);
  size = 1;
  EXPECT_EQ(GetFileChangesMap(handle, "/nothing.bin", map, &size), TOLVAR_E_NOT_FOUND);
  EXPECT_EQ(map[0], 0x77);
}

TEST_F(FileExports, AnUnreadableNewerShadowCopyGivesNotFoundWithTheVolumeMessage) {
  newer_->FailAll(true);
  TolvarHandle handle = MakeHandle();
  DrainErrors();
  const char* paths[] = {"/a.bin", nullptr};
  TolvarHandle excluded = nullptr;
  EXPECT_EQ(ExcludeFiles(handle, &excluded, paths), TOLVAR_E_NOT_FOUND);
  EXPECT_EQ(excluded, nullptr);
  // Opening the older view walks record 0 to its end marker, which the
  // record reader reports; then the newer view fails.
  EXPECT_EQ(DrainErrors(),
            (std::vector<ErrorRecord>{Record(3, "Unexpected attribute type was expected(4096), actual(4294967295)"),
                                      Record(2, "Unexpected oem id")}));
  // The view is tried again on the next call; the older one is kept.
  uint64_t size = 0;
  EXPECT_EQ(GetFileChangesMap(handle, "/a.bin", nullptr, &size), TOLVAR_E_NOT_FOUND);
  EXPECT_EQ(BootReads(*older_), 1);
  EXPECT_EQ(BootReads(*newer_), 2);
}

}  // namespace
