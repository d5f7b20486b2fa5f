#include "core/vss/record_head.h"

#include "common/error_queue.h"

using tolvarcommon::kErrorIo;
using tolvarcommon::ReportError;

namespace tolvarcore {
namespace vss {

RecordHead RecordHead::Read(VssRecord* record) {
  RecordHead head;
  uint8_t bytes[kSize] = {};
  if (record == nullptr || record->Read(bytes, sizeof(bytes), 0) != sizeof(bytes)) {
    ReportError(kErrorIo, "Failed to read header record");
    return head;
  }
  head.firstIdentifier = Guid::FromBytes(bytes + 16);
  head.setIdentifier = Guid::FromBytes(bytes + 32);
  return head;
}

}  // namespace vss
}  // namespace tolvarcore
