#include "ntfsparsercore/io/hot_page_proxy.h"

#include <algorithm>

namespace ntfsparsercore {
namespace io {

// Least recently used replacement over proxies that are made on first use.
// An unused proxy has a last-use stamp of 0 and so always goes before a used
// one: a page that no proxy holds first takes the unused proxy of the lowest
// number, dropping that proxy's initial page. Once every proxy has been used,
// the victim is the head of the recency list, in which every use moves a
// proxy to the tail; both choices take constant time.

HotPageProxy::HotPageProxy(std::shared_ptr<ISource> source, uint64_t pageSize, uint64_t pageCount)
    : source_(std::move(source)), proxyCount_(std::max<uint64_t>(pageCount, 1)), pageSize_(pageSize) {}

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
      slot = SlotFor(page);
      Touch(slot);
    }
    const uint64_t delivered = slots_[slot].proxy->Read(out + done, n, position);
    if (delivered == 0) break;
    done += delivered;
  }
  return done;
}

uint64_t HotPageProxy::GetSize() { return source_->GetSize(); }

uint64_t HotPageProxy::GetLastUse(uint64_t proxyIndex) const {
  auto used = slotOfProxy_.find(proxyIndex);
  return used == slotOfProxy_.end() ? 0 : slots_[used->second].lastUse;
}

uint64_t HotPageProxy::GetPage(uint64_t proxyIndex) const {
  auto used = slotOfProxy_.find(proxyIndex);
  return used == slotOfProxy_.end() ? proxyIndex : slots_[used->second].page;
}

// The slot that serves page: the used proxy mapped to it, the unused proxy
// still on it from the start, or a victim remapped to it.
std::size_t HotPageProxy::SlotFor(uint64_t page) {
  auto hit = pageMap_.find(page);
  if (hit != pageMap_.end()) return hit->second;
  if (page < proxyCount_ && slotOfProxy_.count(page) == 0) return MakeSlot(page, page);
  if (slots_.size() < proxyCount_) return MakeSlot(NextUnused(), page);
  const std::size_t victim = oldest_;
  pageMap_.erase(slots_[victim].page);
  pageMap_[page] = victim;
  slots_[victim].page = page;
  return victim;
}

// Brings proxy index into use, serving page.
std::size_t HotPageProxy::MakeSlot(uint64_t index, uint64_t page) {
  Slot made;
  made.proxy = std::make_unique<CacheProxy>(source_, pageSize_);
  made.page = page;
  slots_.push_back(std::move(made));
  const std::size_t slot = slots_.size() - 1;
  slotOfProxy_[index] = slot;
  pageMap_[page] = slot;
  AppendNewest(slot);
  return slot;
}

// The lowest number of a proxy not yet used; called only while one exists.
uint64_t HotPageProxy::NextUnused() {
  while (slotOfProxy_.count(firstUnused_) != 0) ++firstUnused_;
  return firstUnused_;
}

void HotPageProxy::Touch(std::size_t slot) {
  slots_[slot].lastUse = accessCounter_;
  Unlink(slot);
  AppendNewest(slot);
}

void HotPageProxy::Unlink(std::size_t slot) {
  Slot& s = slots_[slot];
  if (s.older != kNone)
    slots_[s.older].newer = s.newer;
  else
    oldest_ = s.newer;
  if (s.newer != kNone)
    slots_[s.newer].older = s.older;
  else
    newest_ = s.older;
  s.older = s.newer = kNone;
}

void HotPageProxy::AppendNewest(std::size_t slot) {
  slots_[slot].older = newest_;
  slots_[slot].newer = kNone;
  if (newest_ != kNone)
    slots_[newest_].newer = slot;
  else
    oldest_ = slot;
  newest_ = slot;
}

}  // namespace io
}  // namespace ntfsparsercore
