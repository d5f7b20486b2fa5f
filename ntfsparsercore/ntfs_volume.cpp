#include "ntfsparsercore/ntfs_volume.h"

#include <algorithm>
#include <cstring>

#include "common/error_queue.h"
#include "ntfsparsercore/io/hot_page_proxy.h"
#include "ntfsparsercore/io/little_endian.h"
#include "ntfsparsercore/io/ntfs_file.h"
#include "ntfsparsercore/mft_record.h"

using tolvarcommon::kErrorInvalid;
using tolvarcommon::ReportError;

namespace ntfsparsercore {

namespace {

const char kOemId[] = "NTFS    ";

}  // namespace

NtfsVolume::NtfsVolume(std::shared_ptr<io::ISource> source, uint32_t bytesPerSector, uint64_t clusterSize,
                       uint64_t volumeSize)
    : source_(std::move(source)),
      readersFactory_(std::make_shared<attributes::readers::ReadersFactory>(this)),
      bytesPerSector_(bytesPerSector),
      clusterSize_(clusterSize),
      volumeSize_(volumeSize) {}

NtfsVolume::~NtfsVolume() = default;

uint64_t NtfsVolume::RecordSize(int8_t clustersPerRecord, uint64_t clusterSize) {
  if (clustersPerRecord > 0) return static_cast<uint64_t>(clustersPerRecord) * clusterSize;
  return uint64_t{2} << (static_cast<uint8_t>(~clustersPerRecord) & kShiftMask);
}

uint64_t NtfsVolume::PageCount(uint64_t cacheBytes, uint64_t clusterSize) {
  // A cluster size of 0 would divide by zero: one page then.
  if (clusterSize == 0) return 1;
  uint64_t bytes = cacheBytes - cacheBytes % clusterSize;
  if (bytes == 0) bytes = clusterSize;
  return bytes / clusterSize;
}

std::unique_ptr<NtfsVolume> NtfsVolume::Create(std::shared_ptr<io::ISource> source, uint64_t cacheBytes) {
  if (!source) {
    ReportError(kErrorInvalid, "Not a NtfsVolume. Invalid file");
    return nullptr;
  }
  uint8_t boot[kBootSectorSize];
  std::memset(boot, 0, sizeof boot);
  source->Read(boot, kBootSectorSize, 0);  // a short read leaves zeros, which fail the checks
  if (std::memcmp(boot + kOemIdOffset, kOemId, kOemIdSize) != 0) {
    ReportError(kErrorInvalid, "Unexpected oem id");
    return nullptr;
  }
  const uint16_t marker = io::LoadLe16(boot + kEndMarkerOffset);
  if (marker != kEndMarker) {
    ReportError(kErrorInvalid, "Unexpected end of sector marker. Actual %u", marker);
    return nullptr;
  }
  const uint32_t bytesPerSector = io::LoadLe16(boot + kBytesPerSectorOffset);
  const uint64_t clusterSize = uint64_t{bytesPerSector} * boot[kSectorsPerClusterOffset];
  const uint64_t volumeSize = bytesPerSector * io::LoadLe64(boot + kTotalSectorsOffset);
  // The constructor is private: make_unique cannot reach it.
  std::unique_ptr<NtfsVolume> volume(new NtfsVolume(source, bytesPerSector, clusterSize, volumeSize));

  const uint64_t recordSize = RecordSize(static_cast<int8_t>(boot[kClustersPerRecordOffset]), clusterSize);
  const uint64_t mftOffset = clusterSize * io::LoadLe64(boot + kMftClusterOffset);
  volume->bootstrapTable_ =
      std::make_unique<MftTable>(volume.get(), source, volume->readersFactory_, mftOffset, recordSize);
  std::shared_ptr<MftRecord> mftRecord = volume->bootstrapTable_->GetRecord(kMftRecordNumber, true);

  auto mftStream = std::make_shared<io::NtfsFile>(mftRecord);
  auto pages = std::make_shared<io::HotPageProxy>(mftStream, clusterSize, PageCount(cacheBytes, clusterSize));
  volume->mftTable_ = std::make_unique<MftTable>(volume.get(), pages, volume->readersFactory_, 0, recordSize);
  return volume;
}

uint64_t NtfsVolume::Read(void* buffer, uint64_t size, uint64_t offset) {
  if (size > GetSize()) return 0;
  // Past the end the difference wraps round to a huge size; the caller's
  // buffer holds only the size asked for, so the read never asks for more.
  if (size + offset > GetSize()) size = std::min(size, GetSize() - offset);
  return source_->Read(buffer, size, offset);
}

}  // namespace ntfsparsercore
