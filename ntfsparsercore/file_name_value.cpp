#include "ntfsparsercore/file_name_value.h"

#include "ntfsparsercore/io/little_endian.h"
#include "ntfsparsercore/ntfs_format.h"
#include "ntfsparsercore/utf16_name.h"

namespace ntfsparsercore {

bool FileNameValue::ReadHeader(io::ISource& value) { return value.Read(header_, kHeaderSize, 0) >= kHeaderSize; }

uint64_t FileNameValue::ParentRecordNumber() const {
  return format::RecordNumberOf(io::LoadLe64(header_ + kParentReference));
}

std::string FileNameValue::ReadName(io::ISource& value) const {
  const uint8_t length = NameLength();
  uint8_t name[kNameBufferSize] = {};
  value.Read(name, uint64_t{2} * length, kName);
  return Utf16LeToUtf8(name, length);
}

}  // namespace ntfsparsercore
