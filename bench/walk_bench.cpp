// The GetBlock walk over every changed block, compare off and on, at block
// sizes 4,096, 65,536 and 131,072, against a pread loop that reads as many
// bytes at the same offsets of the volume image. Throughput counts the
// changed blocks' bytes in both, so the two rates compare directly. Run on
// a warm page cache: each case's blocks are read once before it is timed.
//
//   walk_bench [--benchmark_...] NAME=IMAGE,FROM,TO...
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "support/bench_case.h"
#include "support/heap_peak.h"
#include "tolvar/tolvar.h"

namespace {

using tolvarbench::BenchCase;
using tolvarbench::HeapPeak;

const uint64_t kBlockSizes[] = {4096, 65536, 131072};
const uint64_t kLineSize = 16384;  // a shadow copy's cache line: the size of each read beneath the walk

TolvarHandle OpenHandle(const BenchCase& input, uint64_t blockSize) {
  TolvarHandle handle = nullptr;
  if (Init(&handle, input.Image().c_str(), input.From().c_str(), input.To().c_str(), blockSize, 0) != TOLVAR_OK) {
    return nullptr;
  }
  return handle;
}

// The indices of the changed blocks at blockSize, ascending.
std::vector<uint64_t> ChangedBlocks(const BenchCase& input, uint64_t blockSize) {
  std::vector<uint64_t> blocks;
  TolvarHandle handle = OpenHandle(input, blockSize);
  if (handle == nullptr) return blocks;
  uint64_t size = 0;
  GetDiffBitmap(handle, nullptr, &size);
  std::vector<uint8_t> bitmap(size);
  GetDiffBitmap(handle, bitmap.data(), &size);
  FreeHandle(handle);
  for (uint64_t bit = 0; bit < bitmap.size() * 8; ++bit) {
    if (bitmap[bit / 8] >> (bit % 8) & 1) blocks.push_back(bit);
  }
  return blocks;
}

// Reads every changed block of the image once, so that the timed reads of
// either side find the image's pages in the page cache.
void WarmImage(int fd, uint64_t blockSize, const std::vector<uint64_t>& changed, uint8_t* buffer) {
  for (uint64_t block : changed) {
    benchmark::DoNotOptimize(pread(fd, buffer, blockSize, static_cast<off_t>(block * blockSize)));
  }
}

void Walk(benchmark::State& state, const BenchCase& input, uint64_t blockSize, bool compare,
          const std::vector<uint64_t>* changed) {
  std::unique_ptr<uint8_t[]> buffer(new uint8_t[blockSize]);
  uint64_t returned = 0;
  int64_t walkHeap = 0;
  for (auto _ : state) {
    state.PauseTiming();
    TolvarHandle handle = OpenHandle(input, blockSize);
    if (handle == nullptr) {
      state.SkipWithError("Init failed");
      break;
    }
    HeapPeak heap;
    state.ResumeTiming();
    returned = 0;
    int32_t status;
    for (;;) {
      uint64_t size = blockSize;
      uint64_t index = 0;
      status = GetBlock(handle, buffer.get(), &size, &index, compare ? 1 : 0);
      if (status != TOLVAR_OK) break;
      ++returned;
    }
    state.PauseTiming();
    walkHeap = heap.Peak();
    FreeHandle(handle);
    if (status != TOLVAR_END_OF_BLOCKS) {
      state.SkipWithError("the walk ended on a failed read");
      break;
    }
    state.ResumeTiming();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * changed->size() * blockSize));
  state.counters["changed_blocks"] = static_cast<double>(changed->size());
  state.counters["returned_blocks"] = static_cast<double>(returned);
  state.counters["walk_heap_peak"] = static_cast<double>(walkHeap);
}

// Reads each changed block of the image, in pieces of pieceSize bytes.
void ReadBlocks(int fd, uint64_t blockSize, uint64_t pieceSize, const std::vector<uint64_t>& changed, uint8_t* buffer) {
  for (uint64_t block : changed) {
    for (uint64_t done = 0; done < blockSize; done += pieceSize) {
      benchmark::DoNotOptimize(pread(fd, buffer + done, pieceSize, static_cast<off_t>(block * blockSize + done)));
    }
  }
}

// pieceSize is the block size for the baseline itself; 16 KiB gives the
// reads a shadow copy's 16 KiB cache line makes, for comparison.
void ReadImage(benchmark::State& state, const BenchCase& input, uint64_t blockSize, uint64_t pieceSize,
               const std::vector<uint64_t>* changed) {
  std::unique_ptr<uint8_t[]> buffer(new uint8_t[blockSize]);
  const int fd = open(input.Image().c_str(), O_RDONLY);
  if (fd < 0) {
    state.SkipWithError("cannot open the image");
    return;
  }
  WarmImage(fd, blockSize, *changed, buffer.get());
  for (auto _ : state) ReadBlocks(fd, blockSize, pieceSize, *changed, buffer.get());
  close(fd);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * changed->size() * blockSize));
  state.counters["changed_blocks"] = static_cast<double>(changed->size());
}

// Warms the page cache for a case before any of its benchmarks run.
void WarmCase(const BenchCase& input, uint64_t blockSize, const std::vector<uint64_t>& changed) {
  const int fd = open(input.Image().c_str(), O_RDONLY);
  if (fd < 0) return;
  std::unique_ptr<uint8_t[]> buffer(new uint8_t[blockSize]);
  WarmImage(fd, blockSize, changed, buffer.get());
  close(fd);
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  const std::vector<BenchCase> cases = BenchCase::FromArguments(argc, argv);
  // Kept alive until the benchmarks have run; each benchmark reads one.
  std::vector<std::unique_ptr<std::vector<uint64_t>>> changedSets;
  for (const BenchCase& input : cases) {
    for (uint64_t blockSize : kBlockSizes) {
      changedSets.push_back(std::make_unique<std::vector<uint64_t>>(ChangedBlocks(input, blockSize)));
      const std::vector<uint64_t>* changed = changedSets.back().get();
      WarmCase(input, blockSize, *changed);
      const std::string stem = "walk/" + input.Name() + "/" + std::to_string(blockSize);
      for (bool compare : {false, true}) {
        benchmark::RegisterBenchmark((stem + (compare ? "/compare_on" : "/compare_off")).c_str(), Walk, input,
                                     blockSize, compare, changed)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
      }
      benchmark::RegisterBenchmark((stem + "/pread").c_str(), ReadImage, input, blockSize, blockSize, changed)
          ->Unit(benchmark::kMillisecond)
          ->UseRealTime();
      if (blockSize > kLineSize) {
        benchmark::RegisterBenchmark((stem + "/pread_16k").c_str(), ReadImage, input, blockSize, kLineSize, changed)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
      }
    }
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  std::fprintf(stderr, "walk_bench: max resident set %ld KiB\n", tolvarbench::HeapPeak::MaxResidentKiB());
  return 0;
}
