#include "ntfsparsercore/attribute.h"

#include "common/error_queue.h"
#include "ntfsparsercore/attributes/readers/readers_factory.h"

using tolvarcommon::kErrorInvalid;
using tolvarcommon::ReportError;

namespace ntfsparsercore {

Attribute::Attribute(std::shared_ptr<attributes::readers::ReadersFactory> readersFactory, RecordList records)
    : readersFactory_(std::move(readersFactory)), records_(std::move(records)) {
  if (records_.empty() || !records_.front()) {
    ReportError(kErrorInvalid, "Attribute: records are empty");
    return;
  }
  const AttributeRecord& first = *records_.front();
  if (first.GetType() > AttributeRecord::kMaxType) {
    ReportError(kErrorInvalid, "Attribute: input records do not have standard ntfs records");
    return;
  }
  type_ = first.GetType();
  resident_ = first.IsResident();
  compressed_ = first.IsCompressed();
  sparse_ = first.IsSparse();
  named_ = first.IsNamed();
  recordLength_ = first.GetRecordLength();
  attributeId_ = first.GetAttributeId();
  name_ = first.GetName();
  size_ = first.GetSize();
  compressedSize_ = first.GetCompressedSize();
  compressionUnit_ = first.GetCompressionUnit();
  residentValueLength_ = first.GetResidentValueLength();
}

std::shared_ptr<attributes::readers::IReader> Attribute::CreateReader() const {
  if (!readersFactory_) return nullptr;
  return readersFactory_->Create(*this);
}

}  // namespace ntfsparsercore
