// The three exports of the error queue.
#include <algorithm>
#include <cstring>

#include "common/error_queue.h"
#include "tolvar/tolvar.h"

using tolvarcommon::ErrorRecord;
using tolvarcommon::PopError;

extern "C" int32_t GetNextError(uint32_t* code_out, char* buffer, uint64_t bufferSize) {
  ErrorRecord record;
  if (!PopError(&record)) return 0;
  *code_out = record.code;
  uint64_t count = std::min<uint64_t>(record.message.size(), bufferSize);
  if (count != 0) std::memcpy(buffer, record.message.data(), static_cast<std::size_t>(count));
  return 1;
}

extern "C" int32_t ExtendedErrorsAvailable() { return 1; }

extern "C" int32_t LoggingAvailable() { return 0; }
