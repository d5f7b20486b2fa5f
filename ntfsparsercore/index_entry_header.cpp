#include "ntfsparsercore/index_entry_header.h"

#include "ntfsparsercore/io/little_endian.h"

namespace ntfsparsercore {

IndexEntryHeader IndexEntryHeader::Parse(const uint8_t* bytes) {
  IndexEntryHeader header;
  header.fileReference = io::LoadLe64(bytes + format::kEntryFileReference);
  header.length = io::LoadLe16(bytes + format::kEntryLength);
  header.flags = io::LoadLe32(bytes + format::kEntryFlags);
  return header;
}

}  // namespace ntfsparsercore
