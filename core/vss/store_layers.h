// The stores of a catalog as the rebuilt shadow copies read them, all read
// from the store when a view first needs one: a handle that never reads its
// shadow copies never pays for their tables, and once a view has read,
// later reads of any view allocate nothing.
#ifndef TOLVAR_CORE_VSS_STORE_LAYERS_H_
#define TOLVAR_CORE_VSS_STORE_LAYERS_H_

#include <cstddef>
#include <cstdint>
#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

#include "core/vss/store_layer.h"
#include "ntfsparsercore/io/i_source.h"

namespace tolvarcore {
namespace vss {

class StoreLayers {
 public:
  // Where one store's tables lie: record offsets from its declaration.
  struct Location {
    uint64_t blockList = 0;       // the block list record
    uint64_t bitmap = 0;          // the bitmap record
    uint64_t previousBitmap = 0;  // the previous-bitmap record; 0: none
  };

  // Stores read, when first needed, through store, which no other reader
  // shares: reading them later leaves every other reader's line as it was.
  // Oldest first; the last is the newest, whose bitmaps are read as well.
  StoreLayers(std::shared_ptr<ntfsparsercore::io::ISource> store, std::vector<Location> locations);
  // Stores already read.
  explicit StoreLayers(std::vector<StoreLayer> layers);

  StoreLayers(const StoreLayers&) = delete;
  StoreLayers& operator=(const StoreLayers&) = delete;

  std::size_t Count() const { return layers_.size(); }

  // Store index, every store being read, in catalog order, on the first
  // call. The reads report nothing, neither to the error queue nor to a
  // recorder: a store that cannot be read is one that every read reaching
  // it fails on. Index is below Count().
  const StoreLayer& At(std::size_t index) const;

  // Whether the stores have been read; for inspection.
  bool IsRead() const { return read_.load(); }

 private:
  void ReadAll() const;
  StoreLayer Read(std::size_t index) const;

  std::shared_ptr<ntfsparsercore::io::ISource> store_;  // a line of their own over the volume; null if given whole
  std::vector<Location> locations_;                     // each store's records, oldest first
  // Filled on first use by a reader that may be const. Views of one stack
  // may be read from several threads at once (the mount serves each file
  // on several): the first reader fills layers_ while the others wait, and
  // nothing changes it afterwards.
  mutable std::once_flag readOnce_;         // layers_ is filled once
  mutable std::vector<StoreLayer> layers_;  // each store, once read
  mutable std::atomic<bool> read_;          // whether layers_ has been read
};

}  // namespace vss
}  // namespace tolvarcore

#endif  // TOLVAR_CORE_VSS_STORE_LAYERS_H_
