// A read cache in front of another source that several threads may read
// through at once: lines of a fixed size, spread over shards that each
// have a lock of their own and drop their least recently used line first.
// Whole lines inside a request are read straight from the source into the
// caller's buffer, in one read, and are not kept: a long sequential read
// costs no copy and does not push out the lines that small reads share.
// The source must itself allow reads from several threads at once.
#ifndef TOLVAR_NTFSPARSERCORE_IO_SHARED_LINE_CACHE_H_
#define TOLVAR_NTFSPARSERCORE_IO_SHARED_LINE_CACHE_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "common/aligned_bytes.h"
#include "ntfsparsercore/io/i_source.h"

namespace ntfsparsercore {
namespace io {

class SharedLineCache : public ISource {
 public:
  // Keeps up to lineCount lines of lineSize bytes (both above 0) of source,
  // whose size is taken once, here.
  SharedLineCache(std::shared_ptr<ISource> source, uint64_t lineSize, std::size_t lineCount);

  SharedLineCache(const SharedLineCache&) = delete;
  SharedLineCache& operator=(const SharedLineCache&) = delete;

  // Delivers what the source delivers for the same request. A line whose
  // read came back short is passed on as far as it came and not kept.
  uint64_t Read(void* buffer, uint64_t size, uint64_t offset) override;
  uint64_t GetSize() override { return size_; }

  // Reads answered from a kept line, and lines read into the cache; for
  // inspection.
  uint64_t Hits() const;
  uint64_t Loads() const;

 private:
  struct Line {
    uint64_t index = 0;               // which line of the source it holds
    uint64_t lastUse = 0;             // the shard's clock at its last use; 0: empty
    tolvarcommon::AlignedArray data;  // lineSize_ bytes, the line's length of them valid
  };
  struct Shard {
    std::mutex mutex;         // guards everything below
    std::vector<Line> lines;  // the shard's share of the lines
    uint64_t clock = 0;       // counts uses, for least-recently-used order
    uint64_t hits = 0;
    uint64_t loads = 0;
  };

  uint64_t ReadWholeLines(uint8_t* buffer, uint64_t lines, uint64_t offset);
  uint64_t ReadThroughLine(uint8_t* buffer, uint64_t size, uint64_t offset);
  bool CopyKept(Shard& shard, uint64_t index, uint64_t within, uint64_t size, uint8_t* out);
  void Keep(Shard& shard, uint64_t index, tolvarcommon::AlignedArray data);
  uint64_t LineLength(uint64_t index) const;
  Shard& ShardOf(uint64_t index) { return *shards_[index % shards_.size()]; }

  std::shared_ptr<ISource> source_;             // the source that is cached
  uint64_t size_;                               // the source's size
  uint64_t lineSize_;                           // bytes per line
  std::vector<std::unique_ptr<Shard>> shards_;  // line i lives in shard i mod count
};

}  // namespace io
}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_IO_SHARED_LINE_CACHE_H_
