// A volume's shadow copies as the command shows them, read through the
// library's core the way Init reads them (the exports have no call for
// this): open the volume, find its storage, read the catalog, and name each
// snapshot by the shadow-copy service's identifier (on POSIX, the store's
// own). Shared by list and mount.
#ifndef TOLVAR_CLI_SHADOW_COPY_CATALOG_H_
#define TOLVAR_CLI_SHADOW_COPY_CATALOG_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "core/vss/guid.h"
#include "core/vss/vss_volume.h"

namespace tolvarcli {

class ShadowCopyCatalog {
 public:
  // One shadow copy, in creation order.
  struct Entry {
    tolvarcore::vss::Guid shadowCopy;  // the ID that diff and backup take
    tolvarcore::vss::Guid set;         // the snapshot set it belongs to
    tolvarcore::vss::Guid store;       // the store identifier of the catalog
    uint64_t volumeSize;               // bytes, from the catalog's definition
    uint64_t creationTime;             // FILETIME (100 ns since 1601), from the catalog's definition
  };

  // Reads the shadow copies of the volume at path. False, after printing
  // the error queue's records and a last line that says what failed, when
  // the volume, its storage or part of the store cannot be read (exit code 2).
  bool Read(const std::string& path);

  const std::vector<Entry>& Entries() const { return entries_; }
  // The store the shadow copies are rebuilt from.
  const std::shared_ptr<tolvarcore::vss::VssVolume>& Storage() const { return storage_; }

 private:
  std::shared_ptr<tolvarcore::vss::VssVolume> storage_;  // the volume that holds the stores
  std::vector<Entry> entries_;                           // oldest first
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_SHADOW_COPY_CATALOG_H_
