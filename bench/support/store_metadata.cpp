#include "support/store_metadata.h"

#include <fcntl.h>
#include <unistd.h>

#include <memory>

#include "core/vss/record_head.h"
#include "core/vss/records/catalog.h"
#include "core/vss/snapshot_sequence.h"
#include "core/vss/vss_record.h"
#include "core/vss/vss_volume.h"
#include "ntfsparsercore/io/source_factory.h"

namespace tolvarbench {

using tolvarcore::vss::Snapshot;
using tolvarcore::vss::VssVolume;

namespace {

constexpr uint64_t kVolumeHeaderPage = 0;  // the page that holds the volume header at 0x1E00

}  // namespace

StoreMetadata::StoreMetadata(const std::string& image, const std::string& from, const std::string& to) : image_(image) {
  ntfsparsercore::io::SourceFactory factory;
  std::shared_ptr<ntfsparsercore::io::ISource> source(factory.Open(image.c_str()));
  VssVolume volume(source);
  pages_.push_back(kVolumeHeaderPage);
  listed_.insert(kVolumeHeaderPage);
  if (volume.GetCatalogOffset() == 0) return;
  AddRecord(volume, volume.GetCatalogOffset());
  tolvarcore::vss::records::Catalog catalog(volume.OpenRecord(volume.GetCatalogOffset()));
  const tolvarcore::vss::SnapshotList snapshots = tolvarcore::vss::BuildSnapshotList(catalog);
  std::shared_ptr<Snapshot> first;
  std::shared_ptr<Snapshot> last;
  for (const auto& snapshot : snapshots) {
    AddRecord(volume, snapshot->GetHeaderOffset());
    auto header = volume.OpenRecord(snapshot->GetHeaderOffset());
    const std::string id = tolvarcore::vss::RecordHead::Read(header.get()).firstIdentifier.ToString();
    if (id == from) first = snapshot;
    if (id == to) last = snapshot;
  }
  if (!first || !last) return;
  // The last snapshot's bitmap and the reference bitmap, then the block
  // lists of the sequence's snapshots before the last, in creation order.
  AddBitmap(volume, last->GetBitmapOffset());
  AddBitmap(volume, first != last ? first->GetBitmapOffset() : last->GetPreviousBitmapOffset());
  bool inSequence = false;
  for (const auto& snapshot : snapshots) {
    if (snapshot == first) inSequence = true;
    if (snapshot == last) break;
    if (!inSequence) continue;
    const uint64_t before = pages_.size();
    AddRecord(volume, snapshot->GetIndexOffset());
    blockListPages_ += pages_.size() - before;
  }
}

void StoreMetadata::AddRecord(const VssVolume& volume, uint64_t offset) {
  const auto record = volume.OpenRecord(offset);
  for (uint64_t page : record->Pages()) {
    if (listed_.insert(page).second) pages_.push_back(page);
  }
}

void StoreMetadata::AddBitmap(const VssVolume& volume, uint64_t offset) {
  if (offset != 0) AddRecord(volume, offset);
}

uint64_t StoreMetadata::ReadAll() const {
  const int fd = open(image_.c_str(), O_RDONLY);
  if (fd < 0) return 0;
  std::vector<uint8_t> page(kPageSize);
  uint64_t total = 0;
  for (uint64_t offset : pages_) {
    const ssize_t got = pread(fd, page.data(), kPageSize, static_cast<off_t>(offset));
    if (got > 0) total += static_cast<uint64_t>(got);
  }
  close(fd);
  return total;
}

}  // namespace tolvarbench
