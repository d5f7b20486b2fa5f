#include "cli/chunk_read_ahead.h"

#include <algorithm>
#include <utility>

namespace tolvarcli {

ChunkReadAhead::ChunkReadAhead(uint64_t totalSize, uint64_t chunkSize, std::size_t depth, ReadChunk read)
    : totalSize_(totalSize),
      chunkSize_(chunkSize),
      chunks_(chunkSize == 0 ? 0 : (totalSize + chunkSize - 1) / chunkSize),
      read_(std::move(read)) {
  const std::size_t count = static_cast<std::size_t>(std::min<uint64_t>(std::max<std::size_t>(depth, 1), chunks_));
  for (std::size_t index = 0; index < count; ++index) buffers_.emplace_back(static_cast<std::size_t>(chunkSize));
  reader_ = std::thread(&ChunkReadAhead::ReadLoop, this);
}

ChunkReadAhead::~ChunkReadAhead() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  reader_.join();
}

uint64_t ChunkReadAhead::SizeOf(uint64_t chunk) const { return std::min(chunkSize_, totalSize_ - chunk * chunkSize_); }

void ChunkReadAhead::ReadLoop() {
  for (uint64_t chunk = 0; chunk < chunks_; ++chunk) {
    {
      std::unique_lock<std::mutex> lock(mutex_);
      // A buffer is free once the chunk read into it before has been released.
      changed_.wait(lock, [&] { return stopping_ || chunk - released_ < buffers_.size(); });
      if (stopping_) return;
    }
    const bool read = read_(chunk * chunkSize_, SizeOf(chunk), buffers_[chunk % buffers_.size()].data());
    {
      std::lock_guard<std::mutex> lock(mutex_);
      if (read) {
        ready_ = chunk + 1;
      } else {
        failed_ = true;
      }
    }
    changed_.notify_all();
    if (!read) return;
  }
}

const uint8_t* ChunkReadAhead::Next(uint64_t* offset, uint64_t* size) {
  std::unique_lock<std::mutex> lock(mutex_);
  if (released_ != taken_) {
    released_ = taken_;
    changed_.notify_all();
  }
  if (taken_ == chunks_) return nullptr;
  changed_.wait(lock, [&] { return ready_ > taken_ || failed_; });
  if (ready_ <= taken_) return nullptr;
  const uint64_t chunk = taken_++;
  *offset = chunk * chunkSize_;
  *size = SizeOf(chunk);
  return buffers_[chunk % buffers_.size()].data();
}

bool ChunkReadAhead::Failed() {
  std::lock_guard<std::mutex> lock(mutex_);
  return failed_;
}

}  // namespace tolvarcli
