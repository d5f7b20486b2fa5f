// The head of a shadow copy's store information (format::kInfo*), as the
// snapshot code reads it from the snapshot's store header record.
#ifndef TOLVAR_CORE_VSS_RECORD_HEAD_H_
#define TOLVAR_CORE_VSS_RECORD_HEAD_H_

#include <cstdint>

#include "core/vss/guid.h"
#include "core/vss/vss_record.h"

namespace tolvarcore {
namespace vss {

struct RecordHead {
  Guid firstIdentifier;  // the shadow copy ID
  Guid setIdentifier;    // the shadow copy set ID

  // Reads the head at payload offset 0. A read that does not return
  // format::kInfoHeadSize (48) bytes reports "Failed to read header record" (code 1) and leaves both
  // identifiers zero. A null record reads as an empty one.
  static RecordHead Read(VssRecord* record);
};

}  // namespace vss
}  // namespace tolvarcore

#endif  // TOLVAR_CORE_VSS_RECORD_HEAD_H_
