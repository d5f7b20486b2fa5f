// Fills a file change map for a file stored as is: bit i of the map is set
// when the volume blocks under the file's block i hold a set bit of the
// handle's changed-block bitmap.
#ifndef TOLVAR_CORE_FILEPROCESSORS_PLAIN_PROCESSOR_H_
#define TOLVAR_CORE_FILEPROCESSORS_PLAIN_PROCESSOR_H_

#include <cstdint>
#include <memory>

#include "core/bit_map.h"
#include "ntfsparsercore/io/ntfs_file.h"

namespace tolvarcore {
namespace fileprocessors {

class PlainProcessor {
 public:
  PlainProcessor(std::shared_ptr<ntfsparsercore::io::NtfsFile> file, std::shared_ptr<BitMap> fileBitmap,
                 uint64_t blockSize);
  PlainProcessor(const PlainProcessor&) = delete;
  PlainProcessor& operator=(const PlainProcessor&) = delete;

  // Walks the file's extents in file order against changedBitmap (one bit
  // per block of the volume) and marks the file blocks that lie on changed
  // volume blocks.
  virtual void Process(const BitMap& changedBitmap);
  virtual ~PlainProcessor();

 protected:
  // Sets the file bitmap's bit for the block holding the current position.
  virtual void MarkCurrent();

  // Walks one stored piece of length bytes at volumeOffset block by block
  // of the file, calling MarkCurrent for each step that touches a changed
  // volume block, and advances the position by length.
  void WalkPiece(const BitMap& changedBitmap, uint64_t volumeOffset, uint64_t length);

  // Whether a changed volume block lies under length bytes at volumeOffset.
  bool Touches(const BitMap& changedBitmap, uint64_t volumeOffset, uint64_t length) const;

  uint64_t blockSize_;                                  // the handle's block size in bytes
  uint64_t position_ = 0;                               // current byte position in the file
  std::shared_ptr<BitMap> fileBitmap_;                  // the file change map being filled
  std::shared_ptr<ntfsparsercore::io::NtfsFile> file_;  // the newer version of the file
};

}  // namespace fileprocessors
}  // namespace tolvarcore

#endif  // TOLVAR_CORE_FILEPROCESSORS_PLAIN_PROCESSOR_H_
