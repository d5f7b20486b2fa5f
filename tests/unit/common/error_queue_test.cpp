#include "common/error_queue.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "tests/fixtures/error_queue_test.h"
#include "tolvar/tolvar.h"

using tolvarcommon::CreateErrorQueue;
using tolvarcommon::DestroyErrorQueue;
using tolvarcommon::ErrorRecord;
using tolvarcommon::kErrorInvalid;
using tolvarcommon::kErrorIo;
using tolvarcommon::kErrorNoEnd;
using tolvarcommon::kErrorNoStart;
using tolvarcommon::kErrorStore;
using tolvarcommon::Low32;
using tolvarcommon::ReportCodedError;
using tolvarcommon::ReportError;

namespace {

using tolvartest::DrainErrors;
using tolvartest::QueueTest;
using tolvartest::Record;

class NoQueueTest : public testing::Test {
 protected:
  void SetUp() override { DestroyErrorQueue(); }
};

TEST_F(NoQueueTest, ReportsWithoutQueueAreDroppedAndGetNextErrorReturnsZero) {
  ReportError(kErrorIo, "Can't open volume %s", "x");
  ReportCodedError(kErrorStore, "Bitmap init failed");
  uint32_t code = 99;
  char buffer[8] = {'q'};
  EXPECT_EQ(GetNextError(&code, buffer, sizeof buffer), 0);
  EXPECT_EQ(code, 99u);
  EXPECT_EQ(buffer[0], 'q');
}

// ReportError does not even format when there is no queue: a format whose
// arguments would be invalid to read is never touched.
TEST_F(NoQueueTest, ReportErrorDoesNotFormatWithoutQueue) {
  ReportError(kErrorIo, "%s", reinterpret_cast<const char*>(static_cast<uintptr_t>(1)));
  CreateErrorQueue();
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(NoQueueTest, CreatingTheQueueTwiceKeepsItsRecords) {
  CreateErrorQueue();
  ReportError(kErrorIo, "Failed to read snapshot");
  CreateErrorQueue();
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(1, "Failed to read snapshot")}));
}

TEST_F(QueueTest, TwoReportsAreReadNewestFirstThenNothing) {
  ReportError(kErrorIo, "A");
  ReportCodedError(kErrorStore, "B");
  uint32_t code = 0;
  char buffer[4] = {};
  ASSERT_EQ(GetNextError(&code, buffer, sizeof buffer), 1);
  EXPECT_EQ(code, 12u);
  EXPECT_EQ(buffer[0], 'B');
  ASSERT_EQ(GetNextError(&code, buffer, sizeof buffer), 1);
  EXPECT_EQ(code, 1u);
  EXPECT_EQ(buffer[0], 'A');
  EXPECT_EQ(GetNextError(&code, buffer, sizeof buffer), 0);
}

TEST_F(QueueTest, GetNextErrorWritesNoTerminatingNul) {
  ReportError(kErrorIo, "Can't open volume %s", "\\\\.\\C:");
  const std::string expected = "Can't open volume \\\\.\\C:";
  char buffer[64];
  std::memset(buffer, '#', sizeof buffer);
  uint32_t code = 0;
  ASSERT_EQ(GetNextError(&code, buffer, sizeof buffer), 1);
  EXPECT_EQ(code, 1u);
  EXPECT_EQ(std::string(buffer, expected.size()), expected);
  EXPECT_EQ(buffer[expected.size()], '#');
}

TEST_F(QueueTest, FiveByteBufferGetsFirstFiveBytesAndTheRecordIsGone) {
  ReportError(kErrorInvalid, "Invalid handle");
  ReportError(kErrorIo, "Failed to read snapshot");
  char buffer[8];
  std::memset(buffer, '#', sizeof buffer);
  uint32_t code = 0;
  ASSERT_EQ(GetNextError(&code, buffer, 5), 1);
  EXPECT_EQ(std::string(buffer, 6), "Faile#");
  ASSERT_EQ(GetNextError(&code, buffer, sizeof buffer), 1);
  EXPECT_EQ(code, 2u);
  EXPECT_EQ(std::string(buffer, 8), "Invalid ");
  EXPECT_EQ(GetNextError(&code, buffer, sizeof buffer), 0);
}

TEST_F(QueueTest, ZeroByteBufferTakesTheRecordAndWritesNothing) {
  ReportError(kErrorIo, "Failed to read page data.");
  uint32_t code = 0;
  EXPECT_EQ(GetNextError(&code, nullptr, 0), 1);
  EXPECT_EQ(code, 1u);
  EXPECT_EQ(GetNextError(&code, nullptr, 0), 0);
}

TEST_F(QueueTest, MessageLongerThanLimitIsCutTo10239Characters) {
  const std::string longText(20000, 'z');
  ReportError(kErrorIo, "Can't open volume %s", longText.c_str());
  ReportCodedError(kErrorStore, "%s", longText.c_str());
  const auto records = DrainErrors();
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].message.size(), 10239u);
  EXPECT_EQ(records[0].message.substr(0, 18), "Can't open volume ");
  EXPECT_EQ(records[1].message, std::string(10239, 'z'));
}

TEST_F(QueueTest, MessageOfExactly10239CharactersIsKeptWhole) {
  const std::string text(10239, 'k');
  ReportError(kErrorIo, "%s", text.c_str());
  EXPECT_EQ(DrainErrors()[0].message, text);
}

TEST_F(QueueTest, CodedReportsCarryTheirCodes) {
  ReportCodedError(kErrorNoStart, "Failed build snapshot sequence. Start snapshot not find");
  ReportCodedError(kErrorNoEnd, "Failed build snapshot sequence. End snapshot not find");
  EXPECT_EQ(DrainErrors(),
            (std::vector<ErrorRecord>{Record(13, "Failed build snapshot sequence. Start snapshot not find"),
                                      Record(14, "Failed build snapshot sequence. End snapshot not find")}));
}

TEST_F(QueueTest, SixtyFourBitValueShowsItsLow32Bits) {
  const uint64_t position = 0x123456789ABCull;
  ReportError(kErrorIo, "Failed read cluster, position %lu", Low32(position));
  ReportCodedError(kErrorStore, "Unexpected vss record native offset. Actual(%lu), was expected(%lu)",
                   Low32(0x100000000ull), Low32(16384));
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{
                               Record(1, "Failed read cluster, position " + std::to_string(0x56789ABCu)),
                               Record(12, "Unexpected vss record native offset. Actual(0), was expected(16384)")}));
}

TEST_F(QueueTest, MessageIsCopiedUpToItsFirstNul) {
  ReportError(kErrorIo, "abc%cdef", 0);
  EXPECT_EQ(DrainErrors()[0].message, "abc");
}

TEST(QueueExports, ExtendedErrorsAvailableAndLoggingAvailableWithoutQueue) {
  DestroyErrorQueue();
  EXPECT_EQ(ExtendedErrorsAvailable(), 1);
  EXPECT_EQ(LoggingAvailable(), 0);
}

TEST_F(QueueTest, ExtendedErrorsAvailableAndLoggingAvailableWithQueue) {
  EXPECT_EQ(ExtendedErrorsAvailable(), 1);
  EXPECT_EQ(LoggingAvailable(), 0);
}

}  // namespace
