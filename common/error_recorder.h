// Records the messages reported while it lives, whether or not the error
// queue exists, so that a result worked out once can be used again with
// the same messages reported again, in the same order, as redoing the work
// would report them.
#ifndef TOLVAR_COMMON_ERROR_RECORDER_H_
#define TOLVAR_COMMON_ERROR_RECORDER_H_

#include <cstdint>
#include <vector>

#include "common/error_queue.h"

namespace tolvarcommon {

class ErrorRecorder {
 public:
  // Starts recording; a recorder made while another records sees the
  // same messages as that one.
  ErrorRecorder();
  // Stops recording. Recorders end in the reverse order of their making.
  ~ErrorRecorder();
  ErrorRecorder(const ErrorRecorder&) = delete;
  ErrorRecorder& operator=(const ErrorRecorder&) = delete;

  // The messages reported since construction, oldest first.
  const std::vector<ErrorRecord>& Records() const { return records_; }
  // Whether a device read failed meanwhile (a message of code kErrorIo).
  // A read that failed may go otherwise when tried again, so work that met
  // one is redone rather than reused.
  bool ReadFailed() const;

  // Whether any recorder is recording: the reporting functions then format
  // every message, even without a queue.
  static bool Recording() { return innermost_ != nullptr; }
  // Hands a reported message to every recorder that is recording.
  static void Notify(uint32_t code, const char* text);

 private:
  static ErrorRecorder* innermost_;  // the recorder made last, or null

  ErrorRecorder* outer_;              // the recorder that was innermost before this one
  std::vector<ErrorRecord> records_;  // what was reported meanwhile
};

}  // namespace tolvarcommon

#endif  // TOLVAR_COMMON_ERROR_RECORDER_H_
