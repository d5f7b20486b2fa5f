// The process-wide queue of numbered failure messages.
//
// Every part of the library that fails puts a printf-formatted message on
// this queue and returns its own failure value. The queue exists only after
// CreateErrorQueue (Init with the error-queue option); until then every
// report is dropped. Records are read back newest first.
#ifndef TOLVAR_COMMON_ERROR_QUEUE_H_
#define TOLVAR_COMMON_ERROR_QUEUE_H_

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#if defined(__GNUC__)
#define TOLVAR_PRINTF_FORMAT(fmt, args) __attribute__((format(printf, fmt, args)))
#else
#define TOLVAR_PRINTF_FORMAT(fmt, args)
#endif

namespace tolvarcommon {

// The codes that reporting sites use. ReportError takes the first three
// (the NTFS parser calls them levels), ReportCodedError the others.
enum ErrorCode : uint32_t {
  kErrorIo = 1,        // a read or an open failed
  kErrorInvalid = 2,   // input of the wrong kind
  kErrorFormat = 3,    // an on-disk structure of the wrong type
  kErrorStore = 12,    // the shadow-copy store is inconsistent
  kErrorNoStart = 13,  // the sequence's start snapshot is missing
  kErrorNoEnd = 14,    // the sequence's end snapshot is missing
};

// One entry of the queue.
struct ErrorRecord {
  uint32_t code = 0;    // number given by the reporting site
  std::string message;  // the formatted text, at most kMaxMessageLength characters
};

using ErrorQueue = std::deque<ErrorRecord>;

// Each reporting function formats into its own buffer of this many bytes,
// so a message keeps at most one byte less.
constexpr std::size_t kFormatBufferSize = 10240;
constexpr std::size_t kMaxMessageLength = kFormatBufferSize - 1;

// Creates the empty queue unless it exists already.
void CreateErrorQueue();

// Takes the newest record off the queue. Returns false, leaving *record
// alone, when there is no queue or it is empty.
bool PopError(ErrorRecord* record);

// Appends a record when the queue exists. Does not format otherwise.
void ReportError(uint32_t code, const char* format, ...) TOLVAR_PRINTF_FORMAT(2, 3);

// Formats the message in any case, then appends it when the queue exists.
void ReportCodedError(uint32_t code, const char* format, ...) TOLVAR_PRINTF_FORMAT(2, 3);

// Reports records again, oldest first, exactly as their reporting sites
// did: each is appended when the queue exists. For results that are reused
// instead of worked out again (see ErrorRecorder).
void ReplayErrors(const std::vector<ErrorRecord>& records);

// What a "%lu" conversion shows of a 64-bit position or size: its low 32
// bits, the same on every platform whatever the width of long.
inline unsigned long Low32(uint64_t value) { return static_cast<unsigned long>(static_cast<uint32_t>(value)); }

// Releases the queue, as the library's static clean-up does at unload.
// Tests use it to start from a process without a queue.
void DestroyErrorQueue();

// Sets the queue aside for as long as it lives: reports made meanwhile are
// dropped, neither queued nor handed to a recorder (ErrorRecorder), and the
// queue comes back with its records unchanged when the guard ends. For work
// whose messages must not reach the caller (on POSIX, the snapshot
// properties and the stores read for rebuilt shadow copies).
class ScopedErrorQueueSuspension {
 public:
  ScopedErrorQueueSuspension();
  ~ScopedErrorQueueSuspension();
  ScopedErrorQueueSuspension(const ScopedErrorQueueSuspension&) = delete;
  ScopedErrorQueueSuspension& operator=(const ScopedErrorQueueSuspension&) = delete;

 private:
  std::unique_ptr<ErrorQueue> saved_;  // the queue set aside, or none
};

}  // namespace tolvarcommon

#endif  // TOLVAR_COMMON_ERROR_QUEUE_H_
