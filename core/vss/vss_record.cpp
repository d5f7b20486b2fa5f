#include "core/vss/vss_record.h"

#include <algorithm>
#include <set>
#include <utility>

#include "common/error_queue.h"
#include "core/vss/guid.h"
#include "core/vss/store_format.h"
#include "ntfsparsercore/io/little_endian.h"

using tolvarcommon::kErrorIo;
using tolvarcommon::kErrorStore;
using tolvarcommon::Low32;
using tolvarcommon::ReportCodedError;
using tolvarcommon::ReportError;

namespace tolvarcore {
namespace vss {

using ntfsparsercore::io::LoadLe32;
using ntfsparsercore::io::LoadLe64;

VssRecord::VssRecord(std::shared_ptr<ntfsparsercore::io::ISource> source, uint64_t offset)
    : source_(std::move(source)) {
  WalkChain(offset);
}

VssRecord::~VssRecord() = default;

void VssRecord::WalkChain(uint64_t offset) {
  if (!source_) return;
  std::set<uint64_t> visited;  // every page offset accepted so far
  uint64_t current = offset;
  uint8_t header[format::kPageHeaderReadSize];
  for (;;) {
    if (source_->Read(header, sizeof(header), current) != sizeof(header)) {
      ReportError(kErrorIo, "Failed to read vss record header");
      break;
    }
    uint64_t ownOffset = LoadLe64(header + format::kPageOwnOffset);
    if (ownOffset != current) {
      // The offset read at goes first, the header's field second: the
      // required order, although the labels suggest the other.
      ReportCodedError(kErrorStore, "Unexpected vss record native offset. Actual(%lu), was expected(%lu)",
                       Low32(current), Low32(ownOffset));
      break;
    }
    if (Guid::FromBytes(header + format::kPageIdentifier) != StoreIdentifier()) {
      ReportCodedError(kErrorStore, "Unexpected vss record guid.");
      break;
    }
    if (!visited.insert(current).second) {
      ReportCodedError(kErrorStore, "Find page based loop.");
      return;  // the pages so far stay; the record is usable
    }
    pages_.push_back(current);
    recordType_ = LoadLe32(header + format::kPageRecordType);
    current = LoadLe64(header + format::kPageNextOffset);
    if (current == 0) return;
  }
  // Failure step.
  ReportCodedError(kErrorStore, "Can't find last page.");
  pages_.clear();
  pages_.shrink_to_fit();
}

uint64_t VssRecord::Read(void* buffer, uint64_t size, uint64_t offset) {
  if (pages_.empty()) return 0;
  // The page that holds offset, found by division instead of a walk.
  uint64_t page = offset / format::kPagePayloadSize;
  offset %= format::kPagePayloadSize;
  if (page >= pages_.size()) return 0;
  uint8_t* out = static_cast<uint8_t*>(buffer);
  uint64_t wanted = size;
  for (;;) {
    uint64_t chunk = std::min(wanted, format::kPagePayloadSize - offset);
    uint64_t got = source_->Read(out, chunk, pages_[page] + format::kPageHeaderSize + offset);
    if (got == 0) {
      ReportError(kErrorIo, "Failed to read page data.");
      return 0;
    }
    // Guards a source that claims more than it was asked for.
    if (got > chunk) got = chunk;
    out += got;
    wanted -= got;
    if (wanted == 0) return size;
    // A short count ends this page's share; go on at the next page's start.
    offset = 0;
    if (++page >= pages_.size()) return 0;
  }
}

}  // namespace vss
}  // namespace tolvarcore
