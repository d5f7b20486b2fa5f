#include "core/vss/records/catalog.h"

#include <algorithm>

#include "common/error_queue.h"
#include "ntfsparsercore/io/little_endian.h"

using tolvarcommon::kErrorIo;
using tolvarcommon::ReportError;

namespace tolvarcore {
namespace vss {
namespace records {

using ntfsparsercore::io::LoadLe64;

SnapshotDefinition SnapshotDefinition::FromBytes(const uint8_t* body) {
  SnapshotDefinition definition;
  definition.volumeSize = LoadLe64(body);
  definition.storeIdentifier = Guid::FromBytes(body + 8);
  definition.creationOrder = LoadLe64(body + 24);
  return definition;
}

SnapshotDeclaration SnapshotDeclaration::FromBytes(const uint8_t* body) {
  SnapshotDeclaration declaration;
  declaration.indexOffset = LoadLe64(body);
  declaration.storeIdentifier = Guid::FromBytes(body + 8);
  declaration.headerOffset = LoadLe64(body + 24);
  declaration.rangeOffset = LoadLe64(body + 32);
  declaration.bitmapOffset = LoadLe64(body + 40);
  declaration.previousBitmapOffset = LoadLe64(body + 64);
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
    return record != nullptr && record->Read(typeBytes, sizeof(typeBytes), entry) == sizeof(typeBytes);
  };
  uint64_t entry = 0;
  if (!readType(entry)) {
    ReportError(kErrorIo, "Failed to read snapshot");
    return;
  }
  for (;;) {
    uint64_t type = LoadLe64(typeBytes);
    if (type == kEnd) return;
    if (type == kDefinition) {
      uint8_t body[SnapshotDefinition::kSize] = {};
      if (record->Read(body, sizeof(body), entry + 8) != sizeof(body)) {
        ReportError(kErrorIo, "Failed to read snapshot definition");
        return;
      }
      definitions_.push_back(SnapshotDefinition::FromBytes(body));
    } else if (type == kDeclaration) {
      uint8_t body[SnapshotDeclaration::kSize] = {};
      if (record->Read(body, sizeof(body), entry + 8) != sizeof(body)) {
        ReportError(kErrorIo, "Failed to read snapshot declaration");
        return;
      }
      declarations_.push_back(SnapshotDeclaration::FromBytes(body));
    }
    // Type 1 and any other value: passed over.
    entry += kEntrySize;
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
