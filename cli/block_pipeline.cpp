#include "cli/block_pipeline.h"

#include <algorithm>
#include <utility>

namespace tolvarcli {

BlockPipeline::BlockPipeline(std::size_t blockSize, std::size_t slots, Consumer consume)
    : consume_(std::move(consume)), items_(std::max<std::size_t>(slots, 1)) {
  for (Item& item : items_) {
    item.block.resize(blockSize);
    free_.push_back(&item);
  }
  writer_ = std::thread(&BlockPipeline::WriteLoop, this);
}

BlockPipeline::~BlockPipeline() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    closing_ = true;
    failed_ = true;  // drops what is still queued
  }
  blockQueued_.notify_all();
  if (writer_.joinable()) writer_.join();
}

BlockPipeline::Item* BlockPipeline::Acquire() {
  std::unique_lock<std::mutex> lock(mutex_);
  readerWaits_ = true;
  slotFreed_.wait(lock, [this] { return failed_ || !free_.empty(); });
  readerWaits_ = false;
  if (failed_) return nullptr;
  Item* item = free_.back();
  free_.pop_back();
  return item;
}

void BlockPipeline::Submit(Item* item) {
  bool wake = false;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    queued_.push_back(item);
    wake = writerWaits_;
  }
  if (wake) blockQueued_.notify_one();
}

bool BlockPipeline::Finish() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    closing_ = true;
  }
  blockQueued_.notify_one();
  if (writer_.joinable()) writer_.join();
  std::lock_guard<std::mutex> lock(mutex_);
  return !failed_;
}

void BlockPipeline::WriteLoop() {
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    writerWaits_ = true;
    blockQueued_.wait(lock, [this] { return failed_ || closing_ || !queued_.empty(); });
    writerWaits_ = false;
    if (failed_ || queued_.empty()) return;  // failed, or closing with nothing left
    Item* item = queued_.front();
    queued_.pop_front();
    lock.unlock();
    const bool consumed = consume_(*item);
    lock.lock();
    free_.push_back(item);
    if (!consumed) failed_ = true;
    if (readerWaits_ || failed_) slotFreed_.notify_one();
  }
}

}  // namespace tolvarcli
