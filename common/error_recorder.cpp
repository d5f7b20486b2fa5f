#include "common/error_recorder.h"

namespace tolvarcommon {

ErrorRecorder* ErrorRecorder::innermost_ = nullptr;

ErrorRecorder::ErrorRecorder() : outer_(innermost_) { innermost_ = this; }

ErrorRecorder::~ErrorRecorder() { innermost_ = outer_; }

void ErrorRecorder::Notify(uint32_t code, const char* text) {
  for (ErrorRecorder* r = innermost_; r != nullptr; r = r->outer_) r->records_.push_back(ErrorRecord{code, text});
}

bool ErrorRecorder::ReadFailed() const {
  for (const ErrorRecord& record : records_) {
    if (record.code == kErrorIo) return true;
  }
  return false;
}

}  // namespace tolvarcommon
