// The file services on large inputs, each against a baseline timed in the
// same run:
// - FindFile (the lookup both file exports start with) of the last entry
//   of a directory of N files, against plain pread calls of what that
//   lookup must read: the records on the path, every index block of the
//   directory once, and every child record once; also with the error queue
//   in place;
// - ExcludeFiles (the export) on a file of N one-cluster extents, against
//   preads of the file's metadata: the records on the path, the attribute
//   list and every extension record; and against the bare clearing of the
//   blocks under the extents;
// - GetFileChangesMap (the export) on a 10 GiB file of 10,000 fragments,
//   against preads of the same metadata for both shadow copies, and against
//   the bare projection: one bit test per file block over the extents; with
//   every fourth volume block changed and with only block 0 changed; and on
//   the files of N extents.
// Both shadow copies are the same image (see BenchHandle), so the older
// version of each file has the same extents as the newer one.
// Peak memory is counted through operator new: peak_bytes is the most an
// operation held above what was held before it, views_bytes what the
// handle's NTFS views held after their first use.
//
//   files_bench [--tiny] [--keep-image] [benchmark flags]
//
// --tiny makes small inputs, for the smoke test; --keep-image leaves the
// image file in place (its path is printed) for other tools.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "common/error_queue.h"
#include "bench/support/files/bench_handle.h"
#include "bench/support/files/bench_volume.h"
#include "bench/support/files/peak_memory.h"
#include "ntfsparsercore/path_lookup.h"
#include "tolvar/tolvar.h"

using tolvarcommon::CreateErrorQueue;
using tolvarcommon::DestroyErrorQueue;
using tolvarcommon::ErrorRecord;
using tolvarcommon::PopError;

namespace {

using tolvarbench::BenchHandle;
using tolvarbench::BenchLayout;
using tolvarbench::BenchTarget;
using tolvarbench::BenchVolume;
using tolvarbench::MetadataPiece;
using tolvarbench::PeakMemory;

constexpr uint64_t kBlockSize = 4096;
constexpr uint64_t kChangedEvery = 4;                   // every fourth volume block counts as changed ...
constexpr uint64_t kNearlyNothingChanged = UINT64_MAX;  // ... or only block 0
constexpr uint64_t kGiB = uint64_t{1} << 30;
constexpr uint64_t kMiB = uint64_t{1} << 20;

BenchLayout FullLayout() {
  BenchLayout layout;
  layout.directorySizes = {1000, 10000, 100000};
  layout.extentCounts = {1000, 10000, 100000};
  layout.largeFileSize = 10 * kGiB;
  layout.largeFileFragments = 10000;
  layout.storeChangedBlocks = 10000;
  return layout;
}

BenchLayout TinyLayout() {
  BenchLayout layout;
  layout.directorySizes = {100, 1000};
  layout.extentCounts = {100, 1000};
  layout.largeFileSize = 64 * kMiB;
  layout.largeFileFragments = 64;
  layout.storeChangedBlocks = 16;
  return layout;
}

BenchVolume* g_volume = nullptr;  // the image all benchmarks read
bool g_failed = false;            // a benchmark met an unexpected result

void Fail(benchmark::State& state, const std::string& what) {
  g_failed = true;
  state.SkipWithError(what.c_str());
}

// A handle whose NTFS views are open; views_bytes tells what opening them held.
std::unique_ptr<BenchHandle> OpenHandle(benchmark::State& state, uint64_t changedEvery = kChangedEvery) {
  const std::size_t before = PeakMemory::Held();
  auto handle = std::make_unique<BenchHandle>(g_volume->Path(), g_volume->Size(), kBlockSize, changedEvery);
  handle->Get()->OpenNtfsViews();
  state.counters["views_bytes"] = static_cast<double>(PeakMemory::Held() - before);
  return handle;
}

// A handle made by Init from the image's store (older shadow copy 1, newer
// 2): the shadow copies are rebuilt from the store, as on POSIX always.
// Null, after marking the benchmark failed, when Init fails.
TolvarHandle InitHandle(benchmark::State& state) {
  TolvarHandle handle = nullptr;
  if (Init(&handle, g_volume->Path().c_str(), BenchVolume::ShadowCopyId(1).c_str(),
           BenchVolume::ShadowCopyId(2).c_str(), kBlockSize, 0) != TOLVAR_OK) {
    Fail(state, "Init failed");
    return nullptr;
  }
  uint64_t size = 0;
  GetDiffBitmap(handle, nullptr, &size);
  std::vector<unsigned char> bits(size);
  GetDiffBitmap(handle, bits.data(), &size);
  uint64_t changed = 0;
  for (unsigned char byte : bits) changed += static_cast<uint64_t>(__builtin_popcount(byte));
  state.counters["changed_blocks"] = static_cast<double>(changed);
  const std::size_t before = PeakMemory::Held();
  static_cast<TrackingHandle*>(handle)->OpenNtfsViews();
  state.counters["views_bytes"] = static_cast<double>(PeakMemory::Held() - before);
  return handle;
}

void Project(const BenchTarget& target, const tolvarcore::BitMap& changed, std::vector<uint8_t>* map);

// Reads every piece with one pread each; returns the bytes read.
uint64_t ReadPieces(int fd, const std::vector<MetadataPiece>& pieces, std::vector<uint8_t>* buffer) {
  uint64_t total = 0;
  for (const MetadataPiece& piece : pieces) {
    if (buffer->size() < piece.size) buffer->resize(piece.size);
    const ssize_t n = ::pread(fd, buffer->data(), piece.size, static_cast<off_t>(piece.offset));
    total += n > 0 ? static_cast<uint64_t>(n) : 0;
  }
  return total;
}

// The plain-read baseline: the target's metadata, once per view the operation reads.
void PreadBaseline(benchmark::State& state, const BenchTarget& target, int views) {
  const int fd = ::open(g_volume->Path().c_str(), O_RDONLY);
  if (fd < 0) return Fail(state, "cannot open the image");
  std::vector<uint8_t> buffer;
  PeakMemory peak;
  for (auto _ : state) {
    uint64_t total = 0;
    for (int v = 0; v < views; ++v) total += ReadPieces(fd, target.reads, &buffer);
    benchmark::DoNotOptimize(total);
  }
  ::close(fd);
  state.counters["reads"] = static_cast<double>(target.reads.size() * views);
  state.counters["peak_bytes"] = static_cast<double>(peak.PeakAboveStart());
}

void FindFileBench(benchmark::State& state, uint64_t entries) {
  const BenchTarget& target = g_volume->DirectoryTarget(entries);
  auto handle = OpenHandle(state);
  const auto& volume = handle->Get()->newerVolume;
  PeakMemory peak;
  for (auto _ : state) {
    std::unique_ptr<ntfsparsercore::io::NtfsFile> file(ntfsparsercore::FindFile(volume, target.path));
    if (!file) return Fail(state, "not found: " + target.path);
  }
  state.counters["entries"] = static_cast<double>(entries);
  state.counters["peak_bytes"] = static_cast<double>(peak.PeakAboveStart());
}

// The same lookup with the error queue in place, as after Init with the
// error-queue option: every record walk leaves its end-marker message, and
// the caller drains the queue after each lookup.
void FindFileWithQueueBench(benchmark::State& state, uint64_t entries) {
  const BenchTarget& target = g_volume->DirectoryTarget(entries);
  auto handle = OpenHandle(state);
  const auto& volume = handle->Get()->newerVolume;
  CreateErrorQueue();
  ErrorRecord record;
  while (PopError(&record)) {
  }
  uint64_t messages = 0;
  PeakMemory peak;
  for (auto _ : state) {
    std::unique_ptr<ntfsparsercore::io::NtfsFile> file(ntfsparsercore::FindFile(volume, target.path));
    if (!file) return Fail(state, "not found: " + target.path);
    messages = 0;
    while (PopError(&record)) ++messages;
  }
  DestroyErrorQueue();
  state.counters["entries"] = static_cast<double>(entries);
  state.counters["messages"] = static_cast<double>(messages);
  state.counters["peak_bytes"] = static_cast<double>(peak.PeakAboveStart());
}

void FindFileBaseline(benchmark::State& state, uint64_t entries) {
  PreadBaseline(state, g_volume->DirectoryTarget(entries), 1);
  state.counters["entries"] = static_cast<double>(entries);
}

void ExcludeFilesBench(benchmark::State& state, uint64_t extents) {
  const BenchTarget& target = g_volume->FragmentedTarget(extents);
  auto handle = OpenHandle(state);
  const char* paths[] = {target.path.c_str(), nullptr};
  PeakMemory peak;
  for (auto _ : state) {
    TolvarHandle made = nullptr;
    if (ExcludeFiles(handle->Get(), &made, paths) != TOLVAR_OK) return Fail(state, "ExcludeFiles failed");
    FreeHandle(made);
  }
  // Every extent is one whole cluster: its block is cleared in the shared bitmap.
  for (const MetadataPiece& e : target.extents) {
    if (handle->Changed()->Test(e.offset / kBlockSize)) return Fail(state, "a block of the file is still changed");
  }
  state.counters["extents"] = static_cast<double>(extents);
  state.counters["peak_bytes"] = static_cast<double>(peak.PeakAboveStart());
}

void ExcludeFilesBaseline(benchmark::State& state, uint64_t extents) {
  PreadBaseline(state, g_volume->FragmentedTarget(extents), 1);
  state.counters["extents"] = static_cast<double>(extents);
}

// The least in-memory work of an exclusion: clearing the blocks under each
// of the file's extents, given the extents.
void ExcludeFilesClearBaseline(benchmark::State& state, uint64_t extents) {
  const BenchTarget& target = g_volume->FragmentedTarget(extents);
  auto handle = OpenHandle(state);
  tolvarcore::BitMap& changed = *handle->Changed();
  PeakMemory peak;
  for (auto _ : state) {
    for (const MetadataPiece& e : target.extents) {
      for (uint64_t b = e.offset / kBlockSize; b < (e.offset + e.size) / kBlockSize; ++b) changed.Clear(b);
    }
    benchmark::DoNotOptimize(changed.Data());
  }
  state.counters["extents"] = static_cast<double>(extents);
  state.counters["peak_bytes"] = static_cast<double>(peak.PeakAboveStart());
}

void FindFileThroughInitBench(benchmark::State& state, uint64_t entries) {
  const BenchTarget& target = g_volume->DirectoryTarget(entries);
  TolvarHandle handle = InitHandle(state);
  if (!handle) return;
  const auto& volume = static_cast<TrackingHandle*>(handle)->newerVolume;
  PeakMemory peak;
  for (auto _ : state) {
    std::unique_ptr<ntfsparsercore::io::NtfsFile> file(ntfsparsercore::FindFile(volume, target.path));
    if (!file) {
      FreeHandle(handle);
      return Fail(state, "not found: " + target.path);
    }
  }
  FreeHandle(handle);
  state.counters["entries"] = static_cast<double>(entries);
  state.counters["peak_bytes"] = static_cast<double>(peak.PeakAboveStart());
}

void ExcludeFilesThroughInitBench(benchmark::State& state, uint64_t extents) {
  const BenchTarget& target = g_volume->FragmentedTarget(extents);
  TolvarHandle handle = InitHandle(state);
  if (!handle) return;
  const char* paths[] = {target.path.c_str(), nullptr};
  PeakMemory peak;
  for (auto _ : state) {
    TolvarHandle made = nullptr;
    if (ExcludeFiles(handle, &made, paths) != TOLVAR_OK) {
      FreeHandle(handle);
      return Fail(state, "ExcludeFiles failed");
    }
    FreeHandle(made);
  }
  FreeHandle(handle);
  state.counters["extents"] = static_cast<double>(extents);
  state.counters["peak_bytes"] = static_cast<double>(peak.PeakAboveStart());
}

void ChangesMapThroughInitBench(benchmark::State& state, const BenchTarget& target) {
  TolvarHandle handle = InitHandle(state);
  if (!handle) return;
  uint64_t size = 0;
  if (GetFileChangesMap(handle, target.path.c_str(), nullptr, &size) != TOLVAR_SIZE_RETURNED) {
    FreeHandle(handle);
    return Fail(state, "size query failed");
  }
  std::vector<unsigned char> map(size);
  PeakMemory peak;
  for (auto _ : state) {
    uint64_t room = map.size();
    if (GetFileChangesMap(handle, target.path.c_str(), map.data(), &room) != TOLVAR_OK) {
      FreeHandle(handle);
      return Fail(state, "GetFileChangesMap failed");
    }
    benchmark::DoNotOptimize(map.data());
  }
  uint64_t marked = 0;
  for (unsigned char byte : map) marked += static_cast<uint64_t>(__builtin_popcount(byte));
  FreeHandle(handle);
  state.counters["map_bytes"] = static_cast<double>(size);
  state.counters["blocks_marked"] = static_cast<double>(marked);
  state.counters["peak_bytes"] = static_cast<double>(peak.PeakAboveStart());
}

void ChangesMapBench(benchmark::State& state, const BenchTarget& target, uint64_t changedEvery) {
  auto handle = OpenHandle(state, changedEvery);
  uint64_t size = 0;
  if (GetFileChangesMap(handle->Get(), target.path.c_str(), nullptr, &size) != TOLVAR_SIZE_RETURNED) {
    return Fail(state, "size query failed");
  }
  std::vector<unsigned char> map(size);
  PeakMemory peak;
  for (auto _ : state) {
    uint64_t room = map.size();
    if (GetFileChangesMap(handle->Get(), target.path.c_str(), map.data(), &room) != TOLVAR_OK) {
      return Fail(state, "GetFileChangesMap failed");
    }
    benchmark::DoNotOptimize(map.data());
  }
  // Both versions have the same extents, so the map is the projection.
  std::vector<uint8_t> expected(map.size());
  Project(target, *handle->Changed(), &expected);
  if (std::vector<uint8_t>(map.begin(), map.end()) != expected) return Fail(state, "the map is not the projection");
  state.counters["map_bytes"] = static_cast<double>(size);
  state.counters["peak_bytes"] = static_cast<double>(peak.PeakAboveStart());
}

// The least work a change map needs: for each block of the file, one test of
// the changed bitmap and one bit set, walking the extents.
// The file's change map when its older version has the same extents: the
// file blocks that lie on changed volume blocks (all extents are whole,
// block-aligned clusters).
void Project(const BenchTarget& target, const tolvarcore::BitMap& changed, std::vector<uint8_t>* map) {
  std::memset(map->data(), 0, map->size());
  uint64_t fileBlock = 0;
  for (const MetadataPiece& e : target.extents) {
    for (uint64_t p = e.offset; p < e.offset + e.size; p += kBlockSize, ++fileBlock) {
      if (changed.Test(p / kBlockSize)) (*map)[fileBlock / 8] |= static_cast<uint8_t>(1u << (fileBlock % 8));
    }
  }
}

void ChangesMapProjection(benchmark::State& state, const BenchTarget& target, uint64_t changedEvery) {
  auto handle = OpenHandle(state, changedEvery);
  const tolvarcore::BitMap& changed = *handle->Changed();
  uint64_t fileBytes = 0;
  for (const MetadataPiece& e : target.extents) fileBytes += e.size;
  std::vector<uint8_t> map((fileBytes / kBlockSize + 7) / 8);
  PeakMemory peak;
  for (auto _ : state) {
    Project(target, changed, &map);
    benchmark::DoNotOptimize(map.data());
  }
  state.counters["peak_bytes"] = static_cast<double>(peak.PeakAboveStart());
}

// The same operations on a handle made by Init from the image's store.
void RegisterThroughInit(const BenchLayout& layout) {
  const uint64_t entries = layout.directorySizes.back();
  const uint64_t extents = layout.extentCounts.back();
  benchmark::RegisterBenchmark(("FindFile_ThroughInit/entries:" + std::to_string(entries)).c_str(),
                               FindFileThroughInitBench, entries)
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark(("ExcludeFiles_ThroughInit/extents:" + std::to_string(extents)).c_str(),
                               ExcludeFilesThroughInitBench, extents)
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark(("GetFileChangesMap_ThroughInit/large:" + std::to_string(layout.largeFileSize / kMiB) +
                                "MiB," + std::to_string(layout.storeChangedBlocks) + "storeblocks-changed")
                                   .c_str(),
                               ChangesMapThroughInitBench, g_volume->LargeTarget())
      ->Unit(benchmark::kMillisecond);
}

void Register(const BenchLayout& layout) {
  for (uint64_t n : layout.directorySizes) {
    benchmark::RegisterBenchmark(("FindFile/entries:" + std::to_string(n)).c_str(), FindFileBench, n)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("FindFile_PreadBaseline/entries:" + std::to_string(n)).c_str(), FindFileBaseline, n)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("FindFile_WithErrorQueue/entries:" + std::to_string(n)).c_str(),
                                 FindFileWithQueueBench, n)
        ->Unit(benchmark::kMillisecond);
  }
  for (uint64_t e : layout.extentCounts) {
    benchmark::RegisterBenchmark(("ExcludeFiles/extents:" + std::to_string(e)).c_str(), ExcludeFilesBench, e)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("ExcludeFiles_PreadBaseline/extents:" + std::to_string(e)).c_str(),
                                 ExcludeFilesBaseline, e)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("ExcludeFiles_ClearBaseline/extents:" + std::to_string(e)).c_str(),
                                 ExcludeFilesClearBaseline, e)
        ->Unit(benchmark::kMillisecond);
  }
  const std::string large = "/large:" + std::to_string(layout.largeFileSize / kMiB) + "MiB," +
                            std::to_string(layout.largeFileFragments) + "fragments";
  const BenchTarget& target = g_volume->LargeTarget();
  for (const auto& density : {std::make_pair(std::string(",quarter-changed"), kChangedEvery),
                              std::make_pair(std::string(",block0-changed"), kNearlyNothingChanged)}) {
    benchmark::RegisterBenchmark(("GetFileChangesMap" + large + density.first).c_str(), ChangesMapBench, target,
                                 density.second)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("GetFileChangesMap_ProjectionBaseline" + large + density.first).c_str(),
                                 ChangesMapProjection, target, density.second)
        ->Unit(benchmark::kMillisecond);
  }
  benchmark::RegisterBenchmark(("GetFileChangesMap_PreadBaseline" + large).c_str(), PreadBaseline, target, 2)
      ->Unit(benchmark::kMillisecond);
  for (uint64_t e : layout.extentCounts) {
    const BenchTarget& fragmented = g_volume->FragmentedTarget(e);
    const std::string name = "/extents:" + std::to_string(e);
    benchmark::RegisterBenchmark(("GetFileChangesMap" + name).c_str(), ChangesMapBench, fragmented, kChangedEvery)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("GetFileChangesMap_PreadBaseline" + name).c_str(), PreadBaseline, fragmented, 2)
        ->Unit(benchmark::kMillisecond);
  }
}

}  // namespace

int main(int argc, char** argv) {
  bool tiny = false;
  bool keep = false;
  std::vector<char*> args;
  for (int i = 0; i < argc; ++i) {
    if (std::strcmp(argv[i], "--tiny") == 0) {
      tiny = true;
    } else if (std::strcmp(argv[i], "--keep-image") == 0) {
      keep = true;
    } else {
      args.push_back(argv[i]);
    }
  }
  int count = static_cast<int>(args.size());
  benchmark::Initialize(&count, args.data());
  if (benchmark::ReportUnrecognizedArguments(count, args.data())) return 1;

  const BenchLayout layout = tiny ? TinyLayout() : FullLayout();
  const auto start = std::chrono::steady_clock::now();
  std::unique_ptr<BenchVolume> volume;
  try {
    volume = std::make_unique<BenchVolume>(layout);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "making the image failed: %s\n", e.what());
    return 1;
  }
  if (keep) volume->Keep();
  g_volume = volume.get();
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::fprintf(stderr, "image: %s, %llu bytes, made in %.2f s\n", volume->Path().c_str(),
               static_cast<unsigned long long>(volume->Size()), seconds);

  Register(layout);
  if (volume->HasStore()) RegisterThroughInit(layout);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  std::fprintf(stderr, "max resident set: %llu KiB\n",
               static_cast<unsigned long long>(PeakMemory::MaxResident() / 1024));
  return g_failed ? 1 : 0;
}
