// Reads a source's chunks in order on a thread of its own, a few ahead of
// the caller, into buffers that start on a cache line: the caller looks at
// and writes one chunk while the next ones are being read. export uses it,
// so that the kernel's copy of the next chunk into memory overlaps the zero
// test and the writes of this one.
#ifndef TOLVAR_CLI_CHUNK_READ_AHEAD_H_
#define TOLVAR_CLI_CHUNK_READ_AHEAD_H_

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "common/aligned_bytes.h"

namespace tolvarcli {

class ChunkReadAhead {
 public:
  // Fills buffer with the size bytes from offset; false when they cannot
  // be read (after saying why, if anything is to be said).
  using ReadChunk = std::function<bool(uint64_t offset, uint64_t size, uint8_t* buffer)>;

  // Reads the chunkSize-byte chunks of the first totalSize bytes (the last
  // one shorter), at most depth (at least one) of them ahead of the caller.
  ChunkReadAhead(uint64_t totalSize, uint64_t chunkSize, std::size_t depth, ReadChunk read);
  // Stops the reading thread; chunks read and not taken are dropped.
  ~ChunkReadAhead();
  ChunkReadAhead(const ChunkReadAhead&) = delete;
  ChunkReadAhead& operator=(const ChunkReadAhead&) = delete;

  // The next chunk's bytes, valid until the next call, with its offset and
  // size; null after the last chunk or once a read has failed (Failed()).
  const uint8_t* Next(uint64_t* offset, uint64_t* size);
  // A chunk could not be read: Next handed out every chunk before it only.
  bool Failed();

 private:
  void ReadLoop();
  uint64_t SizeOf(uint64_t chunk) const;

  const uint64_t totalSize_;
  const uint64_t chunkSize_;
  const uint64_t chunks_;  // how many chunks there are
  ReadChunk read_;
  std::vector<tolvarcommon::AlignedBytes> buffers_;  // chunk i is read into buffers_[i % size]
  std::mutex mutex_;
  std::condition_variable changed_;  // a chunk was read or released, or a read failed
  uint64_t ready_ = 0;               // chunks read (guarded by mutex_)
  uint64_t released_ = 0;            // chunks the caller is done with (guarded by mutex_)
  bool failed_ = false;              // a read failed (guarded by mutex_)
  bool stopping_ = false;            // the caller is gone (guarded by mutex_)
  uint64_t taken_ = 0;               // chunks handed to the caller (caller's thread only)
  std::thread reader_;
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_CHUNK_READ_AHEAD_H_
