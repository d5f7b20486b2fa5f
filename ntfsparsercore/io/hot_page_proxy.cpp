#include "ntfsparsercore/io/hot_page_proxy.h"

#include <algorithm>
#include <functional>
#include <numeric>

namespace ntfsparsercore {
namespace io {

// The victim is the proxy with the smallest last-use stamp; among equal
// stamps the one whose address orders first wins. Every use stamps a proxy
// with a fresh, strictly larger counter value, so the proxies form one
// recency list: those never used (stamp 0) first in address order, then the
// used ones in the order of their last use. The victim is its head, found in
// constant time, and a use moves a proxy to its tail.

HotPageProxy::HotPageProxy(std::shared_ptr<ISource> source, uint64_t pageSize, uint64_t pageCount)
    : source_(std::move(source)), pageSize_(pageSize) {
  const uint64_t count = std::max<uint64_t>(pageCount, 1);
  slots_.resize(static_cast<std::size_t>(count));
  for (std::size_t i = 0; i < slots_.size(); ++i) {
    slots_[i].proxy.reset(new CacheProxy(source_, pageSize_));
    slots_[i].page = i;
    pageMap_[i] = i;
  }
  std::vector<std::size_t> byAddress(slots_.size());
  std::iota(byAddress.begin(), byAddress.end(), 0);
  std::sort(byAddress.begin(), byAddress.end(), [this](std::size_t a, std::size_t b) {
    return std::less<const CacheProxy*>()(slots_[a].proxy.get(), slots_[b].proxy.get());
  });
  for (std::size_t slot : byAddress) AppendNewest(slot);
}

uint64_t HotPageProxy::Read(void* buffer, uint64_t size, uint64_t offset) {
  // A page size of 0 would divide by zero; such a pool delivers nothing.
  if (size == 0 || pageSize_ == 0) return 0;
  uint8_t* out = static_cast<uint8_t*>(buffer);
  uint64_t done = 0;
  while (done < size) {
    const uint64_t position = offset + done;
    const uint64_t n = std::min(pageSize_, size - done);
    ++accessCounter_;
    const uint64_t page = position / pageSize_;
    std::size_t slot;
    if (newest_ != kNone && slots_[newest_].page == page) {
      // The page used last: its proxy is already at the recency list's tail.
      slot = newest_;
      slots_[slot].lastUse = accessCounter_;
    } else {
      auto hit = pageMap_.find(page);
      if (hit != pageMap_.end()) {
        slot = hit->second;
      } else {
        slot = TakeVictim();
        pageMap_.erase(slots_[slot].page);
        pageMap_[page] = slot;
        slots_[slot].page = page;
      }
      Touch(slot);
    }
    const uint64_t delivered = slots_[slot].proxy->Read(out + done, n, position);
    if (delivered == 0) break;
    done += delivered;
  }
  return done;
}

uint64_t HotPageProxy::GetSize() { return source_->GetSize(); }

std::size_t HotPageProxy::TakeVictim() { return oldest_; }

void HotPageProxy::Touch(std::size_t slot) {
  slots_[slot].lastUse = accessCounter_;
  Unlink(slot);
  AppendNewest(slot);
}

void HotPageProxy::Unlink(std::size_t slot) {
  Slot& s = slots_[slot];
  if (s.older != kNone) slots_[s.older].newer = s.newer; else oldest_ = s.newer;
  if (s.newer != kNone) slots_[s.newer].older = s.older; else newest_ = s.older;
  s.older = s.newer = kNone;
}

void HotPageProxy::AppendNewest(std::size_t slot) {
  slots_[slot].older = newest_;
  slots_[slot].newer = kNone;
  if (newest_ != kNone) slots_[newest_].newer = slot; else oldest_ = slot;
  newest_ = slot;
}

}  // namespace io
}  // namespace ntfsparsercore
