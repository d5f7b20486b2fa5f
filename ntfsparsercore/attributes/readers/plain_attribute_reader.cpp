#include "ntfsparsercore/attributes/readers/plain_attribute_reader.h"

#include <algorithm>
#include <cstring>

#include "common/error_recorder.h"

using tolvarcommon::ErrorRecorder;
using tolvarcommon::ReplayErrors;

namespace ntfsparsercore {
namespace attributes {
namespace readers {

PlainAttributeReader::PlainAttributeReader(IVolume* volume, const Attribute& attribute)
    : volume_(volume), attribute_(attribute) {}

uint64_t PlainAttributeReader::GetSize() { return attribute_.GetSize(); }

uint64_t PlainAttributeReader::Read(void* buffer, uint64_t size, uint64_t offset) {
  const uint64_t total = GetSize();
  if (offset > total || buffer == nullptr) return 0;
  if (size > total - offset) size = total - offset;
  uint8_t* out = static_cast<uint8_t*>(buffer);
  if (attribute_.IsResident()) return ReadResident(out, size, offset);
  return ReadRuns(out, size, offset);
}

uint64_t PlainAttributeReader::ReadResident(uint8_t* buffer, uint64_t size, uint64_t offset) {
  if (offset > attribute_.GetResidentValueLength() || attribute_.GetRecords().empty()) return 0;
  return attribute_.GetRecords().front()->Read(buffer, size, offset);
}

const RunList& PlainAttributeReader::Runs() {
  if (decoded_) {
    ReplayErrors(decodeMessages_);
    return runs_;
  }
  ErrorRecorder recorder;
  runs_ = BuildRunList(attribute_, volume_->GetClusterSize());
  decodeMessages_ = recorder.Records();
  runEnds_.clear();
  // Run lengths of a damaged record could add up past 64 bits: the ends stop
  // growing there, so they stay ordered and no read starts early.
  uint64_t end = 0;
  for (const Run& run : runs_) {
    end = run.length > UINT64_MAX - end ? UINT64_MAX : end + run.length;
    runEnds_.push_back(end);
  }
  // A list decoded while a device read failed is decoded anew next time.
  decoded_ = !recorder.ReadFailed();
  return runs_;
}

uint64_t PlainAttributeReader::ReadRuns(uint8_t* buffer, uint64_t size, uint64_t offset) {
  if (!volume_) return 0;
  const RunList& runs = Runs();
  // Every run that ends at or before the offset is passed over whole; the
  // first one read is the first that ends past it.
  const std::size_t first =
      static_cast<std::size_t>(std::upper_bound(runEnds_.begin(), runEnds_.end(), offset) - runEnds_.begin());
  uint64_t done = 0;
  uint64_t skip = first == 0 ? offset : offset - runEnds_[first - 1];
  for (std::size_t i = first; i < runs.size(); ++i) {
    const Run& run = runs[i];
    if (done >= size) break;
    if (run.length <= skip) {
      skip -= run.length;
      continue;
    }
    const uint64_t n = std::min(size - done, run.length);
    if (run.volumeOffset == 0) {
      std::memset(buffer + done, 0, static_cast<std::size_t>(n));
      done += n;
    } else {
      done += volume_->Read(buffer + done, n, run.volumeOffset + skip);
    }
    skip = 0;
  }
  return done;
}

ExtentList PlainAttributeReader::GetExtents() {
  ExtentList extents;
  if (!volume_) return extents;
  const uint64_t size = GetSize();
  uint64_t total = 0;
  for (const Run& run : Runs()) {
    if (total >= size) break;
    uint64_t length = run.length;
    total += length;
    if (total >= size) length -= total - size;
    extents.push_back(Extent{length, run.volumeOffset, length});
  }
  return extents;
}

}  // namespace readers
}  // namespace attributes
}  // namespace ntfsparsercore
