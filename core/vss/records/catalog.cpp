#include "core/vss/records/catalog.h"

#include <algorithm>

#include "common/error_queue.h"
#include "core/vss/store_format.h"
#include "ntfsparsercore/io/little_endian.h"

using tolvarcommon::kErrorIo;
using tolvarcommon::ReportError;

namespace tolvarcore {
namespace vss {
namespace records {

using ntfsparsercore::io::LoadLe64;

SnapshotDefinition SnapshotDefinition::FromBytes(const uint8_t* body) {
  SnapshotDefinition definition;
  definition.volumeSize = LoadLe64(body + format::kDefinitionVolumeSize);
  definition.storeIdentifier = Guid::FromBytes(body + format::kDefinitionStoreIdentifier);
  definition.creationOrder = LoadLe64(body + format::kDefinitionCreationOrder);
  definition.flags = LoadLe64(body + format::kDefinitionFlags);
  definition.creationTime = LoadLe64(body + format::kDefinitionCreationTime);
  return definition;
}

SnapshotDeclaration SnapshotDeclaration::FromBytes(const uint8_t* body) {
  SnapshotDeclaration declaration;
  declaration.indexOffset = LoadLe64(body + format::kDeclarationBlockListOffset);
  declaration.storeIdentifier = Guid::FromBytes(body + format::kDeclarationStoreIdentifier);
  declaration.headerOffset = LoadLe64(body + format::kDeclarationStoreHeaderOffset);
  declaration.rangeOffset = LoadLe64(body + format::kDeclarationBlockRangeListOffset);
  declaration.bitmapOffset = LoadLe64(body + format::kDeclarationBitmapOffset);
  declaration.previousBitmapOffset = LoadLe64(body + format::kDeclarationPreviousBitmapOffset);
  return declaration;
}

Catalog::Catalog(const std::shared_ptr<VssRecord>& record) {
  ReadEntries(record.get());
  std::stable_sort(
      definitions_.begin(), definitions_.end(),
      [](const SnapshotDefinition& a, const SnapshotDefinition& b) { return a.creationOrder < b.creationOrder; });
}

Catalog::~Catalog() = default;

void Catalog::ReadEntries(VssRecord* record) {
  uint8_t typeBytes[8];
  auto readType = [&](uint64_t entry) {
    return record != nullptr &&
           record->Read(typeBytes, sizeof(typeBytes), entry + format::kEntryType) == sizeof(typeBytes);
  };
  uint64_t entry = 0;
  if (!readType(entry)) {
    ReportError(kErrorIo, "Failed to read snapshot");
    return;
  }
  for (;;) {
    uint64_t type = LoadLe64(typeBytes);
    if (type == format::kCatalogEntryEnd) return;
    if (type == format::kCatalogEntryDefinition) {
      uint8_t body[format::kDefinitionBodySize] = {};
      if (record->Read(body, sizeof(body), entry + format::kEntryBody) != sizeof(body)) {
        ReportError(kErrorIo, "Failed to read snapshot definition");
        return;
      }
      definitions_.push_back(SnapshotDefinition::FromBytes(body));
    } else if (type == format::kCatalogEntryDeclaration) {
      uint8_t body[format::kDeclarationBodySize] = {};
      if (record->Read(body, sizeof(body), entry + format::kEntryBody) != sizeof(body)) {
        ReportError(kErrorIo, "Failed to read snapshot declaration");
        return;
      }
      declarations_.push_back(SnapshotDeclaration::FromBytes(body));
    }
    // Unused entries and any other type: passed over.
    entry += format::kCatalogEntrySize;
    if (!readType(entry)) {
      ReportError(kErrorIo, "Failed to read snapshot");
      return;
    }
  }
}

SnapshotDeclaration Catalog::FindDeclaration(const Guid& identifier) const {
  for (const SnapshotDeclaration& declaration : declarations_) {
    if (declaration.storeIdentifier == identifier) return declaration;
  }
  return SnapshotDeclaration();
}

const std::vector<SnapshotDefinition>& Catalog::GetDefinitions() const { return definitions_; }

}  // namespace records
}  // namespace vss
}  // namespace tolvarcore
