#include "api/worker_status.h"

#include "common/error_queue.h"
#include "core/block_processor.h"
#include "tolvar/tolvar.h"

namespace tolvarapi {

using tolvarcore::WorkerResult;

// The queue's codes and the option bits are the header's.
static_assert(tolvarcommon::kErrorIo == TOLVAR_ERROR_IO, "queue code 1");
static_assert(tolvarcommon::kErrorInvalid == TOLVAR_ERROR_INVALID, "queue code 2");
static_assert(tolvarcommon::kErrorFormat == TOLVAR_ERROR_FORMAT, "queue code 3");
static_assert(tolvarcommon::kErrorStore == TOLVAR_ERROR_STORE, "queue code 12");
static_assert(tolvarcommon::kErrorNoStart == TOLVAR_ERROR_NO_START, "queue code 13");
static_assert(tolvarcommon::kErrorNoEnd == TOLVAR_ERROR_NO_END, "queue code 14");
static_assert(tolvarcore::BlockProcessor::kNewestPassFlag == TOLVAR_OPTION_NEWEST_PASS, "option bit 0");

int32_t HandleStatus(WorkerResult result) {
  switch (result) {
    case WorkerResult::kOk:
      return TOLVAR_OK;
    case WorkerResult::kFailed:
      return TOLVAR_E_RESERVED;
    default:
      return TOLVAR_E_FAILED;
  }
}

int32_t BlockStatus(WorkerResult result) {
  switch (result) {
    case WorkerResult::kOk:
      return TOLVAR_OK;
    case WorkerResult::kEnd:
      return TOLVAR_END_OF_BLOCKS;
    default:
      return TOLVAR_E_BLOCK;
  }
}

int32_t FileStatus(WorkerResult result, bool sizeQuery) {
  switch (result) {
    case WorkerResult::kOk:
      return sizeQuery ? TOLVAR_SIZE_RETURNED : TOLVAR_OK;
    case WorkerResult::kBadArgument:
      return TOLVAR_E_FAILED;
    case WorkerResult::kNoView:
    case WorkerResult::kNotFound:
      return TOLVAR_E_NOT_FOUND;
    default:
      return TOLVAR_OK;
  }
}

}  // namespace tolvarapi
