// Reads one rebuilt shadow copy in-process the way tolvar mount serves it:
// the store view behind the shared line cache. Two timings, each printed as
// one JSON object:
//
//   mount_view_bench sequential VOLUME INDEX
//       the whole shadow copy (INDEX from 0, the oldest) in 1 MiB reads, as
//       through the mount but without FUSE: the mount's own cost is the
//       difference
//   mount_view_bench threads VOLUME INDEX THREADS
//       THREADS threads reading interleaved 128 KiB pieces (what FUSE's
//       threads ask for), once with the view read by all at once and once
//       with every read serialised behind one lock, in the same run
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "common/aligned_bytes.h"
#include "core/volume_provider.h"
#include "core/vss/records/catalog.h"
#include "core/vss/snapshot_sequence.h"
#include "core/vss/store_stack.h"
#include "ntfsparsercore/io/shared_line_cache.h"
#include "ntfsparsercore/io/source_factory.h"

namespace {

using ntfsparsercore::io::ISource;

constexpr uint64_t kSequentialRead = 1 << 20;
constexpr uint64_t kPiece = 128 << 10;
constexpr uint64_t kCacheLineSize = 65536;  // as tolvar mount
constexpr std::size_t kCacheLines = 128;

// The view of shadow copy index of the volume at path, behind the mount's cache.
std::shared_ptr<ISource> OpenCachedView(const std::string& path, std::size_t index) {
  tolvarcore::VolumeProvider provider(std::make_shared<ntfsparsercore::io::SourceFactory>());
  auto volume = provider.OpenVolume(path);
  auto storage = volume ? provider.FindStorage(volume) : nullptr;
  if (!storage) return nullptr;
  tolvarcore::vss::records::Catalog catalog(storage->OpenRecord(storage->GetCatalogOffset()));
  const auto snapshots = tolvarcore::vss::BuildSnapshotList(catalog);
  if (index >= snapshots.size()) return nullptr;
  auto it = snapshots.begin();
  std::advance(it, index);
  std::shared_ptr<ISource> view(tolvarcore::vss::StoreStack::Read(*storage)->OpenView((*it)->GetGuid()));
  if (!view) return nullptr;
  return std::make_shared<ntfsparsercore::io::SharedLineCache>(view, kCacheLineSize, kCacheLines);
}

double Seconds(std::chrono::steady_clock::time_point since) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

// Buffers start on a cache line, as the mount's replies and the timed
// readers' buffers do (see AlignedBytes).
int Sequential(ISource& view) {
  tolvarcommon::AlignedBytes buffer(kSequentialRead);
  const uint64_t size = view.GetSize();
  const auto started = std::chrono::steady_clock::now();
  uint64_t total = 0;
  for (uint64_t offset = 0; offset < size; offset += kSequentialRead)
    total += view.Read(buffer.data(), kSequentialRead, offset);
  std::printf("{\"bytes\": %llu, \"seconds\": %.6f}\n", static_cast<unsigned long long>(total), Seconds(started));
  return total == size ? 0 : 1;
}

// Seconds for threads to read the whole view in interleaved pieces; with
// lock, each read holds it.
double Interleaved(ISource& view, unsigned threads, std::mutex* lock) {
  const uint64_t pieces = view.GetSize() / kPiece;
  const auto started = std::chrono::steady_clock::now();
  std::vector<std::thread> readers;
  for (unsigned k = 0; k < threads; ++k) {
    readers.emplace_back([&view, lock, pieces, threads, k] {
      tolvarcommon::AlignedBytes buffer(kPiece);
      for (uint64_t piece = k; piece < pieces; piece += threads) {
        if (lock != nullptr) {
          std::lock_guard<std::mutex> guard(*lock);
          view.Read(buffer.data(), kPiece, piece * kPiece);
        } else {
          view.Read(buffer.data(), kPiece, piece * kPiece);
        }
      }
    });
  }
  for (auto& reader : readers) reader.join();
  return Seconds(started);
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 1 ? argv[1] : "";
  if (argc < 4 || (mode != "sequential" && mode != "threads") || (mode == "threads" && argc < 5)) {
    std::fputs("usage: mount_view_bench sequential VOLUME INDEX | threads VOLUME INDEX THREADS\n", stderr);
    return 2;
  }
  auto view = OpenCachedView(argv[2], std::strtoul(argv[3], nullptr, 10));
  if (!view) {
    std::fprintf(stderr, "mount_view_bench: no shadow copy %s in %s\n", argv[3], argv[2]);
    return 1;
  }
  if (mode == "sequential") return Sequential(*view);
  const unsigned threads = static_cast<unsigned>(std::strtoul(argv[4], nullptr, 10));
  uint8_t first = 0;
  view->Read(&first, 1, 0);  // the store tables, read before either timing
  std::mutex lock;
  const double serialised = Interleaved(*view, threads, &lock);
  const double concurrent = Interleaved(*view, threads, nullptr);
  std::printf("{\"threads\": %u, \"bytes\": %llu, \"serialised_seconds\": %.6f, \"concurrent_seconds\": %.6f}\n",
              threads, static_cast<unsigned long long>(view->GetSize() / kPiece * kPiece), serialised, concurrent);
  return 0;
}
