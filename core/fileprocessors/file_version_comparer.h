// Marks the blocks of a file change map whose placement on the volume
// differs between the file's older and newer version, or the whole map when
// the two versions cannot be compared.
#ifndef TOLVAR_CORE_FILEPROCESSORS_FILE_VERSION_COMPARER_H_
#define TOLVAR_CORE_FILEPROCESSORS_FILE_VERSION_COMPARER_H_

#include <cstdint>
#include <memory>

#include "core/bit_map.h"
#include "ntfsparsercore/attributes/readers/extent.h"
#include "ntfsparsercore/io/ntfs_file.h"

namespace tolvarcore {
namespace fileprocessors {

class FileVersionComparer {
 public:
  // olderFile is empty when the file does not exist in the older shadow copy.
  FileVersionComparer(std::shared_ptr<ntfsparsercore::io::NtfsFile> olderFile,
                      std::shared_ptr<ntfsparsercore::io::NtfsFile> newerFile, uint64_t blockSize);

  // Compares the versions' extents in steps of min(block size, clusterSize)
  // and sets the bit of each file block where they differ; sets every byte
  // of fileBitmap to 0xFF when there is no older version, the newer one is
  // resident, or residency or compression changed.
  void Compare(BitMap& fileBitmap, uint64_t clusterSize);

 private:
  // A list of extents walked front to back, whose current extent shrinks as
  // the walk advances.
  struct ExtentCursor {
    ntfsparsercore::attributes::readers::ExtentList extents;  // a private copy of the file's extents
    size_t index = 0;                                         // the current extent

    bool AtEnd() const { return index >= extents.size(); }
    ntfsparsercore::attributes::readers::Extent& Current() { return extents[index]; }
  };

  bool Comparable();
  void CompareExtents(BitMap& fileBitmap, uint64_t step);
  // Moves the cursor's current extent on by step bytes of its logical range,
  // adding them to *position when position is given.
  static void Advance(ExtentCursor& cursor, uint64_t step, uint64_t* position);
  // How many steps from position can be taken at once: steps that end
  // neither the newer extent n nor the older one a (null when the older
  // version has ended) and wrap no offset; 0 when fewer than one.
  static uint64_t Repeats(const ntfsparsercore::attributes::readers::Extent& n,
                          const ntfsparsercore::attributes::readers::Extent* a, uint64_t position, uint64_t step);
  // Sets the bits of the blocks that steps steps from position fall in.
  void MarkSteps(BitMap& fileBitmap, uint64_t position, uint64_t step, uint64_t steps) const;
  // Moves e on by steps steps at once, as that many calls of Advance would
  // that do not end it.
  static void Skip(ntfsparsercore::attributes::readers::Extent& e, uint64_t step, uint64_t steps, uint64_t* position);

  uint64_t blockSize_;                                       // the handle's block size in bytes
  std::shared_ptr<ntfsparsercore::io::NtfsFile> olderFile_;  // the older version; empty when there is none
  std::shared_ptr<ntfsparsercore::io::NtfsFile> newerFile_;  // the newer version
};

}  // namespace fileprocessors
}  // namespace tolvarcore

#endif  // TOLVAR_CORE_FILEPROCESSORS_FILE_VERSION_COMPARER_H_
