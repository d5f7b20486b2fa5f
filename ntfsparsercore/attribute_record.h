// One attribute header inside an MFT record: its type, form, flags, name,
// sizes and where its resident value or mapping pairs start.
#ifndef TOLVAR_NTFSPARSERCORE_ATTRIBUTE_RECORD_H_
#define TOLVAR_NTFSPARSERCORE_ATTRIBUTE_RECORD_H_

#include <cstdint>
#include <memory>
#include <string>

#include "ntfsparsercore/io/i_source.h"

namespace ntfsparsercore {

class AttributeRecord {
 public:
  // Attribute types above this are not attributes; the end marker
  // 0xFFFFFFFF is one of them.
  static constexpr uint32_t kMaxType = 4096;

  // Parses the header at offset inside mftRecord, the record's fixed-up
  // bytes seen as a byte source (MftRecord::Read bounds reads to the
  // record). A type above kMaxType is reported (level 3) and leaves every
  // member but the type at its default.
  AttributeRecord(std::shared_ptr<io::ISource> mftRecord, uint64_t offset);

  // Reads count bytes at data offset + position of the MFT record: the
  // resident value or the mapping pairs.
  uint64_t Read(void* buffer, uint64_t count, uint64_t position) const;

  const std::shared_ptr<io::ISource>& GetMftRecord() const { return source_; }
  uint64_t GetOffset() const { return offset_; }
  uint32_t GetType() const { return type_; }
  bool IsResident() const { return resident_; }
  bool IsNamed() const { return named_; }
  bool IsCompressed() const { return compressed_; }
  bool IsSparse() const { return sparse_; }
  uint16_t GetAttributeId() const { return attributeId_; }
  uint32_t GetRecordLength() const { return recordLength_; }
  uint32_t GetResidentValueLength() const { return residentValueLength_; }
  uint64_t GetSize() const { return size_; }
  uint64_t GetCompressedSize() const { return compressedSize_; }
  uint16_t GetCompressionUnit() const { return compressionUnit_; }
  uint64_t GetDataOffset() const { return dataOffset_; }
  uint64_t GetStartingVcn() const { return startingVcn_; }
  const std::string& GetName() const { return name_; }

  // On-disk attribute header; the first kHeaderSize bytes are read in one piece.
  static constexpr uint64_t kHeaderSize = 0x48;
  static constexpr uint64_t kTypeOffset = 0x00;                // 4 bytes: type code
  static constexpr uint64_t kRecordLengthOffset = 0x04;        // 4 bytes: header and value length
  static constexpr uint64_t kNonResidentOffset = 0x08;         // 1 byte: 0 for resident
  static constexpr uint64_t kNameLengthOffset = 0x09;          // 1 byte: name length in UTF-16 units
  static constexpr uint64_t kNameOffsetOffset = 0x0A;          // 2 bytes: name offset from header start
  static constexpr uint64_t kFlagsOffset = 0x0C;               // 2 bytes: flags
  static constexpr uint64_t kAttributeIdOffset = 0x0E;         // 2 bytes: attribute id
  static constexpr uint64_t kValueLengthOffset = 0x10;         // 4 bytes: resident value length
  static constexpr uint64_t kValueOffsetOffset = 0x14;         // 2 bytes: resident value offset
  static constexpr uint64_t kStartingVcnOffset = 0x10;         // 8 bytes: non-resident first VCN
  static constexpr uint64_t kLastVcnOffset = 0x18;             // 8 bytes: read, not used
  static constexpr uint64_t kMappingPairsOffsetOffset = 0x20;  // 2 bytes: mapping pairs offset
  static constexpr uint64_t kCompressionUnitOffset = 0x22;     // 2 bytes: log2 clusters per unit
  static constexpr uint64_t kAllocatedSizeOffset = 0x28;       // 8 bytes: read, not used
  static constexpr uint64_t kDataSizeOffset = 0x30;            // 8 bytes: value size
  static constexpr uint64_t kInitializedSizeOffset = 0x38;     // 8 bytes: read, not used
  static constexpr uint64_t kCompressedSizeOffset = 0x40;      // 8 bytes: compressed size
  static constexpr uint16_t kFlagCompressed = 0x0001;
  static constexpr uint16_t kFlagSparse = 0x8000;

 private:
  void ReadName(uint8_t nameLength, uint16_t nameOffset);

  std::shared_ptr<io::ISource> source_;  // the MFT record the header lies in
  uint64_t offset_;                      // position of the header inside the record
  uint32_t type_ = 0;                    // attribute type code
  bool resident_ = true;                 // value held inside the record
  bool named_ = false;                   // the header carries a name
  bool compressed_ = false;              // flag 0x0001
  bool sparse_ = false;                  // flag 0x8000
  uint16_t attributeId_ = 0;             // id unique within the file record
  uint32_t recordLength_ = 0;            // length of the header and value
  uint32_t residentValueLength_ = 0;     // resident value length
  uint64_t size_ = 0;                    // value size (first extent only when non-resident)
  uint64_t compressedSize_ = 0;          // compressed size (first extent of a compressed value)
  uint16_t compressionUnit_ = 0;         // log2 of clusters per compression unit
  uint64_t dataOffset_ = 0;              // position of the value or mapping pairs in the record
  uint64_t startingVcn_ = 0;             // first VCN covered by this extent
  std::string name_;                     // the attribute's name in UTF-8; empty when unnamed
};

}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_ATTRIBUTE_RECORD_H_
