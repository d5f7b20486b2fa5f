// Reader of a compressed data attribute: cuts the runs into compression
// units and expands the compressed ones with LZNT1.
#ifndef TOLVAR_NTFSPARSERCORE_ATTRIBUTES_READERS_COMPRESSED_READER_H_
#define TOLVAR_NTFSPARSERCORE_ATTRIBUTES_READERS_COMPRESSED_READER_H_

#include <cstdint>
#include <memory>
#include <vector>

#include "ntfsparsercore/attribute.h"
#include "ntfsparsercore/attributes/readers/i_reader.h"
#include "ntfsparsercore/attributes/readers/plain_attribute_reader.h"
#include "ntfsparsercore/i_volume.h"

namespace ntfsparsercore {
namespace attributes {
namespace readers {

class CompressedReader : public IReader {
 public:
  // The volume is borrowed; inner is the plain reader over the same
  // attribute, which supplies the extents and resident reads.
  CompressedReader(IVolume* volume, std::shared_ptr<PlainAttributeReader> inner, const Attribute& attribute);

  // Walks the compression units. A unit stored whole is read from the
  // volume at its offset plus the skip into it (sparse units too, whose
  // offset is 0). A compressed unit is expanded from its first byte,
  // whatever the offset asked for; a unit of full size counts its whole
  // expansion, even past size, though only size bytes are written.
  uint64_t Read(void* buffer, uint64_t size, uint64_t offset) override;
  uint64_t GetSize() override;
  // Units of the unit size cut from the plain extents. A remainder shorter
  // than a unit absorbs the sparse extent that follows it (up to a unit)
  // and becomes a compressed unit; without one it is an uncompressed tail.
  // Units that no sound volume holds (stored past the volume's end, or
  // sparse beyond a file position of the volume's size) are listed as one
  // extent per run rather than one per unit.
  ExtentList GetExtents() override;

  // Bytes of one compression unit: the cluster size shifted by the
  // attribute's compression unit exponent; 0 when that is not representable
  // or larger than any volume can use (32 MiB).
  uint64_t GetUnitSize() const { return unitSize_; }

 private:
  uint64_t ReadUnit(const Extent& unit, uint8_t* out, uint64_t room, uint64_t skip, uint64_t n);
  uint64_t ExpandCompressedUnit(const Extent& unit, uint8_t* out, uint64_t room);

  IVolume* volume_;                              // reads volume bytes
  std::shared_ptr<PlainAttributeReader> inner_;  // extents and resident reads
  Attribute attribute_;                          // the attribute being read
  uint64_t unitSize_ = 0;                        // bytes per compression unit
  std::vector<uint8_t> scratch_;                 // stored bytes of one unit, only during a read
  std::vector<uint8_t> expanded_;                // one expanded unit that does not fit the caller's room
};

}  // namespace readers
}  // namespace attributes
}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_ATTRIBUTES_READERS_COMPRESSED_READER_H_
