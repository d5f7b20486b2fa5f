// The store's table of contents: one store record of 128-byte entries,
// of which definitions and declarations describe the shadow copies kept on
// the volume (the entry layout is in store_format.h).
#ifndef TOLVAR_CORE_VSS_RECORDS_CATALOG_H_
#define TOLVAR_CORE_VSS_RECORDS_CATALOG_H_

#include <cstdint>
#include <memory>
#include <vector>

#include "core/vss/guid.h"
#include "core/vss/vss_record.h"

namespace tolvarcore {
namespace vss {
namespace records {

// The body of a definition entry (format::kDefinition*).
struct SnapshotDefinition {
  uint64_t volumeSize = 0;
  Guid storeIdentifier;
  uint64_t creationOrder = 0;  // sort key, ascending
  uint64_t flags = 0;          // as the store records them (0x40, 0x140 seen)
  uint64_t creationTime = 0;   // FILETIME: 100 ns since 1601-01-01 UTC

  static SnapshotDefinition FromBytes(const uint8_t* body);
};

// The body of a declaration entry (format::kDeclaration*).
struct SnapshotDeclaration {
  uint64_t indexOffset = 0;           // first page of the block list
  Guid storeIdentifier;               // lookup key
  uint64_t headerOffset = 0;          // store header record
  uint64_t rangeOffset = 0;           // block range record (carried only)
  uint64_t bitmapOffset = 0;          // bitmap record
  uint64_t previousBitmapOffset = 0;  // previous-bitmap record

  static SnapshotDeclaration FromBytes(const uint8_t* body);
};

class Catalog {
 public:
  // Reads the whole catalog, front to back, up to the first entry of type 0
  // or the first entry that cannot be read ("Failed to read snapshot", the
  // entries before it kept), then sorts the definitions by creation order,
  // stably. A null record reads as an empty one.
  explicit Catalog(const std::shared_ptr<VssRecord>& record);

  // The first declaration, in catalog order, with this store identifier;
  // all fields zero when there is none.
  virtual SnapshotDeclaration FindDeclaration(const Guid& identifier) const;
  // In ascending creation order; valid as long as the catalog lives.
  virtual const std::vector<SnapshotDefinition>& GetDefinitions() const;
  virtual ~Catalog();

  // Not part of the catalog's interface; for inspection. In catalog order.
  const std::vector<SnapshotDeclaration>& GetDeclarations() const { return declarations_; }

 private:
  void ReadEntries(VssRecord* record);

  std::vector<SnapshotDefinition> definitions_;
  std::vector<SnapshotDeclaration> declarations_;
};

}  // namespace records
}  // namespace vss
}  // namespace tolvarcore

#endif  // TOLVAR_CORE_VSS_RECORDS_CATALOG_H_
