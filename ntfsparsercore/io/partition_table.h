// The partitions of a whole-disk image: an MBR with its primary entries and
// the chain of extended boot records behind an extended partition, or a GPT
// (protective MBR, header checked by its CRC-32, entry array checked by its
// own). Partitions are numbered as Linux, fdisk and parted number them: MBR
// primary slots 1 to 4, logical partitions from 5 on, GPT entries by their
// slot in the array, from 1.
#ifndef TOLVAR_NTFSPARSERCORE_IO_PARTITION_TABLE_H_
#define TOLVAR_NTFSPARSERCORE_IO_PARTITION_TABLE_H_

#include <cstdint>
#include <string>
#include <vector>

#include "ntfsparsercore/io/i_source.h"

namespace ntfsparsercore {
namespace io {

struct Partition {
  uint32_t number = 0;     // 1-based, as above
  uint64_t start = 0;      // byte offset in the disk
  uint64_t length = 0;     // bytes
  std::string type;        // "0x07" for MBR, the type GUID in lower case for GPT
  std::string typeName;    // what the type usually holds, e.g. "NTFS/exFAT", or empty
  bool container = false;  // an MBR extended partition: holds logical partitions, not a volume
  bool pastEnd = false;    // the entry reaches past the end of the disk
};

class PartitionTable {
 public:
  enum class Scheme { kNone, kMbr, kGpt };

  static constexpr uint64_t kSectorSize = 512;
  static constexpr uint32_t kFirstLogicalNumber = 5;
  static constexpr uint32_t kMostLogicalPartitions = 128;  // bounds a looping chain of extended boot records
  static constexpr uint32_t kMostGptEntries = 4096;        // bounds the entry array that is read

  // Reads the table of disk. Scheme kNone when sector 0 holds no MBR
  // signature or holds an NTFS boot sector (a volume, not a disk). False,
  // with *error saying what is wrong in one line, when a table is there but
  // damaged.
  static bool Read(ISource& disk, PartitionTable* table, std::string* error);

  // Whether an NTFS boot sector (its "NTFS    " system name and the 0x55AA
  // signature) sits at offset of source.
  static bool HasNtfsBootSector(ISource& source, uint64_t offset);

  const char* SchemeName() const;
  // The partition with this number, or null.
  const Partition* Find(uint32_t number) const;

  Scheme scheme = Scheme::kNone;
  uint64_t diskSize = 0;              // bytes
  std::vector<Partition> partitions;  // by number

 private:
  bool ReadMbr(ISource& disk, const uint8_t* sector, std::string* error);
  bool ReadLogicalPartitions(ISource& disk, uint64_t extendedStart, uint64_t extendedLength, std::string* error);
  bool ReadGpt(ISource& disk, std::string* error);
  void Add(Partition partition);
};

}  // namespace io
}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_IO_PARTITION_TABLE_H_
