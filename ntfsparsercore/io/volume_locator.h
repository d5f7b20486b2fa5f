// Finds the volume that a name picks inside an opened container: the whole
// container, one of its partitions, or the NTFS volume at a byte offset.
// A picked volume is a window over the container.
#ifndef TOLVAR_NTFSPARSERCORE_IO_VOLUME_LOCATOR_H_
#define TOLVAR_NTFSPARSERCORE_IO_VOLUME_LOCATOR_H_

#include <cstdint>
#include <memory>
#include <string>

#include "ntfsparsercore/io/i_source.h"
#include "ntfsparsercore/io/partition_table.h"
#include "ntfsparsercore/io/volume_name.h"

namespace ntfsparsercore {
namespace io {

class VolumeLocator {
 public:
  // The volume of container that name picks (name.path is only used in
  // messages). Null, with one line saying why on the error queue (code 1),
  // when the partition does not exist or holds no NTFS volume, when there
  // is no NTFS volume at the offset, when the partition table is damaged,
  // or when a whole disk with a partition table is named without a pick.
  static std::unique_ptr<ISource> Locate(const std::shared_ptr<ISource>& container, const VolumeName& name);

  // The length of the NTFS volume at offset of source: the partition's
  // length when a partition starts there, else the boot sector's sector
  // count plus its backup sector, cut at the end of the source.
  static uint64_t VolumeLength(ISource& source, const PartitionTable& table, uint64_t offset);

  // "1, 2 and 5", or "none".
  static std::string NumberList(const std::vector<uint32_t>& numbers);

  // The numbers of the partitions of table that hold an NTFS volume.
  static std::vector<uint32_t> NtfsPartitions(ISource& disk, const PartitionTable& table);

 private:
  static std::unique_ptr<ISource> Whole(const std::shared_ptr<ISource>& container, const std::string& path);
  static std::unique_ptr<ISource> Partition(const std::shared_ptr<ISource>& container, const std::string& path,
                                            uint64_t number);
  static std::unique_ptr<ISource> Offset(const std::shared_ptr<ISource>& container, const std::string& path,
                                         uint64_t offset);
};

}  // namespace io
}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_IO_VOLUME_LOCATOR_H_
