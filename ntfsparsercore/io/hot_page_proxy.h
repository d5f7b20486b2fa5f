// A pool of page-sized one-line caches in front of another source, with
// least-recently-used replacement. The NTFS volume puts one in front of the
// MFT's data stream so that the records being looked at stay in memory.
#ifndef TOLVAR_NTFSPARSERCORE_IO_HOT_PAGE_PROXY_H_
#define TOLVAR_NTFSPARSERCORE_IO_HOT_PAGE_PROXY_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "ntfsparsercore/io/cache_proxy.h"
#include "ntfsparsercore/io/i_source.h"

namespace ntfsparsercore {
namespace io {

class HotPageProxy : public ISource {
 public:
  // A pool of pageCount proxies (at least one) of pageSize bytes each over
  // the shared source; proxy i starts out mapped to page i and loads its
  // line on first use. A proxy is made when it is first used, so the pool
  // costs memory only for the pages read.
  HotPageProxy(std::shared_ptr<ISource> source, uint64_t pageSize, uint64_t pageCount);

  HotPageProxy(const HotPageProxy&) = delete;
  HotPageProxy& operator=(const HotPageProxy&) = delete;

  // Reads in pieces of at most one page, each served by the proxy that holds
  // the piece's first page or, on a miss, by the least recently used proxy.
  // Stops at the first piece that delivers nothing.
  uint64_t Read(void* buffer, uint64_t size, uint64_t offset) override;
  uint64_t GetSize() override;

  // Inspection, for tests and diagnostics.
  uint64_t GetProxyCount() const { return proxyCount_; }
  uint64_t GetAccessCounter() const { return accessCounter_; }
  uint64_t GetLastUse(uint64_t proxyIndex) const;
  uint64_t GetPage(uint64_t proxyIndex) const;

 private:
  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

  // One proxy of the pool that has been used, with its bookkeeping.
  struct Slot {
    std::unique_ptr<CacheProxy> proxy;  // the one-line cache of this slot
    uint64_t lastUse = 0;               // access counter value of its last use
    uint64_t page = 0;                  // page number it serves
    std::size_t older = kNone;          // neighbour towards the victim end of the recency list
    std::size_t newer = kNone;          // neighbour towards the most recently used end
  };

  std::size_t SlotFor(uint64_t page);
  std::size_t MakeSlot(uint64_t index, uint64_t page);
  uint64_t NextUnused();
  void Touch(std::size_t slot);
  void Unlink(std::size_t slot);
  void AppendNewest(std::size_t slot);

  std::vector<Slot> slots_;                                // the proxies used so far, in order of first use
  std::unordered_map<uint64_t, std::size_t> slotOfProxy_;  // proxy number -> its slot, for used proxies
  std::unordered_map<uint64_t, std::size_t> pageMap_;      // page number -> slot serving it, for used proxies
  std::shared_ptr<ISource> source_;                        // the wrapped source
  uint64_t proxyCount_;                                    // proxies in the pool, used or not
  uint64_t firstUnused_ = 0;                               // no proxy below this number is unused
  uint64_t accessCounter_ = 0;                             // bumped once per page-sized piece served
  uint64_t pageSize_;                                      // bytes per page and per proxy line
  std::size_t oldest_ = kNone;  // head of the recency list: the next victim among used proxies
  std::size_t newest_ = kNone;  // tail of the recency list
};

}  // namespace io
}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_IO_HOT_PAGE_PROXY_H_
