#include "ntfsparsercore/attribute_record.h"

#include <vector>

#include "common/error_queue.h"
#include "ntfsparsercore/io/little_endian.h"
#include "ntfsparsercore/utf16_name.h"

using tolvarcommon::kErrorFormat;
using tolvarcommon::ReportError;

namespace ntfsparsercore {

using io::LoadLe16;
using io::LoadLe32;
using io::LoadLe64;

AttributeRecord::AttributeRecord(std::shared_ptr<io::ISource> mftRecord, uint64_t offset)
    : source_(std::move(mftRecord)), offset_(offset) {
  uint8_t header[kHeaderSize] = {};  // a short read leaves zeros
  if (source_) source_->Read(header, kHeaderSize, offset_);
  type_ = LoadLe32(header + kTypeOffset);
  if (type_ > kMaxType) {
    ReportError(kErrorFormat, "Unexpected attribute type was expected(%u), actual(%u)", kMaxType, type_);
    return;
  }
  const uint16_t flags = LoadLe16(header + kFlagsOffset);
  const uint8_t nameLength = header[kNameLengthOffset];
  resident_ = header[kNonResidentOffset] == 0;
  compressed_ = (flags & kFlagCompressed) != 0;
  sparse_ = (flags & kFlagSparse) != 0;
  named_ = nameLength != 0;
  recordLength_ = LoadLe32(header + kRecordLengthOffset);
  attributeId_ = LoadLe16(header + kAttributeIdOffset);
  dataOffset_ = offset_;
  if (named_) ReadName(nameLength, LoadLe16(header + kNameOffsetOffset));
  if (resident_) {
    residentValueLength_ = LoadLe32(header + kValueLengthOffset);
    size_ = residentValueLength_;
    dataOffset_ += LoadLe16(header + kValueOffsetOffset);
    return;
  }
  startingVcn_ = LoadLe64(header + kStartingVcnOffset);
  if (startingVcn_ == 0) {
    size_ = LoadLe64(header + kDataSizeOffset);
    if (compressed_) {
      compressedSize_ = LoadLe64(header + kCompressedSizeOffset);
      compressionUnit_ = LoadLe16(header + kCompressionUnitOffset);
    }
  }
  dataOffset_ += LoadLe16(header + kMappingPairsOffsetOffset);
}

void AttributeRecord::ReadName(uint8_t nameLength, uint16_t nameOffset) {
  std::vector<uint8_t> units(2u * nameLength + 2, 0);  // the name and a zero code unit
  if (source_) source_->Read(units.data(), uint64_t{2} * nameLength, offset_ + nameOffset);
  name_ = Utf16LeToUtf8(units.data(), nameLength + 1u);
}

uint64_t AttributeRecord::Read(void* buffer, uint64_t count, uint64_t position) const {
  if (!source_) return 0;
  return source_->Read(buffer, count, dataOffset_ + position);
}

}  // namespace ntfsparsercore
