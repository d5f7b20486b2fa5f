#include "cli/volume_file_layout.h"

#include <algorithm>
#include <utility>

#include "ntfsparsercore/io/system_file.h"
#include "ntfsparsercore/io/window_source.h"

namespace tolvarcli {

namespace {

// A shadow copy's bytes are taken from the start of the page they lie in,
// as the page cache reads a file: the view, like libvshadow, gives other
// bytes for a read that starts inside a sector that an overlay keeps in
// part than for one that starts on the sector (store_snapshot_source.cpp),
// and a file must read the same however it is read.
constexpr uint64_t kPageSize = 4096;

}  // namespace

using ntfsparsercore::io::ISource;
using ntfsparsercore::io::SystemFile;
using ntfsparsercore::io::WindowSource;
using tolvarcore::vss::StoreSnapshotSource;

std::shared_ptr<const VolumeFileLayout> VolumeFileLayout::OfVolume(std::shared_ptr<ISource> volume) {
  return Of(std::move(volume), nullptr);
}

std::shared_ptr<const VolumeFileLayout> VolumeFileLayout::OfShadowCopy(
    std::shared_ptr<const StoreSnapshotSource> view) {
  if (!view) return nullptr;
  std::shared_ptr<ISource> volume = view->GetVolume();
  return Of(std::move(volume), std::move(view));
}

// Looks through caches and a window for the plain file under volume.
std::shared_ptr<const VolumeFileLayout> VolumeFileLayout::Of(std::shared_ptr<ISource> volume,
                                                             std::shared_ptr<const StoreSnapshotSource> view) {
  if (!volume) return nullptr;
  const uint64_t length = volume->GetSize();
  uint64_t start = 0;
  std::shared_ptr<ISource> file = volume;
  while (std::shared_ptr<ISource> cached = file->GetCachedSource()) file = cached;
  if (auto* window = dynamic_cast<WindowSource*>(file.get())) {
    start = window->GetStart();
    file = window->GetSource();
    while (std::shared_ptr<ISource> cached = file->GetCachedSource()) file = cached;
  }
  auto* plain = dynamic_cast<SystemFile*>(file.get());
  if (plain == nullptr) return nullptr;
  return std::shared_ptr<const VolumeFileLayout>(
      new VolumeFileLayout(file, plain->GetHandle(), start, length, std::move(view)));
}

VolumeFileLayout::VolumeFileLayout(std::shared_ptr<ISource> file, std::intptr_t handle, uint64_t start, uint64_t length,
                                   std::shared_ptr<const StoreSnapshotSource> view)
    : file_(std::move(file)), handle_(handle), start_(start), length_(length), view_(std::move(view)) {}

std::vector<VolumeFileLayout::Stretch> VolumeFileLayout::Locate(uint64_t size, uint64_t offset) const {
  std::vector<Stretch> stretches;
  if (!view_) {
    if (offset > length_ || size > length_ - offset) return stretches;
    stretches.push_back(Stretch{false, start_ + offset, size});
    return stretches;
  }
  // From the page the bytes start in, then without the bytes before them.
  const uint64_t skipped = offset % kPageSize;
  uint64_t located = 0;
  for (const StoreSnapshotSource::Stretch& piece : view_->Map(size + skipped, offset - skipped)) {
    const bool inside = piece.zeros || (piece.at <= length_ && piece.size <= length_ - piece.at);
    if (!inside) return {};
    const uint64_t cut = located < skipped ? std::min(skipped - located, piece.size) : 0;
    located += piece.size;
    if (cut == piece.size) continue;
    stretches.push_back(Stretch{piece.zeros, piece.zeros ? 0 : start_ + piece.at + cut, piece.size - cut});
  }
  if (located != size + skipped) return {};
  return stretches;
}

}  // namespace tolvarcli
