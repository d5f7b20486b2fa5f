#include "ntfsparsercore/index_block_map.h"

#include <algorithm>
#include <set>

#include "ntfsparsercore/attributes/readers/i_reader.h"
#include "ntfsparsercore/index_entry_header.h"
#include "ntfsparsercore/io/little_endian.h"
#include "ntfsparsercore/ntfs_format.h"

namespace ntfsparsercore {

IndexBlockMap::IndexBlockMap(IVolume* volume, const std::vector<std::shared_ptr<Attribute>>& indexAllocations,
                             uint64_t blockSize) {
  if (indexAllocations.empty() || !indexAllocations.front()) return;
  std::shared_ptr<io::ISource> reader = indexAllocations.front()->CreateReader();
  // A block size of 0 would divide by zero: no blocks then.
  if (!reader || blockSize == 0) return;
  // The allocation is stored on the volume, so a sound one is no larger than
  // it: a damaged size beyond that (a huge sparse run) would be tried block
  // by block.
  uint64_t size = reader->GetSize();
  if (volume) size = std::min(size, volume->GetSize());
  const uint64_t count = size / blockSize;
  for (uint64_t i = 0; i < count; ++i) {
    if (!AddBlock(volume, reader, i * blockSize)) break;
  }
}

bool IndexBlockMap::AddBlock(IVolume* volume, const std::shared_ptr<io::ISource>& allocation, uint64_t offset) {
  auto block = std::make_shared<UsnController>(volume, allocation, offset, UsnController::kIndxMagic);
  if (block->GetMagic() != UsnController::kIndxMagic) {
    // A block of which not one byte can be read lies past the allocation's
    // stored bytes, and so do all after it: a damaged allocation size would
    // otherwise mean billions of failing reads.
    uint8_t probe = 0;
    return allocation->Read(&probe, 1, offset) == 1;
  }
  uint8_t header[kBlockHeaderSize];
  if (block->Read(header, kBlockHeaderSize, 0) < kBlockHeaderSize) return true;
  blocks_[io::LoadLe64(header + kVcnOffset)] = block;
  return true;
}

std::shared_ptr<UsnController> IndexBlockMap::Find(uint64_t vcn) const {
  auto it = blocks_.find(vcn);
  return it == blocks_.end() ? nullptr : it->second;
}

void IndexBlockMap::Walk(const std::shared_ptr<UsnController>& root, std::vector<uint64_t>* recordNumbers) const {
  // The recursion of the B-tree walk, kept on an explicit stack: each frame
  // is a block and the position of the entry to read next in it.
  struct Frame {
    UsnController* block;
    uint64_t position;
  };
  std::vector<Frame> stack;
  // Blocks walked so far. A valid index refers to each block once; in a
  // damaged one a sub-node pointing back up would walk forever, and blocks
  // referred to again and again would multiply the walk, so a block met a
  // second time adds nothing.
  std::set<const UsnController*> walked;
  auto enter = [&](UsnController* block) {
    if (!block || !walked.insert(block).second) return;
    uint8_t node[format::kNodeHeaderSize];
    if (block->Read(node, format::kNodeHeaderSize, kNodeHeaderOffset) < format::kNodeHeaderSize) return;
    stack.push_back(Frame{block, io::LoadLe32(node + format::kNodeEntriesOffset) + kNodeHeaderOffset});
  };
  auto leave = [&]() { stack.pop_back(); };
  enter(root.get());
  // A frame whose sub-node has been walked resumes at its entry with this
  // flag set, so the entry is listed rather than descended into again.
  bool resumed = false;
  while (!stack.empty()) {
    Frame& frame = stack.back();
    uint8_t bytes[format::kEntryHeaderSize] = {};  // a short read leaves zeros
    frame.block->Read(bytes, format::kEntryHeaderSize, frame.position);
    const IndexEntryHeader entry = IndexEntryHeader::Parse(bytes);
    if (entry.HasSubNode() && !resumed) {
      uint8_t vcn[format::kSubNodeVcnSize];
      if (frame.block->Read(vcn, format::kSubNodeVcnSize, entry.SubNodeVcnPosition(frame.position)) <
          format::kSubNodeVcnSize) {
        leave();
        resumed = true;
        continue;
      }
      const std::size_t depth = stack.size();
      enter(Find(io::LoadLe64(vcn)).get());
      resumed = stack.size() == depth;  // nothing to descend into: go on with this entry
      continue;
    }
    resumed = false;
    if (entry.IsLast()) {
      leave();
      resumed = true;
      continue;
    }
    recordNumbers->push_back(entry.RecordNumber());
    // An entry of length 0 would be listed again forever: it ends the block.
    if (entry.length == 0) {
      leave();
      resumed = true;
      continue;
    }
    frame.position += entry.length;
  }
}

}  // namespace ntfsparsercore
