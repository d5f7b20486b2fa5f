// Fills a file change map for a compressed file, whose extents are
// compression units: when any volume block under a unit's stored data
// changed, every file block that the unit's logical range steps through is
// marked.
#ifndef TOLVAR_CORE_FILEPROCESSORS_COMPRESSED_PROCESSOR_H_
#define TOLVAR_CORE_FILEPROCESSORS_COMPRESSED_PROCESSOR_H_

#include "core/fileprocessors/plain_processor.h"

namespace tolvarcore {
namespace fileprocessors {

class CompressedProcessor : public PlainProcessor {
 public:
  using PlainProcessor::PlainProcessor;

  void Process(const BitMap& changedBitmap) override;

 protected:
  // Notes that the unit being examined lies on a changed volume block.
  void MarkCurrent() override;

 private:
  // Marks the file blocks of one unit of logicalSize bytes from position_
  // when touched_ is set, and moves the position past the unit.
  void MarkUnit(uint64_t logicalSize);

  bool touched_ = false;  // the unit being examined lies on a changed volume block
};

}  // namespace fileprocessors
}  // namespace tolvarcore

#endif  // TOLVAR_CORE_FILEPROCESSORS_COMPRESSED_PROCESSOR_H_
