// Reading a volume inside a disk-image container: through tolvar's byte
// sources (the container layer and the partition window, as Init opens a
// volume named IMAGE@partition=N, with and without the 16 KiB line cache in
// front) against the container's own library reading the same bytes in the
// same run. Sequential 64 KiB reads over the whole partition.
//
//   container_bench QCOW2 E01 PARTITION [benchmark options]
//
// Both images hold the same disk; PARTITION is the partition read.
#include <benchmark/benchmark.h>
#include <libewf.h>
#include <libqcow.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "common/error_queue.h"
#include "ntfsparsercore/io/cache_proxy.h"
#include "ntfsparsercore/io/container_opener.h"
#include "ntfsparsercore/io/image_opener.h"
#include "ntfsparsercore/io/partition_table.h"

namespace {

constexpr uint64_t kReadSize = 65536;
constexpr uint64_t kLineSize = 16384;

std::string g_qcow;
std::string g_ewf;
uint32_t g_partition = 0;

struct Range {
  uint64_t start = 0;
  uint64_t length = 0;
};

Range PartitionRange(const std::string& image) {
  auto disk = ntfsparsercore::io::ContainerOpener::Open(image);
  ntfsparsercore::io::PartitionTable table;
  std::string error;
  Range range;
  if (disk && ntfsparsercore::io::PartitionTable::Read(*disk, &table, &error)) {
    if (const auto* partition = table.Find(g_partition)) range = {partition->start, partition->length};
  }
  return range;
}

void ReadAll(benchmark::State& state, ntfsparsercore::io::ISource& source, uint64_t length) {
  std::vector<uint8_t> buffer(kReadSize);
  for (auto _ : state) {
    for (uint64_t offset = 0; offset < length; offset += kReadSize) {
      if (source.Read(buffer.data(), kReadSize, offset) == 0) state.SkipWithError("short read");
    }
    benchmark::DoNotOptimize(buffer.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * length));
}

void Tolvar(benchmark::State& state, const std::string& image, bool cached) {
  const Range range = PartitionRange(image);
  std::shared_ptr<ntfsparsercore::io::ISource> volume =
      ntfsparsercore::io::ImageOpener::OpenVolume(image + "@partition=" + std::to_string(g_partition));
  if (!volume) {
    state.SkipWithError("the volume does not open");
    return;
  }
  if (cached) {
    ntfsparsercore::io::CacheProxy proxy(volume, kLineSize);
    ReadAll(state, proxy, range.length);
  } else {
    ReadAll(state, *volume, range.length);
  }
}

void BM_QcowLibrary(benchmark::State& state) {
  const Range range = PartitionRange(g_qcow);
  libqcow_file_t* file = nullptr;
  if (libqcow_file_initialize(&file, nullptr) != 1 ||
      libqcow_file_open(file, g_qcow.c_str(), LIBQCOW_OPEN_READ, nullptr) != 1) {
    state.SkipWithError("libqcow cannot open the image");
    return;
  }
  std::vector<uint8_t> buffer(kReadSize);
  for (auto _ : state) {
    for (uint64_t offset = 0; offset < range.length; offset += kReadSize) {
      libqcow_file_read_buffer_at_offset(file, buffer.data(), kReadSize, static_cast<off64_t>(range.start + offset),
                                         nullptr);
    }
    benchmark::DoNotOptimize(buffer.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * range.length));
  libqcow_file_close(file, nullptr);
  libqcow_file_free(&file, nullptr);
}

void BM_EwfLibrary(benchmark::State& state) {
  const Range range = PartitionRange(g_ewf);
  char** segments = nullptr;
  int count = 0;
  libewf_handle_t* handle = nullptr;
  if (libewf_glob(g_ewf.c_str(), g_ewf.size(), LIBEWF_FORMAT_UNKNOWN, &segments, &count, nullptr) != 1 ||
      libewf_handle_initialize(&handle, nullptr) != 1 ||
      libewf_handle_open(handle, segments, count, LIBEWF_OPEN_READ, nullptr) != 1) {
    state.SkipWithError("libewf cannot open the image");
    return;
  }
  libewf_glob_free(segments, count, nullptr);
  std::vector<uint8_t> buffer(kReadSize);
  for (auto _ : state) {
    for (uint64_t offset = 0; offset < range.length; offset += kReadSize) {
      libewf_handle_read_random(handle, buffer.data(), kReadSize, static_cast<off64_t>(range.start + offset), nullptr);
    }
    benchmark::DoNotOptimize(buffer.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * range.length));
  libewf_handle_close(handle, nullptr);
  libewf_handle_free(&handle, nullptr);
}

void BM_QcowTolvar(benchmark::State& state) { Tolvar(state, g_qcow, false); }
void BM_QcowTolvarCached(benchmark::State& state) { Tolvar(state, g_qcow, true); }
void BM_EwfTolvar(benchmark::State& state) { Tolvar(state, g_ewf, false); }
void BM_EwfTolvarCached(benchmark::State& state) { Tolvar(state, g_ewf, true); }

}  // namespace

BENCHMARK(BM_QcowLibrary)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_QcowTolvar)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_QcowTolvarCached)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EwfLibrary)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EwfTolvar)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EwfTolvarCached)->Unit(benchmark::kMillisecond);

int main(int argc, char** argv) {
  if (argc < 4) {
    std::fprintf(stderr, "usage: container_bench QCOW2 E01 PARTITION [benchmark options]\n");
    return 2;
  }
  g_qcow = argv[1];
  g_ewf = argv[2];
  g_partition = static_cast<uint32_t>(std::strtoul(argv[3], nullptr, 10));
  argv[3] = argv[0];
  int rest = argc - 3;
  benchmark::Initialize(&rest, argv + 3);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
