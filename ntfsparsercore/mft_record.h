// One file record of the Master File Table: its header values, bounded
// reads of its fixed-up bytes, and the file's attributes, gathered through
// an attribute list from extension records where there is one.
#ifndef TOLVAR_NTFSPARSERCORE_MFT_RECORD_H_
#define TOLVAR_NTFSPARSERCORE_MFT_RECORD_H_

#include <cstdint>
#include <memory>
#include <vector>

#include "ntfsparsercore/attribute.h"
#include "ntfsparsercore/attribute_record.h"
#include "ntfsparsercore/attributes/readers/readers_factory.h"
#include "ntfsparsercore/i_volume.h"
#include "ntfsparsercore/io/i_source.h"
#include "ntfsparsercore/usn_controller.h"

namespace ntfsparsercore {

class MftTable;

class MftRecord : public io::ISource, public std::enable_shared_from_this<MftRecord> {
 public:
  using AttributeList = std::vector<std::shared_ptr<Attribute>>;
  using RecordList = std::vector<std::shared_ptr<AttributeRecord>>;

  // Reads the record at offset of source. A record that fails a check is
  // reported (level 3) and left not in use. Always made inside a shared
  // pointer (the attribute walk hands out shared pointers to the record).
  // The table that reads it is borrowed: extension records named by an
  // attribute list are read through it.
  MftRecord(std::shared_ptr<attributes::readers::ReadersFactory> readersFactory, IVolume* volume, MftTable* table,
            std::shared_ptr<io::ISource> source, uint64_t offset, uint64_t recordNumber);

  // Reads up to size fixed-up bytes at offset, cut to end at the allocated
  // size; an offset at or past it is reported (level 2) and reads nothing.
  uint64_t Read(void* buffer, uint64_t size, uint64_t offset) override;
  // The allocated size of the record.
  uint64_t GetSize() override { return allocatedSize_; }

  // Every attribute of the file, extension records included.
  AttributeList GetAttributes();
  // The attributes of one type, in the order of GetAttributes().
  AttributeList GetAttributes(uint32_t type);

  bool IsInUse() const { return inUse_; }
  bool IsDirectory() const { return directory_; }
  uint64_t GetRecordNumber() const { return recordNumber_; }
  uint64_t GetBaseRecordNumber() const { return baseRecordNumber_; }
  IVolume* GetVolume() const { return volume_; }
  const std::shared_ptr<attributes::readers::ReadersFactory>& GetReadersFactory() const { return readersFactory_; }

  // File record header, after the multi-sector fix-up.
  static constexpr uint64_t kHeaderSize = 48;
  static constexpr uint64_t kSignatureOffset = 0;           // 4 bytes: "FILE"
  static constexpr uint64_t kFirstAttributeOffset = 20;     // 2 bytes: offset of the first attribute
  static constexpr uint64_t kFlagsOffset = 22;              // 2 bytes: record flags
  static constexpr uint64_t kAllocatedSizeOffset = 28;      // 4 bytes: bytes allocated to the record
  static constexpr uint64_t kBaseReferenceLowOffset = 32;   // 4 bytes: base record number, low 32 bits
  static constexpr uint64_t kBaseReferenceHighOffset = 36;  // 2 bytes: base record number, bits 32 to 47
  static constexpr uint16_t kFlagInUse = 0x0001;
  static constexpr uint16_t kFlagDirectory = 0x0002;

 private:
  // The attribute records held in this record itself, in record order.
  RecordList WalkOwnRecords();
  // An attribute for each of the record's own attribute records (only those
  // of *type unless type is null), in attribute id order.
  AttributeList OwnAttributes(const RecordList& own, const uint32_t* type);
  // The file's attributes as an attribute list names them.
  AttributeList GatherListedAttributes(const std::shared_ptr<AttributeRecord>& listRecord);

  std::shared_ptr<attributes::readers::ReadersFactory> readersFactory_;  // passed on to every attribute
  IVolume* volume_;                                                      // the volume the record belongs to (borrowed)
  MftTable* table_;                                                      // the table that read the record (borrowed)
  UsnController record_;                                                 // the record's fixed-up bytes
  bool inUse_ = false;                                                   // flag bit 0; false after any failed check
  bool directory_ = false;                                               // flag bit 1, for records in use
  uint16_t firstAttributeOffset_ = 0;                                    // where the attribute walk starts
  uint32_t allocatedSize_ = 0;                                           // upper bound of every read of the record
  uint64_t recordNumber_;                                                // the number the record was read as
  uint64_t baseRecordNumber_ = 0;  // base record of an extension record; 0 for a base record
};

}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_MFT_RECORD_H_
