// The one place where worker results become the exports' status codes, and
// where the library's own numbers are tied to those of the public header.
#ifndef TOLVAR_API_WORKER_STATUS_H_
#define TOLVAR_API_WORKER_STATUS_H_

#include <cstdint>

#include "core/worker_result.h"

namespace tolvarapi {

// Init and GetDiffBitmap: kOk -> TOLVAR_OK, kFailed -> TOLVAR_E_RESERVED,
// anything else -> TOLVAR_E_FAILED.
int32_t HandleStatus(tolvarcore::WorkerResult result);

// GetBlock: kOk (a block) -> TOLVAR_OK, kEnd -> TOLVAR_END_OF_BLOCKS,
// anything else -> TOLVAR_E_BLOCK.
int32_t BlockStatus(tolvarcore::WorkerResult result);

// ExcludeFiles and GetFileChangesMap: kOk -> TOLVAR_OK, or
// TOLVAR_SIZE_RETURNED when sizeQuery (a null buffer asked for the size);
// kBadArgument -> TOLVAR_E_FAILED; kNoView and kNotFound ->
// TOLVAR_E_NOT_FOUND; anything else -> TOLVAR_OK.
int32_t FileStatus(tolvarcore::WorkerResult result, bool sizeQuery);

}  // namespace tolvarapi

#endif  // TOLVAR_API_WORKER_STATUS_H_
