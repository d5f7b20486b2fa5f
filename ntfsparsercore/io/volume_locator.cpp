#include "ntfsparsercore/io/volume_locator.h"

#include <algorithm>

#include "common/error_queue.h"
#include "ntfsparsercore/io/little_endian.h"
#include "ntfsparsercore/io/window_source.h"

using tolvarcommon::kErrorIo;
using tolvarcommon::ReportError;

namespace ntfsparsercore {
namespace io {

namespace {

// The NTFS boot sector's geometry.
constexpr uint64_t kBytesPerSectorOffset = 0x0B;  // 16-bit
constexpr uint64_t kTotalSectorsOffset = 0x28;    // 64-bit, without the backup boot sector at the end

unsigned long long Wide(uint64_t value) { return static_cast<unsigned long long>(value); }

}  // namespace

std::unique_ptr<ISource> VolumeLocator::Locate(const std::shared_ptr<ISource>& container, const VolumeName& name) {
  switch (name.pick) {
    case VolumeName::Pick::kPartition:
      return Partition(container, name.path, name.value);
    case VolumeName::Pick::kOffset:
      return Offset(container, name.path, name.value);
    default:
      return Whole(container, name.path);
  }
}

std::string VolumeLocator::NumberList(const std::vector<uint32_t>& numbers) {
  if (numbers.empty()) return "none";
  std::string text;
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    if (i != 0) text += i + 1 == numbers.size() ? " and " : ", ";
    text += std::to_string(numbers[i]);
  }
  return text;
}

std::vector<uint32_t> VolumeLocator::NtfsPartitions(ISource& disk, const PartitionTable& table) {
  std::vector<uint32_t> numbers;
  for (const auto& partition : table.partitions) {
    if (!partition.container && !partition.pastEnd && PartitionTable::HasNtfsBootSector(disk, partition.start)) {
      numbers.push_back(partition.number);
    }
  }
  return numbers;
}

uint64_t VolumeLocator::VolumeLength(ISource& source, const PartitionTable& table, uint64_t offset) {
  const uint64_t size = source.GetSize();
  const uint64_t room = size > offset ? size - offset : 0;
  for (const auto& partition : table.partitions) {
    if (partition.start == offset && !partition.container) return std::min(partition.length, room);
  }
  uint8_t sector[PartitionTable::kSectorSize];
  if (source.Read(sector, sizeof(sector), offset) != sizeof(sector)) return room;
  const uint64_t bytesPerSector = LoadLe16(sector + kBytesPerSectorOffset);
  const uint64_t sectors = LoadLe64(sector + kTotalSectorsOffset);
  // A sector count whose byte length overflows is no guide: the rest of the image is the volume.
  if (bytesPerSector == 0 || sectors >= UINT64_MAX / bytesPerSector - 1) return room;
  return std::min((sectors + 1) * bytesPerSector, room);
}

std::unique_ptr<ISource> VolumeLocator::Whole(const std::shared_ptr<ISource>& container, const std::string& path) {
  PartitionTable table;
  std::string error;
  if (PartitionTable::HasNtfsBootSector(*container, 0) || !PartitionTable::Read(*container, &table, &error) ||
      table.scheme == PartitionTable::Scheme::kNone) {
    return std::make_unique<WindowSource>(container, 0, container->GetSize());
  }
  ReportError(kErrorIo, "%s is a whole disk (%s; NTFS in partition %s): name a volume as %s%sN or %s%sBYTES",
              path.c_str(), table.SchemeName(), NumberList(NtfsPartitions(*container, table)).c_str(), path.c_str(),
              VolumeName::kPartitionSuffix, path.c_str(), VolumeName::kOffsetSuffix);
  return nullptr;
}

std::unique_ptr<ISource> VolumeLocator::Partition(const std::shared_ptr<ISource>& container, const std::string& path,
                                                  uint64_t number) {
  PartitionTable table;
  std::string error;
  if (!PartitionTable::Read(*container, &table, &error)) {
    ReportError(kErrorIo, "%s: damaged partition table: %s", path.c_str(), error.c_str());
    return nullptr;
  }
  const unsigned long long wanted = Wide(number);
  const io::Partition* partition = number <= UINT32_MAX ? table.Find(static_cast<uint32_t>(number)) : nullptr;
  if (table.scheme == PartitionTable::Scheme::kNone) {
    ReportError(kErrorIo, "%s: partition %llu does not exist: the image holds no partition table", path.c_str(),
                wanted);
    return nullptr;
  }
  if (partition == nullptr) {
    std::vector<uint32_t> numbers;
    for (const auto& p : table.partitions) numbers.push_back(p.number);
    ReportError(kErrorIo, "%s: partition %llu does not exist: the %s disk has partition %s", path.c_str(), wanted,
                table.SchemeName(), NumberList(numbers).c_str());
    return nullptr;
  }
  if (partition->container) {
    ReportError(kErrorIo, "%s: partition %llu is an extended partition: it holds logical partitions, not a volume",
                path.c_str(), wanted);
    return nullptr;
  }
  if (partition->pastEnd) {
    ReportError(kErrorIo, "%s: partition %llu ends at byte %llu, past the end of the image (%llu bytes)", path.c_str(),
                wanted, Wide(partition->start + partition->length), Wide(table.diskSize));
    return nullptr;
  }
  if (!PartitionTable::HasNtfsBootSector(*container, partition->start)) {
    ReportError(kErrorIo, "%s: partition %llu (type %s) holds no NTFS volume", path.c_str(), wanted,
                partition->type.c_str());
    return nullptr;
  }
  return std::make_unique<WindowSource>(container, partition->start, partition->length);
}

std::unique_ptr<ISource> VolumeLocator::Offset(const std::shared_ptr<ISource>& container, const std::string& path,
                                               uint64_t offset) {
  const uint64_t size = container->GetSize();
  if (offset >= size) {
    ReportError(kErrorIo, "%s: offset %llu is past the end of the image (%llu bytes)", path.c_str(), Wide(offset),
                Wide(size));
    return nullptr;
  }
  if (!PartitionTable::HasNtfsBootSector(*container, offset)) {
    ReportError(kErrorIo, "%s: no NTFS volume starts at byte offset %llu", path.c_str(), Wide(offset));
    return nullptr;
  }
  PartitionTable table;
  std::string error;
  // A damaged table only loses the partition's length; the boot sector still gives the volume's.
  if (!PartitionTable::Read(*container, &table, &error)) table = PartitionTable();
  return std::make_unique<WindowSource>(container, offset, VolumeLength(*container, table, offset));
}

}  // namespace io
}  // namespace ntfsparsercore
