// One NTFS attribute assembled from the attribute records (extents) that
// share its type and name; the unit that the attribute readers work on.
#ifndef TOLVAR_NTFSPARSERCORE_ATTRIBUTE_H_
#define TOLVAR_NTFSPARSERCORE_ATTRIBUTE_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ntfsparsercore/attribute_record.h"

namespace ntfsparsercore {
namespace attributes {
namespace readers {
class IReader;
class ReadersFactory;
}  // namespace readers
}  // namespace attributes

class Attribute {
 public:
  using RecordList = std::vector<std::shared_ptr<AttributeRecord>>;

  // Copies the record list; the first record supplies the header fields.
  // An empty list reports "Attribute: records are empty" and a first record
  // whose type is above 4096 reports "Attribute: input records do not have
  // standard ntfs records" (both level 2); the attribute keeps its defaults.
  Attribute(std::shared_ptr<attributes::readers::ReadersFactory> readersFactory, RecordList records);

  // The reader of this attribute's value from the readers factory; null
  // without a factory.
  std::shared_ptr<attributes::readers::IReader> CreateReader() const;

  const std::shared_ptr<attributes::readers::ReadersFactory>& GetReadersFactory() const { return readersFactory_; }
  const RecordList& GetRecords() const { return records_; }
  uint32_t GetType() const { return type_; }
  bool IsResident() const { return resident_; }
  bool IsNamed() const { return named_; }
  bool IsCompressed() const { return compressed_; }
  bool IsSparse() const { return sparse_; }
  uint16_t GetAttributeId() const { return attributeId_; }
  uint32_t GetRecordLength() const { return recordLength_; }
  uint64_t GetSize() const { return size_; }
  uint64_t GetCompressedSize() const { return compressedSize_; }
  uint16_t GetCompressionUnit() const { return compressionUnit_; }
  uint32_t GetResidentValueLength() const { return residentValueLength_; }
  const std::string& GetName() const { return name_; }

 private:
  std::shared_ptr<attributes::readers::ReadersFactory> readersFactory_;  // the volume's readers factory
  RecordList records_;                                                   // the extents, in the order given
  uint32_t type_ = 0;                                                    // attribute type code
  bool resident_ = true;                                                 // value held inside the MFT record
  bool named_ = false;                                                   // the attribute has a name
  bool compressed_ = false;                                              // value stored in compression units
  bool sparse_ = false;                                                  // value may have unallocated runs
  uint16_t attributeId_ = 0;                                             // id of the first record
  uint32_t recordLength_ = 0;                                            // length of the first record
  uint64_t size_ = 0;                                                    // value size in bytes
  uint64_t compressedSize_ = 0;                                          // compressed size of a compressed value
  uint16_t compressionUnit_ = 0;                                         // log2 of clusters per compression unit
  uint32_t residentValueLength_ = 0;                                     // resident value length
  std::string name_;                                                     // the attribute's name in UTF-8
};

}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_ATTRIBUTE_H_
