// One shadow copy of the store: a catalog definition paired with its
// declaration, giving the volume offsets of its store structures.
#ifndef TOLVAR_CORE_VSS_SNAPSHOT_H_
#define TOLVAR_CORE_VSS_SNAPSHOT_H_

#include <cstdint>
#include <string>

#include "core/vss/guid.h"
#include "core/vss/records/catalog.h"

namespace tolvarcore {
namespace vss {

class Snapshot {
 public:
  // Pairs the two. A declaration without store identifier ("Snapshot guid
  // is empty") or with another one than the definition's ("Inconsistent
  // snapshot guids") leaves every field zero; nothing is thrown.
  Snapshot(const records::SnapshotDefinition& definition, const records::SnapshotDeclaration& declaration);

  virtual uint64_t GetHeaderOffset() const;
  virtual uint64_t GetBitmapOffset() const;
  virtual uint64_t GetPreviousBitmapOffset() const;
  virtual uint64_t GetIndexOffset() const;
  virtual uint64_t GetVolumeSize() const;
  virtual uint64_t GetRangeOffset() const;
  // When the shadow copy was made, as a FILETIME (100 ns since 1601).
  uint64_t GetCreationTime() const { return creationTime_; }
  // The store identifier.
  virtual Guid GetGuid() const;
  // The shadow-copy service's device object name, set by the sequence logic.
  virtual void SetName(const std::string& name);
  virtual std::string GetName() const;
  virtual ~Snapshot();

 private:
  uint64_t bitmapOffset_ = 0;          // declaration offset 40
  uint64_t indexOffset_ = 0;           // declaration offset 0
  uint64_t headerOffset_ = 0;          // declaration offset 24
  uint64_t volumeSize_ = 0;            // definition offset 0
  uint64_t previousBitmapOffset_ = 0;  // declaration offset 64
  uint64_t rangeOffset_ = 0;           // declaration offset 32
  uint64_t creationTime_ = 0;          // definition offset 40
  Guid storeIdentifier_;               // declaration offset 8
  std::string name_;
};

}  // namespace vss
}  // namespace tolvarcore

#endif  // TOLVAR_CORE_VSS_SNAPSHOT_H_
