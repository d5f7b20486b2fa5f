// Init through the export, against a plain pread of every store page that
// Init reads (volume header, catalog, each store's header and block list,
// and the bitmaps it loads), each page once. Both run on a warm page cache unless --cold is given, which
// drops the image's cached pages before every iteration of either.
//
//   init_bench [--benchmark_...] [--cold] [--block-size=N] NAME=IMAGE,FROM,TO...
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "support/bench_case.h"
#include "support/heap_peak.h"
#include "support/store_metadata.h"
#include "tolvar/tolvar.h"

namespace {

using tolvarbench::BenchCase;
using tolvarbench::HeapPeak;
using tolvarbench::StoreMetadata;

bool coldCache = false;      // drop the image's pages from the page cache before each iteration
uint64_t blockSize = 65536;  // the block size Init is given

// Asks the kernel to forget the image's cached pages.
void DropCachedPages(const std::string& image) {
  const int fd = open(image.c_str(), O_RDONLY);
  if (fd < 0) return;
  posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
  close(fd);
}

void PrepareIteration(benchmark::State& state, const std::string& image) {
  if (!coldCache) return;
  state.PauseTiming();
  DropCachedPages(image);
  state.ResumeTiming();
}

TolvarHandle OpenHandle(const BenchCase& input) {
  TolvarHandle handle = nullptr;
  if (Init(&handle, input.Image().c_str(), input.From().c_str(), input.To().c_str(), blockSize, 0) != TOLVAR_OK) {
    return nullptr;
  }
  return handle;
}

uint64_t BitmapBytes(TolvarHandle handle) {
  uint64_t size = 0;
  GetDiffBitmap(handle, nullptr, &size);
  return size;
}

void InitExport(benchmark::State& state, const BenchCase& input) {
  int64_t peak = 0;
  int64_t held = 0;
  uint64_t bitmapBytes = 0;
  for (auto _ : state) {
    PrepareIteration(state, input.Image());
    HeapPeak heap;
    TolvarHandle handle = OpenHandle(input);
    state.PauseTiming();
    if (handle == nullptr) {
      state.SkipWithError("Init failed");
      break;
    }
    peak = heap.Peak();
    held = heap.Live();
    bitmapBytes = BitmapBytes(handle);
    FreeHandle(handle);
    state.ResumeTiming();
  }
  state.counters["heap_peak"] = static_cast<double>(peak);
  state.counters["heap_held"] = static_cast<double>(held);
  state.counters["bitmap_bytes"] = static_cast<double>(bitmapBytes);
}

void ReadMetadata(benchmark::State& state, const BenchCase& input, const StoreMetadata* metadata) {
  uint64_t bytes = 0;
  for (auto _ : state) {
    PrepareIteration(state, input.Image());
    bytes = metadata->ReadAll();
    benchmark::DoNotOptimize(bytes);
  }
  if (bytes != metadata->Bytes()) state.SkipWithError("a store page could not be read");
  state.counters["pages"] = static_cast<double>(metadata->Pages().size());
  state.counters["block_list_pages"] = static_cast<double>(metadata->BlockListPages());
  state.counters["metadata_bytes"] = static_cast<double>(metadata->Bytes());
}

// Takes this program's own flags out of argv.
void TakeOwnFlags(int* argc, char** argv) {
  int kept = 1;
  for (int i = 1; i < *argc; ++i) {
    if (std::strcmp(argv[i], "--cold") == 0) {
      coldCache = true;
    } else if (std::strncmp(argv[i], "--block-size=", 13) == 0) {
      blockSize = std::strtoull(argv[i] + 13, nullptr, 10);
    } else {
      argv[kept++] = argv[i];
    }
  }
  *argc = kept;
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  TakeOwnFlags(&argc, argv);
  const std::vector<BenchCase> cases = BenchCase::FromArguments(argc, argv);
  std::vector<StoreMetadata> metadata;
  metadata.reserve(cases.size());
  for (const BenchCase& input : cases) {
    metadata.emplace_back(input.Image(), input.From(), input.To());
    metadata.back().ReadAll();  // warms the page cache for the first iteration
  }
  for (std::size_t i = 0; i < cases.size(); ++i) {
    const BenchCase& input = cases[i];
    benchmark::RegisterBenchmark(("init/" + input.Name() + "/tolvar").c_str(), InitExport, input)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
    benchmark::RegisterBenchmark(("init/" + input.Name() + "/pread").c_str(), ReadMetadata, input, &metadata[i])
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  std::fprintf(stderr, "init_bench: max resident set %ld KiB (%s page cache)\n",
               tolvarbench::HeapPeak::MaxResidentKiB(), coldCache ? "cold" : "warm");
  return 0;
}
