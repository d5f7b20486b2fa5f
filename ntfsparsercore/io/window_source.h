// A byte window over another source: a partition of a disk, or a volume
// at a byte offset inside an image. Offset 0 of the window is start of the
// source; reads stop at the window's end.
#ifndef TOLVAR_NTFSPARSERCORE_IO_WINDOW_SOURCE_H_
#define TOLVAR_NTFSPARSERCORE_IO_WINDOW_SOURCE_H_

#include <cstdint>
#include <memory>

#include "ntfsparsercore/io/i_source.h"

namespace ntfsparsercore {
namespace io {

class WindowSource : public ISource {
 public:
  WindowSource(std::shared_ptr<ISource> source, uint64_t start, uint64_t length);

  uint64_t Read(void* buffer, uint64_t size, uint64_t offset) override;
  uint64_t GetSize() override { return length_; }

  // The container the window lies in; a window reads nothing of its own.
  const std::shared_ptr<ISource>& GetSource() const { return source_; }
  // Where the window starts in that container.
  uint64_t GetStart() const { return start_; }

 private:
  std::shared_ptr<ISource> source_;  // the whole container
  uint64_t start_;                   // byte offset of the window in source
  uint64_t length_;                  // bytes in the window
};

}  // namespace io
}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_IO_WINDOW_SOURCE_H_
