// What the library's workers (the block processor, the file change
// tracker, the handle open) return: one fixed vocabulary, which the exports
// map to their status codes in one place (api/worker_status.h).
#ifndef TOLVAR_CORE_WORKER_RESULT_H_
#define TOLVAR_CORE_WORKER_RESULT_H_

#include <cstdint>

namespace tolvarcore {

enum class WorkerResult : int32_t {
  kOk = 0,            // done; for the block walk, a block was read
  kEnd = -1,          // the block walk has no further block
  kFailed = -2,       // failed; no current worker gives it, its status is reserved
  kBadArgument = -3,  // a bad argument, a buffer too small, or a source that failed
  kNoView = -4,       // the newer shadow copy has no NTFS view
  kNotFound = -5,     // a path was not found
};

}  // namespace tolvarcore

#endif  // TOLVAR_CORE_WORKER_RESULT_H_
