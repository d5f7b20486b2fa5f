#include <gtest/gtest.h>

#include "common/error_queue.h"
#include "common/error_recorder.h"
#include "tests/fixtures/error_queue_test.h"

using tolvarcommon::DestroyErrorQueue;
using tolvarcommon::ErrorRecord;
using tolvarcommon::ErrorRecorder;
using tolvarcommon::PopError;
using tolvarcommon::ReportCodedError;
using tolvarcommon::ReportError;
using tolvarcommon::ScopedErrorQueueSuspension;

namespace {

using tolvartest::DrainErrors;
using tolvartest::Record;

using QueueSuspensionTest = tolvartest::QueueTest;

TEST_F(QueueSuspensionTest, ReportsWhileSuspendedAreDroppedAndTheQueueComesBack) {
  ReportError(1, "kept");
  {
    ScopedErrorQueueSuspension quiet;
    ReportError(1, "dropped");
    ReportCodedError(12, "dropped %d", 2);
    ErrorRecord record;
    EXPECT_FALSE(PopError(&record));
  }
  ReportError(2, "after");
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(1, "kept"), Record(2, "after")}));
}

TEST(QueueSuspension, WithoutQueueThereIsStillNoneAfterwards) {
  DestroyErrorQueue();
  { ScopedErrorQueueSuspension quiet; }
  ReportError(1, "dropped");
  ErrorRecord record;
  EXPECT_FALSE(PopError(&record));
}

TEST_F(QueueSuspensionTest, ReportsWhileSuspendedReachNoRecorderEither) {
  ErrorRecorder recorder;
  ReportError(1, "recorded");
  {
    ScopedErrorQueueSuspension quiet;
    ReportError(1, "dropped");
    ReportCodedError(12, "dropped %d", 2);
  }
  EXPECT_EQ(recorder.Records(), (std::vector<ErrorRecord>{Record(1, "recorded")}));
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(1, "recorded")}));
}

}  // namespace
