// The store's table of contents: one store record of 128-byte entries,
// of which definitions (type 2) and declarations (type 3) describe the
// shadow copies kept on the volume.
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

// The 48-byte body of a type-2 entry, at entry offset 8.
struct SnapshotDefinition {
  static constexpr uint64_t kSize = 48;

  uint64_t volumeSize = 0;     // body offset 0
  Guid storeIdentifier;        // body offset 8
  uint64_t creationOrder = 0;  // body offset 24: sort key, ascending

  static SnapshotDefinition FromBytes(const uint8_t* body);
};

// The 72-byte body of a type-3 entry, at entry offset 8.
struct SnapshotDeclaration {
  static constexpr uint64_t kSize = 72;

  uint64_t indexOffset = 0;           // body offset 0: first page of the block list
  Guid storeIdentifier;               // body offset 8: lookup key
  uint64_t headerOffset = 0;          // body offset 24: store header record
  uint64_t rangeOffset = 0;           // body offset 32: block range record (carried only)
  uint64_t bitmapOffset = 0;          // body offset 40: bitmap record
  uint64_t previousBitmapOffset = 0;  // body offset 64: previous-bitmap record

  static SnapshotDeclaration FromBytes(const uint8_t* body);
};

class Catalog {
 public:
  static constexpr uint64_t kEntrySize = 128;
  enum EntryType : uint64_t { kEnd = 0, kUnused = 1, kDefinition = 2, kDeclaration = 3 };

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
