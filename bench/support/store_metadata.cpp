#include "support/store_metadata.h"

#include <fcntl.h>
#include <unistd.h>

#include <memory>

#include "core/vss/records/catalog.h"
#include "core/vss/snapshot_sequence.h"
#include "core/vss/vss_record.h"
#include "core/vss/vss_volume.h"
#include "ntfsparsercore/io/source_factory.h"

namespace tolvarbench {

using tolvarcore::vss::VssVolume;

namespace {

constexpr uint64_t kVolumeHeaderPage = 0;  // the page that holds the volume header at 0x1E00

}  // namespace

StoreMetadata::StoreMetadata(const std::string& image) : image_(image) {
  ntfsparsercore::io::SourceFactory factory;
  std::shared_ptr<ntfsparsercore::io::ISource> source(factory.Open(image.c_str()));
  VssVolume volume(source);
  pages_.push_back(kVolumeHeaderPage);
  if (volume.GetCatalogOffset() == 0) return;
  AddRecord(volume, volume.GetCatalogOffset());
  tolvarcore::vss::records::Catalog catalog(volume.OpenRecord(volume.GetCatalogOffset()));
  for (const auto& snapshot : tolvarcore::vss::BuildSnapshotList(catalog)) {
    AddRecord(volume, snapshot->GetHeaderOffset());
    const uint64_t before = pages_.size();
    AddRecord(volume, snapshot->GetIndexOffset());
    blockListPages_ += pages_.size() - before;
    AddRecord(volume, snapshot->GetBitmapOffset());
    if (snapshot->GetPreviousBitmapOffset() != 0) AddRecord(volume, snapshot->GetPreviousBitmapOffset());
  }
}

void StoreMetadata::AddRecord(const VssVolume& volume, uint64_t offset) {
  const auto record = volume.OpenRecord(offset);
  pages_.insert(pages_.end(), record->Pages().begin(), record->Pages().end());
}

uint64_t StoreMetadata::ReadAll() const {
  const int fd = open(image_.c_str(), O_RDONLY);
  if (fd < 0) return 0;
  static thread_local std::vector<uint8_t> page(kPageSize);
  uint64_t total = 0;
  for (uint64_t offset : pages_) {
    const ssize_t got = pread(fd, page.data(), kPageSize, static_cast<off_t>(offset));
    if (got > 0) total += static_cast<uint64_t>(got);
  }
  close(fd);
  return total;
}

}  // namespace tolvarbench
