#include "core/vss/vss_volume.h"

#include <utility>

#include "common/error_queue.h"
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

VssVolume::VssVolume(std::shared_ptr<ntfsparsercore::io::ISource> source) : source_(std::move(source)) { ReadHeader(); }

VssVolume::~VssVolume() = default;

void VssVolume::ReadHeader() {
  if (!source_) return;
  uint8_t header[format::kVolumeHeaderReadSize] = {};
  if (source_->Read(header, sizeof(header), format::kVolumeHeaderOffset) != sizeof(header)) {
    ReportError(kErrorIo, "Failed to read vss volume header");
    return;
  }
  if (Guid::FromBytes(header + format::kHeaderIdentifier) != StoreIdentifier()) {
    ReportCodedError(kErrorStore, "Invalid vss volume guid");
    return;
  }
  uint64_t ownOffset = LoadLe64(header + format::kHeaderOwnOffset);
  if (ownOffset != format::kVolumeHeaderOffset) {
    ReportCodedError(kErrorStore, "Unexpected volume header offset. Actual(%lu)", Low32(ownOffset));
    return;
  }
  uint32_t recordType = LoadLe32(header + format::kHeaderRecordType);
  if (recordType != format::kRecordVolumeHeader) {
    ReportCodedError(kErrorStore, "Unexpected volume header record type. Actual(%u)", recordType);
    return;
  }
  catalogOffset_ = LoadLe64(header + format::kHeaderCatalogOffset);
  volumeIdentifier_ = Guid::FromBytes(header + format::kHeaderVolumeIdentifier);
  storeVolumeIdentifier_ = Guid::FromBytes(header + format::kHeaderStoreVolumeIdentifier);
}

uint64_t VssVolume::GetCatalogOffset() const { return catalogOffset_; }

Guid VssVolume::GetVolumeIdentifier() const { return volumeIdentifier_; }

Guid VssVolume::GetStoreVolumeIdentifier() const { return storeVolumeIdentifier_; }

std::shared_ptr<VssRecord> VssVolume::OpenRecord(uint64_t offset) const {
  return std::make_shared<VssRecord>(source_, offset);
}

uint64_t VssVolume::GetSize() const { return source_ ? source_->GetSize() : 0; }

}  // namespace vss
}  // namespace tolvarcore
