// Decoding of a non-resident attribute's mapping pairs into runs.
#ifndef TOLVAR_NTFSPARSERCORE_RUN_LIST_H_
#define TOLVAR_NTFSPARSERCORE_RUN_LIST_H_

#include <cstdint>
#include <vector>

#include "ntfsparsercore/attribute.h"
#include "ntfsparsercore/attribute_record.h"

namespace ntfsparsercore {

// One run of an attribute's value, in the order the mapping pairs give it.
struct Run {
  uint64_t volumeOffset = 0;  // byte position on the volume (LCN x cluster size); 0 for a sparse run
  uint64_t length = 0;        // bytes (cluster count x cluster size)

  bool operator==(const Run& other) const { return volumeOffset == other.volumeOffset && length == other.length; }
};

using RunList = std::vector<Run>;

// The runs of one attribute record. The LCN accumulator starts at 0.
// An LCN delta field of F bytes is negative when its bit (8F - 1) mod 32
// is set, that bit sign-extended from 32 bits: the top bit of the field for
// F of 1 to 4, bits 31 to 63 for F = 8, and bits 7, 15 and 23 of the field
// for F of 5, 6 and 7. Fields wider than 8 bytes are unsigned.
RunList DecodeRunList(const AttributeRecord& record, uint64_t clusterSize);
// The same runs, appended to runs.
void AppendRuns(const AttributeRecord& record, uint64_t clusterSize, RunList* runs);
// The runs of mapping pairs held in memory, size bytes from pairs on (reads
// past them come back short, as reads past a record's allocated size do).
void AppendRuns(const uint8_t* pairs, uint64_t size, uint64_t clusterSize, RunList* runs);

// The runs of every record of the attribute, in record order.
RunList BuildRunList(const Attribute& attribute, uint64_t clusterSize);

}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_RUN_LIST_H_
