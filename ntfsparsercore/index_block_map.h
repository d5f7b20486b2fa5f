// The index blocks of a directory's index allocation, filed by VCN, and the
// in-order walk of the B-tree below one block.
#ifndef TOLVAR_NTFSPARSERCORE_INDEX_BLOCK_MAP_H_
#define TOLVAR_NTFSPARSERCORE_INDEX_BLOCK_MAP_H_

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "ntfsparsercore/attribute.h"
#include "ntfsparsercore/i_volume.h"
#include "ntfsparsercore/usn_controller.h"

namespace ntfsparsercore {

class IndexBlockMap {
 public:
  // Reads every block of the first index allocation attribute (the
  // directory's attributes of type 0xA0, as MftRecord::GetAttributes(format::kAttributeIndexAllocation)
  // returns them) through a fixed-up "INDX" reader each. A block that is not
  // "INDX" is reported (level 3) and skipped, as is one whose first 24
  // bytes cannot be read; a VCN met twice keeps the later block. The
  // blocks end at the first one of which nothing can be read. No
  // attribute, or a block size of 0, gives an empty map.
  IndexBlockMap(IVolume* volume, const std::vector<std::shared_ptr<Attribute>>& indexAllocations, uint64_t blockSize);

  // The block filed under vcn, or null.
  std::shared_ptr<UsnController> Find(uint64_t vcn) const;

  // Appends to recordNumbers the file record numbers of the block's entries
  // in index order, each sub-node's entries before the entry pointing to it.
  // A null block adds nothing; a sub-node VCN without a block adds nothing,
  // and so does a block that this walk has met before (damaged indexes only).
  void Walk(const std::shared_ptr<UsnController>& block, std::vector<uint64_t>* recordNumbers) const;

  std::size_t GetBlockCount() const { return blocks_.size(); }

  // Index block header, after the multi-sector header.
  static constexpr uint64_t kBlockHeaderSize = 24;
  static constexpr uint64_t kVcnOffset = 0x10;  // 8 bytes: VCN of this block
  static constexpr uint64_t kNodeHeaderOffset =
      0x18;  // the node header (format::kNode*); entry offsets count from here

 private:
  // Files the block at offset; false when nothing of it can be read.
  bool AddBlock(IVolume* volume, const std::shared_ptr<io::ISource>& allocation, uint64_t offset);

  std::map<uint64_t, std::shared_ptr<UsnController>> blocks_;  // block VCN -> its fixed-up reader
};

}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_INDEX_BLOCK_MAP_H_
