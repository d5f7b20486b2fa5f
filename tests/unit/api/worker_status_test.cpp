// The exports' status for each worker result, as the mapping tables give it.
#include "api/worker_status.h"

#include <gtest/gtest.h>

#include "tolvar/tolvar.h"

namespace {

using tolvarapi::BlockStatus;
using tolvarapi::FileStatus;
using tolvarapi::HandleStatus;
using tolvarcore::WorkerResult;

TEST(WorkerStatus, WorkerResultsKeepTheirNumbers) {
  EXPECT_EQ(static_cast<int32_t>(WorkerResult::kOk), 0);
  EXPECT_EQ(static_cast<int32_t>(WorkerResult::kEnd), -1);
  EXPECT_EQ(static_cast<int32_t>(WorkerResult::kFailed), -2);
  EXPECT_EQ(static_cast<int32_t>(WorkerResult::kBadArgument), -3);
  EXPECT_EQ(static_cast<int32_t>(WorkerResult::kNoView), -4);
  EXPECT_EQ(static_cast<int32_t>(WorkerResult::kNotFound), -5);
}

TEST(WorkerStatus, HandleOpenMapsFailedToReservedAndTheRestToFailed) {
  EXPECT_EQ(HandleStatus(WorkerResult::kOk), TOLVAR_OK);
  EXPECT_EQ(HandleStatus(WorkerResult::kBadArgument), TOLVAR_E_FAILED);
  EXPECT_EQ(HandleStatus(WorkerResult::kFailed), TOLVAR_E_RESERVED);
}

TEST(WorkerStatus, BlockWalkMapsEndToEndOfBlocksAndTheRestToBlockFailure) {
  EXPECT_EQ(BlockStatus(WorkerResult::kOk), TOLVAR_OK);
  EXPECT_EQ(BlockStatus(WorkerResult::kEnd), TOLVAR_END_OF_BLOCKS);
  EXPECT_EQ(BlockStatus(WorkerResult::kBadArgument), TOLVAR_E_BLOCK);
}

TEST(WorkerStatus, FileWorkersMapNoViewAndNotFoundToNotFound) {
  EXPECT_EQ(FileStatus(WorkerResult::kOk, false), TOLVAR_OK);
  EXPECT_EQ(FileStatus(WorkerResult::kOk, true), TOLVAR_SIZE_RETURNED);
  EXPECT_EQ(FileStatus(WorkerResult::kBadArgument, false), TOLVAR_E_FAILED);
  EXPECT_EQ(FileStatus(WorkerResult::kNoView, false), TOLVAR_E_NOT_FOUND);
  EXPECT_EQ(FileStatus(WorkerResult::kNotFound, true), TOLVAR_E_NOT_FOUND);
}

TEST(WorkerStatus, FileWorkersMapAnyOtherResultToSuccess) {
  EXPECT_EQ(FileStatus(WorkerResult::kEnd, false), TOLVAR_OK);
  EXPECT_EQ(FileStatus(WorkerResult::kFailed, true), TOLVAR_OK);
}

}  // namespace
