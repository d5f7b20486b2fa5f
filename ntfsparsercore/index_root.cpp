#include "ntfsparsercore/index_root.h"

#include "ntfsparsercore/io/little_endian.h"
#include "ntfsparsercore/ntfs_format.h"

namespace ntfsparsercore {

bool IndexRoot::Read(io::ISource& value, IndexRoot* root) {
  uint8_t rootHeader[kHeaderSize];
  uint8_t nodeHeader[format::kNodeHeaderSize];
  if (value.Read(rootHeader, kHeaderSize, 0) < kHeaderSize ||
      value.Read(nodeHeader, format::kNodeHeaderSize, kNodeHeaderOffset) < format::kNodeHeaderSize) {
    return false;
  }
  root->blockSize = io::LoadLe32(rootHeader + kBytesPerIndexBlock);
  root->firstEntry = kNodeHeaderOffset + io::LoadLe32(nodeHeader + format::kNodeEntriesOffset);
  return true;
}

}  // namespace ntfsparsercore
