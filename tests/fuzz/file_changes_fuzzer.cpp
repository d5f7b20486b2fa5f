// The file exports on a fuzzed volume (see file_exports_workload.h), on a
// tracking handle whose block processor holds the two shadow copies in
// memory (see file_changes_input.h and file_changes_handle.h), each behind
// a 16 KiB line cache as the volume provider opens them. The changed-block
// bitmap marks the blocks that differ between them, as the store would.
//
// The handle is built without Init: Init's store reading is the work of
// the store_init target, and leaving it out makes each input run many
// times faster, all of it in the exports' own code, the NTFS views they
// open, the path lookup, the version comparison and the file processors.
// store_files runs the same work on handles that Init made from a store.
#include <cstdint>
#include <cstdio>
#include <memory>

#include "common/error_queue.h"
#include "tests/fuzz/file_changes_handle.h"
#include "tests/fuzz/file_changes_input.h"
#include "tests/fuzz/file_exports_workload.h"

using tolvarcommon::CreateErrorQueue;
using tolvarcommon::DestroyErrorQueue;
using tolvarcommon::ErrorRecord;
using tolvarcommon::PopError;

namespace {

using tolvarfuzz::FileChangesHandle;
using tolvarfuzz::FileChangesInput;

void Run(const FileChangesInput& input) {
  const bool invert = (input.options & FileChangesInput::kInvertChanges) != 0;
  FileChangesHandle::Run(input.blockSize, input.options,
                         FileChangesHandle::ChangedBlocks(*input.older, *input.newer, input.blockSize, invert),
                         input.older, input.newer);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FileChangesInput input = FileChangesInput::Decode(data, size);
  // The messages go to a queue, drained after each input as a caller would.
  CreateErrorQueue();
  Run(input);
  ErrorRecord record;
  while (PopError(&record)) {
    // Every record walk ends on the end marker's message; the rest is news.
    if (tolvarfuzz::FileExportsWorkload::Tracing() &&
        record.message != "Unexpected attribute type was expected(4096), actual(4294967295)") {
      std::fprintf(stderr, "message %u: %s\n", record.code, record.message.c_str());
    }
  }
  DestroyErrorQueue();
  return 0;
}
