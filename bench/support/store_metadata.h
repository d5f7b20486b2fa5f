// The store metadata that Init reads, as the 16 KiB pages that hold it, and
// a plain read of those pages: the baseline that Init is timed against.
#ifndef TOLVAR_BENCH_SUPPORT_STORE_METADATA_H_
#define TOLVAR_BENCH_SUPPORT_STORE_METADATA_H_

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace tolvarcore {
namespace vss {
class VssVolume;
}  // namespace vss
}  // namespace tolvarcore

namespace tolvarbench {

class StoreMetadata {
 public:
  // Lists the pages of the records Init reads on image between the shadow
  // copies from and to (identifiers as Init takes them): the page holding
  // the volume header, every catalog page, every store's header record, the
  // bitmaps of the first and last snapshot of the sequence (or the last
  // one's previous bitmap when they are the same) and the block lists of
  // the sequence's snapshots before the last. Each page once. (The rebuilt
  // shadow copies read the other stores' tables when first read, after
  // Init.)
  StoreMetadata(const std::string& image, const std::string& from, const std::string& to);

  // Reads every listed page once with pread, in list order; returns the
  // bytes read (less than Bytes() when a read came back short).
  uint64_t ReadAll() const;

  const std::vector<uint64_t>& Pages() const { return pages_; }
  uint64_t Bytes() const { return pages_.size() * kPageSize; }
  uint64_t BlockListPages() const { return blockListPages_; }

  static constexpr uint64_t kPageSize = 16384;  // a store page, and the line Init reads through

 private:
  void AddRecord(const tolvarcore::vss::VssVolume& volume, uint64_t offset);
  void AddBitmap(const tolvarcore::vss::VssVolume& volume, uint64_t offset);

  std::string image_;            // path of the volume image
  std::vector<uint64_t> pages_;  // page offsets, in the order Init first meets them
  std::set<uint64_t> listed_;    // the same offsets, for listing each once
  uint64_t blockListPages_ = 0;  // pages of the block lists Init reads
};

}  // namespace tolvarbench

#endif  // TOLVAR_BENCH_SUPPORT_STORE_METADATA_H_
