// The value of an index root attribute (0x90): its own header, then the
// node header of the entries kept in the file record itself.
#ifndef TOLVAR_NTFSPARSERCORE_INDEX_ROOT_H_
#define TOLVAR_NTFSPARSERCORE_INDEX_ROOT_H_

#include <cstdint>

#include "ntfsparsercore/io/i_source.h"

namespace ntfsparsercore {

struct IndexRoot {
  // The index root header.
  static constexpr uint64_t kHeaderSize = 16;
  static constexpr uint64_t kAttributeType = 0x00;          // 4 bytes: type of the indexed attribute
  static constexpr uint64_t kCollationRule = 0x04;          // 4 bytes: how keys are ordered
  static constexpr uint64_t kBytesPerIndexBlock = 0x08;     // 4 bytes: size of one index block
  static constexpr uint64_t kClustersPerIndexBlock = 0x0C;  // 1 byte
  static constexpr uint64_t kNodeHeaderOffset = 0x10;       // the node header; entry offsets count from here

  uint64_t blockSize = 0;   // bytes per index block
  uint64_t firstEntry = 0;  // position of the first entry within the value

  // Reads the root header, then the node header, from the value; false
  // when either cannot be read in full.
  static bool Read(io::ISource& value, IndexRoot* root);
};

}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_INDEX_ROOT_H_
