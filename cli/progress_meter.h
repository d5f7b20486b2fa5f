// The backup's progress line on stderr: blocks, bytes, rate and time left,
// redrawn at most a few times a second, and only when stderr is a terminal.
#ifndef TOLVAR_CLI_PROGRESS_METER_H_
#define TOLVAR_CLI_PROGRESS_METER_H_

#include <chrono>
#include <cstdint>

namespace tolvarcli {

class ProgressMeter {
 public:
  // totalBlocks: the walk's upper bound (set bits); blockSize in bytes.
  ProgressMeter(uint64_t totalBlocks, uint64_t blockSize);

  // One more block written; redraws when the last draw is old enough.
  void Advance();

  // Draws the final line and ends it.
  void Finish();

 private:
  using Clock = std::chrono::steady_clock;

  void Draw();

  bool enabled_;                // stderr is a terminal
  uint64_t totalBlocks_;        // set bits of the bitmap
  uint64_t blockSize_;          // bytes per block
  uint64_t done_ = 0;           // blocks written so far
  Clock::time_point start_;     // when the walk began
  Clock::time_point lastDraw_;  // when the line was last drawn
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_PROGRESS_METER_H_
