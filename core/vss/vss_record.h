// One record of the shadow-copy store: a chain of 16 KiB pages linked by
// volume offsets, offered as one contiguous payload (the page layout is in
// store_format.h).
#ifndef TOLVAR_CORE_VSS_VSS_RECORD_H_
#define TOLVAR_CORE_VSS_VSS_RECORD_H_

#include <cstdint>
#include <memory>
#include <vector>

#include "ntfsparsercore/io/i_source.h"

namespace tolvarcore {
namespace vss {

class VssRecord {
 public:
  // Walks and checks the page chain that starts at the page at offset.
  // Never throws: a chain that cannot be walked leaves an empty record
  // (after "Can't find last page."); a loop ends the chain normally.
  VssRecord(std::shared_ptr<ntfsparsercore::io::ISource> source, uint64_t offset);

  VssRecord(const VssRecord&) = delete;
  VssRecord& operator=(const VssRecord&) = delete;

  // Copies size bytes of the payload from logical offset into buffer.
  // Returns size when all of them were copied, 0 otherwise (bytes already
  // copied stay in the buffer). Finds the first page in constant time.
  virtual uint64_t Read(void* buffer, uint64_t size, uint64_t offset);

  virtual ~VssRecord();

  // Not part of the record's interface; for inspection.
  uint64_t PageCount() const { return pages_.size(); }
  const std::vector<uint64_t>& Pages() const { return pages_; }
  uint32_t GetRecordType() const { return recordType_; }

 private:
  void WalkChain(uint64_t offset);

  std::shared_ptr<ntfsparsercore::io::ISource> source_;
  std::vector<uint64_t> pages_;  // volume offsets of the pages, in chain order
  uint32_t recordType_ = 0;      // record type of the last page accepted
};

}  // namespace vss
}  // namespace tolvarcore

#endif  // TOLVAR_CORE_VSS_VSS_RECORD_H_
