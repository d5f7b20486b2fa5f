// Init, FreeHandle, GetDiffBitmap and GetBlock: argument checks and the
// failures that read the same on every platform.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "common/error_queue.h"
#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/temp_volume_file.h"
#include "tests/fixtures/vss_store_builder.h"
#include "tolvar/tolvar.h"

using tolvarcommon::CreateErrorQueue;
using tolvarcommon::DestroyErrorQueue;
using tolvarcommon::ErrorRecord;
using tolvarcommon::kErrorIo;
using tolvarcommon::ReportError;

namespace {

using tolvartest::DrainErrors;
using tolvartest::Record;
using tolvartest::vss::BuildStore;
using tolvartest::vss::Snap;
using tolvartest::vss::StoreSpec;

// Shadow copy IDs of snapshots 1 and 2 of the built store, in text form.
std::string ShadowCopyId(uint32_t n) { return tolvartest::vss::Id(0x100 + n).ToString(); }

class HandleExports : public testing::Test {
 protected:
  void SetUp() override { DestroyErrorQueue(); }
  void TearDown() override { DestroyErrorQueue(); }

  // A volume file whose store holds snapshots 1 and 2.
  tolvartest::TempVolumeFile& TwoSnapshotVolume() {
    StoreSpec spec;
    spec.snapshots = {Snap(1, 10), Snap(2, 20)};
    built_ = BuildStore(spec);
    file_ = std::make_unique<tolvartest::TempVolumeFile>(*built_.source);
    return *file_;
  }

  tolvartest::vss::BuiltStore built_;
  std::unique_ptr<tolvartest::TempVolumeFile> file_;
};

TEST_F(HandleExports, InitWithNullHandleOutAndBit29ReturnsMinus2AndStillCreatesTheQueue) {
  EXPECT_EQ(Init(nullptr, "x", "a", "b", 4096, TOLVAR_OPTION_ERROR_QUEUE), TOLVAR_E_FAILED);
  ReportError(kErrorIo, "after");
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(1, "after")}));
}

TEST_F(HandleExports, WithoutBit29GetNextErrorReturnsZeroEvenAfterFailures) {
  TolvarHandle handle = nullptr;
  EXPECT_EQ(Init(&handle, "/nonexistent/tolvar-volume", "a", "b", 4096, 0), TOLVAR_E_FAILED);
  EXPECT_EQ(handle, nullptr);
  uint32_t code = 0;
  char buffer[16];
  EXPECT_EQ(GetNextError(&code, buffer, sizeof buffer), 0);
}

TEST_F(HandleExports, InitOnAVolumeThatCannotBeOpenedLeavesCantOpenVolumeNewestAndUnterminated) {
  TolvarHandle handle = nullptr;
  const char* path = "/nonexistent/tolvar-volume";
  EXPECT_EQ(Init(&handle, path, "a", "b", 4096, TOLVAR_OPTION_ERROR_QUEUE), TOLVAR_E_FAILED);
  EXPECT_EQ(handle, nullptr);
  const std::string expected = std::string("Can't open volume ") + path;
  char buffer[128];
  std::memset(buffer, '#', sizeof buffer);
  uint32_t code = 0;
  ASSERT_EQ(GetNextError(&code, buffer, sizeof buffer), 1);
  EXPECT_EQ(code, 1u);
  EXPECT_EQ(std::string(buffer, expected.size()), expected);
  EXPECT_EQ(buffer[expected.size()], '#');
  // Beneath it, the open failure itself.
  ASSERT_EQ(GetNextError(&code, buffer, sizeof buffer), 1);
  EXPECT_EQ(std::string(buffer, 10), "Open file(");
  EXPECT_EQ(GetNextError(&code, buffer, sizeof buffer), 0);
}

TEST_F(HandleExports, InitWithInvalidBlockSizesFailsWithoutAMessage) {
  auto& volume = TwoSnapshotVolume();
  for (uint64_t blockSize : {4095ull, 135168ull, 6000ull, 0ull}) {
    TolvarHandle handle = nullptr;
    EXPECT_EQ(Init(&handle, volume.Path().c_str(), ShadowCopyId(1).c_str(), ShadowCopyId(2).c_str(), blockSize,
                   TOLVAR_OPTION_ERROR_QUEUE),
              TOLVAR_E_FAILED)
        << blockSize;
    EXPECT_EQ(handle, nullptr);
    EXPECT_TRUE(DrainErrors().empty()) << blockSize;
  }
}

TEST_F(HandleExports, InitWithUpperCaseOrBracedIdentifiersFailsWithASequenceMessage) {
  auto& volume = TwoSnapshotVolume();
  std::string upper = ShadowCopyId(1);
  for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  const std::string braced = "{" + ShadowCopyId(1) + "}";
  for (const std::string& from : {upper, braced}) {
    TolvarHandle handle = nullptr;
    EXPECT_EQ(
        Init(&handle, volume.Path().c_str(), from.c_str(), ShadowCopyId(2).c_str(), 4096, TOLVAR_OPTION_ERROR_QUEUE),
        TOLVAR_E_FAILED);
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(DrainErrors(),
              (std::vector<ErrorRecord>{Record(13, "Failed build snapshot sequence. Start snapshot not find"),
                                        Record(12, "Failed to get snapshot sequence")}))
        << from;
  }
}

TEST_F(HandleExports, InitOnAVolumeWithoutAStoreReportsTheEmptyStorage) {
  tolvartest::SparseSource blank(4 * tolvartest::vss::kMiB);
  tolvartest::TempVolumeFile file(blank);
  TolvarHandle handle = nullptr;
  EXPECT_EQ(Init(&handle, file.Path().c_str(), "a", "b", 4096, TOLVAR_OPTION_ERROR_QUEUE), TOLVAR_E_FAILED);
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(12, "Invalid vss volume guid"),
                                                     Record(12, "Invalid storage with empty guid"),
                                                     Record(1, "Can't open volume " + file.Path())}));
}

TEST_F(HandleExports, NullArgumentsAreRefusedWithoutMessages) {
  CreateErrorQueue();
  TolvarHandle handle = nullptr;
  EXPECT_EQ(Init(&handle, nullptr, "a", "b", 4096, 0), TOLVAR_E_FAILED);
  uint64_t size = 0;
  unsigned char byte = 0;
  EXPECT_EQ(GetDiffBitmap(nullptr, &byte, &size), TOLVAR_E_FAILED);
  EXPECT_EQ(GetBlock(nullptr, &byte, &size, nullptr, 0), TOLVAR_E_FAILED);
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(HandleExports, FreeHandleOfNullDoesNothing) { FreeHandle(nullptr); }

TEST_F(HandleExports, ExtendedErrorsAvailableAndLoggingAvailableAfterInit) {
  Init(nullptr, "x", "a", "b", 4096, TOLVAR_OPTION_ERROR_QUEUE);
  EXPECT_EQ(ExtendedErrorsAvailable(), 1);
  EXPECT_EQ(LoggingAvailable(), 0);
}

}  // namespace
