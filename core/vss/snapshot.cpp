#include "core/vss/snapshot.h"

#include "common/error_queue.h"

using tolvarcommon::kErrorStore;
using tolvarcommon::ReportCodedError;

namespace tolvarcore {
namespace vss {

Snapshot::Snapshot(const records::SnapshotDefinition& definition, const records::SnapshotDeclaration& declaration) {
  if (declaration.storeIdentifier.IsZero()) {
    ReportCodedError(kErrorStore, "Snapshot guid is empty");
    return;
  }
  if (declaration.storeIdentifier != definition.storeIdentifier) {
    ReportCodedError(kErrorStore, "Inconsistent snapshot guids");
    return;
  }
  bitmapOffset_ = declaration.bitmapOffset;
  indexOffset_ = declaration.indexOffset;
  headerOffset_ = declaration.headerOffset;
  volumeSize_ = definition.volumeSize;
  creationTime_ = definition.creationTime;
  previousBitmapOffset_ = declaration.previousBitmapOffset;
  rangeOffset_ = declaration.rangeOffset;
  storeIdentifier_ = declaration.storeIdentifier;
}

Snapshot::~Snapshot() = default;

uint64_t Snapshot::GetHeaderOffset() const { return headerOffset_; }
uint64_t Snapshot::GetBitmapOffset() const { return bitmapOffset_; }
uint64_t Snapshot::GetPreviousBitmapOffset() const { return previousBitmapOffset_; }
uint64_t Snapshot::GetIndexOffset() const { return indexOffset_; }
uint64_t Snapshot::GetVolumeSize() const { return volumeSize_; }
uint64_t Snapshot::GetRangeOffset() const { return rangeOffset_; }
Guid Snapshot::GetGuid() const { return storeIdentifier_; }
void Snapshot::SetName(const std::string& name) { name_ = name; }
std::string Snapshot::GetName() const { return name_; }

}  // namespace vss
}  // namespace tolvarcore
