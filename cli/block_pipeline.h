// Hands blocks from the thread that reads them to a thread of its own that
// writes them, so that the next blocks are read while earlier ones are
// written. A fixed number of slots go round: Acquire takes a free one (and
// waits while all are queued), Submit queues it, the writer hands each to the
// consumer in the order submitted and frees it. After the consumer fails once,
// no more blocks reach it, Acquire returns null and Finish returns false.
#ifndef TOLVAR_CLI_BLOCK_PIPELINE_H_
#define TOLVAR_CLI_BLOCK_PIPELINE_H_

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace tolvarcli {

class BlockPipeline {
 public:
  // One block on its way: what the reading side found out about it travels
  // with it.
  struct Item {
    uint64_t index = 0;          // block index in the volume
    std::vector<uint8_t> block;  // its contents
    uint64_t oldHash = 0;        // the older shadow copy's fingerprint, where kept
    uint64_t newHash = 0;        // the block's own fingerprint, where kept
    uint64_t flags = 0;          // the record's flags, where kept
  };
  using Consumer = std::function<bool(const Item&)>;

  // slots: how many blocks may be on their way at once (at least one).
  BlockPipeline(std::size_t blockSize, std::size_t slots, Consumer consume);
  // Stops the writer; blocks still queued are dropped.
  ~BlockPipeline();
  BlockPipeline(const BlockPipeline&) = delete;
  BlockPipeline& operator=(const BlockPipeline&) = delete;

  // A free slot to fill, or null once the consumer has failed.
  Item* Acquire();
  // Queues a slot that Acquire returned.
  void Submit(Item* item);
  // Waits until every queued block has been consumed and stops the writer.
  // True when the consumer took all of them.
  bool Finish();

 private:
  void WriteLoop();

  Consumer consume_;
  std::vector<Item> items_;
  std::mutex mutex_;
  // Each side is woken only when it waits for what the other just gave:
  // a wake-up per block would cost more than the copy it overlaps.
  std::condition_variable slotFreed_;    // the reader waits here for a free slot
  std::condition_variable blockQueued_;  // the writer waits here for a queued block
  bool readerWaits_ = false;             // (guarded by mutex_)
  bool writerWaits_ = false;             // (guarded by mutex_)
  std::vector<Item*> free_;              // slots to fill (guarded by mutex_)
  std::deque<Item*> queued_;             // slots to consume, in order (guarded by mutex_)
  bool failed_ = false;                  // the consumer returned false (guarded by mutex_)
  bool closing_ = false;                 // no more blocks come (guarded by mutex_)
  std::thread writer_;
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_BLOCK_PIPELINE_H_
