// Walks the changed blocks with GetBlock and writes them into an increment
// file (format in increment_header.h), under a temporary name until done.
#include "cli/backup_command.h"

#include <cstdio>

#include "cli/error_report.h"
#include "cli/exit_code.h"
#include "cli/increment_writer.h"
#include "cli/progress_meter.h"
#include "cli/tracking_session.h"
#include "tolvar/tolvar.h"

namespace tolvarcli {

namespace {

constexpr uint64_t kDefaultBlockSize = 65536;

bool BitIsSet(const std::vector<uint8_t>& bitmap, uint64_t index) {
  return ((bitmap[index / 8] >> (index % 8)) & 1) != 0;
}

// A walk that ends with a failed read is complete when the block it failed
// on lies wholly past the end of the volume: nothing of the volume is lost.
// That block is the first set bit after the last one served whose block
// does not fit inside the volume. Returns false when it straddles the end.
bool FailedOnlyPastTheEnd(const std::vector<uint8_t>& bitmap, uint64_t blockSize, uint64_t volumeSize, bool served,
                          uint64_t lastServed) {
  const uint64_t bits = bitmap.size() * 8;
  for (uint64_t i = served ? lastServed + 1 : 0; i < bits; ++i) {
    if (!BitIsSet(bitmap, i)) continue;
    const uint64_t start = i * blockSize;
    if (start + blockSize <= volumeSize) continue;
    return start >= volumeSize;
  }
  return false;
}

// Walks GetBlock to its end, appending each block to writer, with progress.
// Returns the exit code: the walk's failure is printed with the queue.
int WalkInto(TrackingSession& session, const std::vector<uint8_t>& bitmap, uint64_t volumeSize, bool compare,
             IncrementWriter* writer) {
  const uint64_t blockSize = session.BlockSize();
  ProgressMeter progress(CountSetBits(bitmap), blockSize);
  std::vector<uint8_t> block(blockSize);
  uint64_t index = 0;
  uint64_t lastServed = 0;
  bool served = false;
  int32_t status = 0;
  while ((status = session.NextBlock(&block, &index, compare)) == TOLVAR_OK) {
    if (!writer->AddBlock(index, block)) {
      std::fprintf(stderr, "tolvar: cannot write %s\n", writer->WritingName().c_str());
      return kExitFile;
    }
    lastServed = index;
    served = true;
    progress.Advance();
  }
  progress.Finish();
  const bool complete =
      status == TOLVAR_END_OF_BLOCKS ||
      (status == TOLVAR_E_BLOCK && FailedOnlyPastTheEnd(bitmap, blockSize, volumeSize, served, lastServed));
  if (!complete) {
    ErrorReport::PrintFailure("GetBlock", status);
    return kExitLibrary;
  }
  ErrorReport::DrainQueue();  // a read past the end may have left a message: expected, not shown
  return kExitOk;
}

}  // namespace

CommandLine::Grammar BackupCommand::Grammar() {
  return {4, {"--compare", "--extra-pass"}, {"--block-size", "--exclude"}};
}

int BackupCommand::Run(const CommandLine& arguments) {
  const std::string& volume = arguments.Positional(0);
  const std::string& from = arguments.Positional(1);
  const std::string& to = arguments.Positional(2);
  const std::string& out = arguments.Positional(3);
  uint64_t blockSize = 0;
  if (!arguments.BlockSize(kDefaultBlockSize, &blockSize)) return kExitUsage;
  TrackingSession session;
  std::vector<uint8_t> bitmap;
  if (!session.OpenChangedBlocks(volume, from, to, blockSize, arguments.Has("--extra-pass"),
                                 arguments.Values("--exclude"), &bitmap)) {
    return kExitLibrary;
  }

  IncrementHeader header;
  header.volumeSize = VolumeSize(volume);
  header.blockSize = blockSize;
  header.bitmapLength = bitmap.size();
  header.from = from;
  header.to = to;
  IncrementWriter writer(out);
  if (!writer.Begin(header, bitmap)) {
    std::fprintf(stderr, "tolvar: cannot write %s\n", writer.WritingName().c_str());
    return kExitFile;
  }

  const int walked = WalkInto(session, bitmap, header.volumeSize, arguments.Has("--compare"), &writer);
  if (walked != kExitOk) return walked;
  if (!writer.Commit()) {
    std::fprintf(stderr, "tolvar: cannot write %s\n", writer.WritingName().c_str());
    return kExitFile;
  }
  // With the increment on standard output, the summary goes to stderr.
  std::fprintf(writer.IsStandardOutput() ? stderr : stdout, "%llu blocks of %llu bytes written to %s\n",
               static_cast<unsigned long long>(writer.BlockCount()), static_cast<unsigned long long>(blockSize),
               out.c_str());
  return kExitOk;
}

}  // namespace tolvarcli
