#include "cli/progress_meter.h"

#include <cstdio>

#include "cli/terminal.h"

namespace tolvarcli {

namespace {

constexpr auto kRedrawInterval = std::chrono::milliseconds(200);
constexpr double kMebibyte = 1024.0 * 1024.0;

}  // namespace

ProgressMeter::ProgressMeter(uint64_t totalBlocks, uint64_t blockSize)
    : enabled_(IsTerminal(stderr)),
      totalBlocks_(totalBlocks),
      blockSize_(blockSize),
      start_(Clock::now()),
      lastDraw_(start_) {}

void ProgressMeter::Advance() {
  ++done_;
  if (!enabled_) return;
  const Clock::time_point now = Clock::now();
  if (now - lastDraw_ < kRedrawInterval) return;
  lastDraw_ = now;
  Draw();
}

void ProgressMeter::Finish() {
  if (!enabled_) return;
  Draw();
  std::fputc('\n', stderr);
}

void ProgressMeter::Draw() {
  const double seconds = std::chrono::duration<double>(Clock::now() - start_).count();
  const double written = static_cast<double>(done_ * blockSize_) / kMebibyte;
  const double rate = seconds > 0 ? written / seconds : 0;
  // With --compare the walk may skip blocks, so the bound can run ahead of done.
  const uint64_t left = totalBlocks_ > done_ ? totalBlocks_ - done_ : 0;
  const double secondsLeft = rate > 0 ? static_cast<double>(left * blockSize_) / kMebibyte / rate : 0;
  std::fprintf(stderr, "\r%llu/%llu blocks, %.1f MiB, %.1f MiB/s, %.0f s left   ",
               static_cast<unsigned long long>(done_), static_cast<unsigned long long>(totalBlocks_), written, rate,
               secondsLeft);
  std::fflush(stderr);
}

}  // namespace tolvarcli
