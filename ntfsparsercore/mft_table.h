// Record-number lookup in a Master File Table: turns a record number into
// an MftRecord read from the table's source.
#ifndef TOLVAR_NTFSPARSERCORE_MFT_TABLE_H_
#define TOLVAR_NTFSPARSERCORE_MFT_TABLE_H_

#include <cstdint>
#include <memory>

#include "ntfsparsercore/attributes/readers/readers_factory.h"
#include "ntfsparsercore/i_volume.h"
#include "ntfsparsercore/io/i_source.h"

namespace ntfsparsercore {

class MftRecord;

class MftTable {
 public:
  // The volume is borrowed and outlives the table; source holds record 0 at
  // baseOffset and record n recordSize × n bytes further on.
  MftTable(IVolume* volume, std::shared_ptr<io::ISource> source,
           std::shared_ptr<attributes::readers::ReadersFactory> readersFactory, uint64_t baseOffset,
           uint64_t recordSize);

  // A new record read as recordNumber. With followBase set, an extension
  // record is replaced by its base record (followed until a base record).
  std::shared_ptr<MftRecord> GetRecord(uint64_t recordNumber, bool followBase);

  const std::shared_ptr<io::ISource>& GetSource() const { return source_; }
  uint64_t GetBaseOffset() const { return baseOffset_; }
  uint64_t GetRecordSize() const { return recordSize_; }

 private:
  std::shared_ptr<MftRecord> ReadRecord(uint64_t recordNumber);

  IVolume* volume_;                                                      // the volume the records belong to
  std::shared_ptr<io::ISource> source_;                                  // where the records are read
  std::shared_ptr<attributes::readers::ReadersFactory> readersFactory_;  // handed to every record
  uint64_t baseOffset_;                                                  // byte offset of record 0 in source_
  uint64_t recordSize_;                                                  // bytes per record
};

}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_MFT_TABLE_H_
