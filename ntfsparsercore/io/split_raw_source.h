// A raw image split into numbered pieces (disk.001, disk.002, ...), read as
// one: the pieces in order, each as long as its file.
#ifndef TOLVAR_NTFSPARSERCORE_IO_SPLIT_RAW_SOURCE_H_
#define TOLVAR_NTFSPARSERCORE_IO_SPLIT_RAW_SOURCE_H_

#include <cstdint>
#include <memory>
#include <vector>

#include "ntfsparsercore/io/i_source.h"

namespace ntfsparsercore {
namespace io {

class SplitRawSource : public ISource {
 public:
  explicit SplitRawSource(std::vector<std::unique_ptr<ISource>> pieces);

  uint64_t Read(void* buffer, uint64_t size, uint64_t offset) override;
  uint64_t GetSize() override { return starts_.back(); }

 private:
  std::vector<std::unique_ptr<ISource>> pieces_;  // in order
  std::vector<uint64_t> starts_;                  // offset of each piece, then the total size
};

}  // namespace io
}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_IO_SPLIT_RAW_SOURCE_H_
