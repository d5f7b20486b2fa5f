#include "cli/error_report.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/fixtures/error_queue_test.h"

using tolvarcommon::DestroyErrorQueue;
using tolvarcommon::kErrorInvalid;
using tolvarcommon::kErrorIo;
using tolvarcommon::kErrorNoEnd;
using tolvarcommon::kErrorStore;
using tolvarcommon::kMaxMessageLength;
using tolvarcommon::ReportCodedError;
using tolvarcommon::ReportError;

namespace tolvarcli {
namespace {

using Records = std::vector<std::pair<uint32_t, std::string>>;

class ErrorReportTest : public tolvartest::QueueTest {};

TEST_F(ErrorReportTest, DrainGivesTheRecordsOldestFirstAndEmptiesTheQueue) {
  ReportError(kErrorIo, "Can't open volume %s", "/dev/x");
  ReportCodedError(kErrorNoEnd, "Failed build snapshot sequence. End snapshot not find");
  ReportCodedError(kErrorStore, "Failed to get snapshot sequence");
  EXPECT_EQ(ErrorReport::DrainQueue(), (Records{{1, "Can't open volume /dev/x"},
                                                {14, "Failed build snapshot sequence. End snapshot not find"},
                                                {12, "Failed to get snapshot sequence"}}));
  EXPECT_TRUE(tolvartest::DrainErrors().empty());
}

TEST_F(ErrorReportTest, LongestMessageComesBackWhole) {
  const std::string text(kMaxMessageLength, 'm');
  ReportError(kErrorInvalid, "%s", text.c_str());
  EXPECT_EQ(ErrorReport::DrainQueue(), (Records{{2, text}}));
}

TEST_F(ErrorReportTest, PrintFailureListsRecordsThenTheStatus) {
  ReportError(kErrorIo, "Open file(%s) failed - %d.", "/a", 2);
  ReportError(kErrorIo, "Can't open volume %s", "/a");
  testing::internal::CaptureStderr();
  ErrorReport::PrintFailure("Init", -2);
  std::string printed = testing::internal::GetCapturedStderr();
  // Windows text streams end lines with CR LF.
  printed.erase(std::remove(printed.begin(), printed.end(), '\r'), printed.end());
  EXPECT_EQ(printed,
            "tolvar: error 1: Open file(/a) failed - 2.\n"
            "tolvar: error 1: Can't open volume /a\n"
            "tolvar: Init returned -2\n");
}

TEST(ErrorReportWithoutQueueTest, NothingToDrain) {
  DestroyErrorQueue();
  EXPECT_TRUE(ErrorReport::DrainQueue().empty());
}

}  // namespace
}  // namespace tolvarcli
