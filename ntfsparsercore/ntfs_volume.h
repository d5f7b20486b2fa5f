// An NTFS file system in a byte source: the boot sector's geometry, bounded
// reads of the volume's bytes, and the MFT table read through the MFT's own
// data stream behind a page cache.
#ifndef TOLVAR_NTFSPARSERCORE_NTFS_VOLUME_H_
#define TOLVAR_NTFSPARSERCORE_NTFS_VOLUME_H_

#include <cstdint>
#include <memory>

#include "ntfsparsercore/attributes/readers/readers_factory.h"
#include "ntfsparsercore/i_volume.h"
#include "ntfsparsercore/io/i_source.h"
#include "ntfsparsercore/mft_table.h"

namespace ntfsparsercore {

class NtfsVolume : public IVolume {
 public:
  // Validates the boot sector of source and builds the volume with its MFT
  // table over a page cache of cacheBytes. Returns the new volume, or null
  // after a message (level 2).
  static std::unique_ptr<NtfsVolume> Create(std::shared_ptr<io::ISource> source, uint64_t cacheBytes);

  NtfsVolume(const NtfsVolume&) = delete;
  NtfsVolume& operator=(const NtfsVolume&) = delete;
  ~NtfsVolume() override;

  // Reads the volume's bytes; a size above the volume size reads nothing,
  // a read running past the end is cut there.
  uint64_t Read(void* buffer, uint64_t size, uint64_t offset) override;
  uint64_t GetSize() override { return volumeSize_; }
  uint32_t GetSectorSize() override { return bytesPerSector_; }
  uint64_t GetClusterSize() override { return clusterSize_; }
  // The size of the source the volume lies in, which a damaged boot sector
  // may make smaller than the volume size.
  uint64_t GetSourceSize() override { return source_->GetSize(); }
  // The volume's MFT table; the volume keeps ownership.
  virtual MftTable* GetMftTable() { return mftTable_.get(); }

  // Record size from the boot sector's clusters-per-record byte.
  static uint64_t RecordSize(int8_t clustersPerRecord, uint64_t clusterSize);
  // Pages of clusterSize bytes that cacheBytes allows, at least one.
  static uint64_t PageCount(uint64_t cacheBytes, uint64_t clusterSize);

  // Boot sector, sector 0 of the volume.
  static constexpr uint64_t kBootSectorSize = 512;
  static constexpr uint64_t kOemIdOffset = 3;  // 8 bytes: "NTFS    "
  static constexpr uint64_t kOemIdSize = 8;
  static constexpr uint64_t kBytesPerSectorOffset = 11;     // 2 bytes
  static constexpr uint64_t kSectorsPerClusterOffset = 13;  // 1 byte, unsigned
  static constexpr uint64_t kTotalSectorsOffset = 40;       // 8 bytes
  static constexpr uint64_t kMftClusterOffset = 48;         // 8 bytes: cluster number of the MFT
  static constexpr uint64_t kClustersPerRecordOffset = 64;  // 1 byte, signed
  static constexpr uint64_t kEndMarkerOffset = 510;         // 2 bytes: 0xAA55
  static constexpr uint16_t kEndMarker = 0xAA55;
  static constexpr uint64_t kMftRecordNumber = 0;
  static constexpr uint64_t kShiftMask = 63;

 private:
  NtfsVolume(std::shared_ptr<io::ISource> source, uint32_t bytesPerSector, uint64_t clusterSize, uint64_t volumeSize);

  std::shared_ptr<io::ISource> source_;  // the volume's bytes, shared with the creator
  std::unique_ptr<MftTable> mftTable_;   // records read through the cached MFT stream
  // Reads record 0 straight from the volume; kept so that record 0 and the
  // MFT stream made from it never refer to a table that is gone.
  std::unique_ptr<MftTable> bootstrapTable_;
  std::shared_ptr<attributes::readers::ReadersFactory> readersFactory_;  // the one factory of this volume
  uint32_t bytesPerSector_;                                              // from the boot sector
  uint64_t clusterSize_;                                                 // bytes per sector × sectors per cluster
  uint64_t volumeSize_;                                                  // bytes per sector × total sectors
};

}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_NTFS_VOLUME_H_
