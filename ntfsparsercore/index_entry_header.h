// The header of one index entry (format::kEntry*): the file the entry
// names, the step to the next entry, and whether it ends its node or leads
// to a sub-node. The index root and the index blocks read their entries
// through it.
#ifndef TOLVAR_NTFSPARSERCORE_INDEX_ENTRY_HEADER_H_
#define TOLVAR_NTFSPARSERCORE_INDEX_ENTRY_HEADER_H_

#include <cstdint>

#include "ntfsparsercore/ntfs_format.h"

namespace ntfsparsercore {

struct IndexEntryHeader {
  uint64_t fileReference = 0;  // the file the entry names
  uint16_t length = 0;         // bytes from this entry to the next
  uint32_t flags = 0;          // format::kEntryFlag* bits

  // Reads the header from format::kEntryHeaderSize bytes at bytes.
  static IndexEntryHeader Parse(const uint8_t* bytes);

  uint64_t RecordNumber() const { return format::RecordNumberOf(fileReference); }
  bool HasSubNode() const { return (flags & format::kEntryFlagHasSubNode) != 0; }
  bool IsLast() const { return (flags & format::kEntryFlagLast) != 0; }

  // Where the sub-node VCN of an entry at position lies: its last 8 bytes.
  uint64_t SubNodeVcnPosition(uint64_t position) const { return position + length - format::kSubNodeVcnSize; }
};

}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_INDEX_ENTRY_HEADER_H_
