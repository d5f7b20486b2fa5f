#include "common/error_queue.h"

#include <cstdarg>
#include <cstdio>
#include <memory>

#include "common/error_recorder.h"

namespace tolvarcommon {

namespace {

// Null until the first CreateErrorQueue; released by the static clean-up.
std::unique_ptr<ErrorQueue> g_queue;

// How many ScopedErrorQueueSuspension guards live; while any does, nothing
// reported goes anywhere.
int g_suspensions = 0;

// One format buffer per reporting function.
char g_reportBuffer[kFormatBufferSize];
char g_codedReportBuffer[kFormatBufferSize];

// Bounded formatting: keeps at most kMaxMessageLength characters and always
// NUL-terminates.
void FormatInto(char* buffer, const char* format, va_list args) {
  buffer[0] = '\0';
  std::vsnprintf(buffer, kFormatBufferSize, format, args);
  buffer[kMaxMessageLength] = '\0';
}

// Hands the message to any recorder, then appends it when the queue exists.
void Deliver(uint32_t code, const char* text) {
  if (g_suspensions > 0) return;
  if (ErrorRecorder::Recording()) ErrorRecorder::Notify(code, text);
  if (g_queue) g_queue->push_back(ErrorRecord{code, std::string(text)});
}

}  // namespace

void CreateErrorQueue() {
  if (!g_queue) g_queue = std::make_unique<ErrorQueue>();
}

bool PopError(ErrorRecord* record) {
  if (!g_queue || g_queue->empty()) return false;
  *record = std::move(g_queue->back());
  g_queue->pop_back();
  return true;
}

void ReportError(uint32_t code, const char* format, ...) {
  if (g_suspensions > 0 || (!g_queue && !ErrorRecorder::Recording())) return;
  va_list args;
  va_start(args, format);
  FormatInto(g_reportBuffer, format, args);
  va_end(args);
  Deliver(code, g_reportBuffer);
}

void ReportCodedError(uint32_t code, const char* format, ...) {
  va_list args;
  va_start(args, format);
  FormatInto(g_codedReportBuffer, format, args);
  va_end(args);
  Deliver(code, g_codedReportBuffer);
}

void ReplayErrors(const std::vector<ErrorRecord>& records) {
  for (const ErrorRecord& record : records) Deliver(record.code, record.message.c_str());
}

void DestroyErrorQueue() { g_queue.reset(); }

ScopedErrorQueueSuspension::ScopedErrorQueueSuspension() : saved_(std::move(g_queue)) { ++g_suspensions; }

ScopedErrorQueueSuspension::~ScopedErrorQueueSuspension() {
  --g_suspensions;
  g_queue = std::move(saved_);
}

}  // namespace tolvarcommon
