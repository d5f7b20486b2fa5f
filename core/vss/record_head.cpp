#include "core/vss/record_head.h"

#include "common/error_queue.h"
#include "core/vss/store_format.h"

using tolvarcommon::kErrorIo;
using tolvarcommon::ReportError;

namespace tolvarcore {
namespace vss {

RecordHead RecordHead::Read(VssRecord* record) {
  RecordHead head;
  uint8_t bytes[format::kInfoHeadSize] = {};
  if (record == nullptr || record->Read(bytes, sizeof(bytes), 0) != sizeof(bytes)) {
    ReportError(kErrorIo, "Failed to read header record");
    return head;
  }
  head.firstIdentifier = Guid::FromBytes(bytes + format::kInfoShadowCopyId);
  head.setIdentifier = Guid::FromBytes(bytes + format::kInfoShadowCopySetId);
  return head;
}

}  // namespace vss
}  // namespace tolvarcore
