#include "ntfsparsercore/io/shared_line_cache.h"

#include <algorithm>
#include <cstring>

namespace ntfsparsercore {
namespace io {

namespace {

// Enough locks that a handful of reading threads rarely meet on one.
constexpr std::size_t kMostShards = 16;

}  // namespace

SharedLineCache::SharedLineCache(std::shared_ptr<ISource> source, uint64_t lineSize, std::size_t lineCount)
    : source_(std::move(source)), size_(source_->GetSize()), lineSize_(lineSize) {
  const std::size_t shardCount = std::max<std::size_t>(1, std::min(lineCount, kMostShards));
  const std::size_t linesPerShard = std::max<std::size_t>(1, (lineCount + shardCount - 1) / shardCount);
  for (std::size_t k = 0; k < shardCount; ++k) {
    shards_.push_back(std::make_unique<Shard>());
    shards_.back()->lines.resize(linesPerShard);
  }
}

uint64_t SharedLineCache::Read(void* buffer, uint64_t size, uint64_t offset) {
  if (offset >= size_) return 0;
  size = std::min(size, size_ - offset);
  uint8_t* out = static_cast<uint8_t*>(buffer);
  uint64_t delivered = 0;
  while (delivered < size) {
    const uint64_t position = offset + delivered;
    const uint64_t within = position % lineSize_;
    const uint64_t wholeLines = within == 0 ? (size - delivered) / lineSize_ : 0;
    uint64_t wanted;
    uint64_t got;
    if (wholeLines > 0) {
      wanted = wholeLines * lineSize_;
      got = ReadWholeLines(out + delivered, wholeLines, position);
    } else {
      wanted = std::min(lineSize_ - within, size - delivered);
      got = ReadThroughLine(out + delivered, wanted, position);
    }
    delivered += got;
    if (got != wanted) break;
  }
  return delivered;
}

uint64_t SharedLineCache::ReadWholeLines(uint8_t* buffer, uint64_t lines, uint64_t offset) {
  return source_->Read(buffer, lines * lineSize_, offset);
}

// Part of one line: from a kept copy, or from a fresh read of the whole
// line that is then kept. The source is read without any lock held, so
// threads wait on each other only while copying.
uint64_t SharedLineCache::ReadThroughLine(uint8_t* buffer, uint64_t size, uint64_t offset) {
  const uint64_t index = offset / lineSize_;
  const uint64_t within = offset % lineSize_;
  Shard& shard = ShardOf(index);
  if (CopyKept(shard, index, within, size, buffer)) return size;

  tolvarcommon::AlignedArray data = tolvarcommon::AllocateAligned(static_cast<std::size_t>(lineSize_));
  const uint64_t length = LineLength(index);
  const uint64_t got = source_->Read(data.get(), length, index * lineSize_);
  const uint64_t usable = got > within ? std::min(size, got - within) : 0;
  std::memcpy(buffer, data.get() + within, static_cast<std::size_t>(usable));
  if (got == length) Keep(shard, index, std::move(data));
  return usable;
}

bool SharedLineCache::CopyKept(Shard& shard, uint64_t index, uint64_t within, uint64_t size, uint8_t* out) {
  std::lock_guard<std::mutex> lock(shard.mutex);
  for (Line& line : shard.lines) {
    if (line.lastUse == 0 || line.index != index) continue;
    std::memcpy(out, line.data.get() + within, static_cast<std::size_t>(size));
    line.lastUse = ++shard.clock;
    ++shard.hits;
    return true;
  }
  return false;
}

// Another thread may have kept the same line meanwhile; the copy is then
// simply kept twice until one of them ages out.
void SharedLineCache::Keep(Shard& shard, uint64_t index, tolvarcommon::AlignedArray data) {
  std::lock_guard<std::mutex> lock(shard.mutex);
  Line* oldest = &shard.lines.front();
  for (Line& line : shard.lines) {
    if (line.lastUse < oldest->lastUse) oldest = &line;
  }
  oldest->index = index;
  oldest->data = std::move(data);
  oldest->lastUse = ++shard.clock;
  ++shard.loads;
}

uint64_t SharedLineCache::LineLength(uint64_t index) const { return std::min(lineSize_, size_ - index * lineSize_); }

uint64_t SharedLineCache::Hits() const {
  uint64_t hits = 0;
  for (const auto& shard : shards_) {
    std::lock_guard<std::mutex> lock(shard->mutex);
    hits += shard->hits;
  }
  return hits;
}

uint64_t SharedLineCache::Loads() const {
  uint64_t loads = 0;
  for (const auto& shard : shards_) {
    std::lock_guard<std::mutex> lock(shard->mutex);
    loads += shard->loads;
  }
  return loads;
}

}  // namespace io
}  // namespace ntfsparsercore
