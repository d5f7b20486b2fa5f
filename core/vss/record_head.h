// The first 48 bytes of a store record's payload, as the snapshot code
// reads them from a snapshot's store header record.
#ifndef TOLVAR_CORE_VSS_RECORD_HEAD_H_
#define TOLVAR_CORE_VSS_RECORD_HEAD_H_

#include <cstdint>

#include "core/vss/guid.h"
#include "core/vss/vss_record.h"

namespace tolvarcore {
namespace vss {

struct RecordHead {
  static constexpr uint64_t kSize = 48;

  Guid firstIdentifier;  // payload offset 16: the shadow copy ID
  Guid setIdentifier;    // payload offset 32: the shadow copy set ID

  // Reads the head at payload offset 0. A read that does not return 48
  // bytes reports "Failed to read header record" (code 1) and leaves both
  // identifiers zero. A null record reads as an empty one.
  static RecordHead Read(VssRecord* record);
};

}  // namespace vss
}  // namespace tolvarcore

#endif  // TOLVAR_CORE_VSS_RECORD_HEAD_H_
