#include "ntfsparsercore/io/ntfs_file.h"

#include "ntfsparsercore/mft_record.h"
#include "ntfsparsercore/ntfs_format.h"

namespace ntfsparsercore {
namespace io {

NtfsFile::NtfsFile(const std::shared_ptr<MftRecord>& record) {
  if (!record || !record->IsInUse()) return;
  MftRecord::AttributeList data = record->GetAttributes(format::kAttributeData);
  for (const auto& attribute : data) {
    if (attribute->IsNamed()) continue;
    attribute_ = std::make_unique<Attribute>(*attribute);
    reader_ = attribute_->CreateReader();
    return;
  }
}

uint64_t NtfsFile::Read(void* buffer, uint64_t size, uint64_t offset) {
  if (!reader_) return 0;
  const uint64_t end = GetSize();
  if (offset > end) return 0;
  if (size > end - offset) size = end - offset;
  return reader_->Read(buffer, size, offset);
}

uint64_t NtfsFile::GetSize() { return reader_ ? reader_->GetSize() : 0; }

attributes::readers::ExtentList NtfsFile::GetExtents() {
  return reader_ ? reader_->GetExtents() : attributes::readers::ExtentList();
}

bool NtfsFile::IsResident() { return attribute_ ? attribute_->IsResident() : true; }

bool NtfsFile::IsCompressed() { return attribute_ ? attribute_->IsCompressed() : false; }

bool NtfsFile::IsSparse() { return attribute_ ? attribute_->IsSparse() : false; }

}  // namespace io
}  // namespace ntfsparsercore
