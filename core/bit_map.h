// A fixed-length bit array, one bit per block of a size that the owner
// knows. Bit i is bit (i mod 8), least significant first, of byte i / 8;
// the bytes in order are the exchange format handed to callers.
#ifndef TOLVAR_CORE_BIT_MAP_H_
#define TOLVAR_CORE_BIT_MAP_H_

#include <cstdint>
#include <memory>

namespace tolvarcore {

class BitMap {
 public:
  // Allocates max(byteCount, 1) bytes, all clear.
  explicit BitMap(uint64_t byteCount);

  BitMap(const BitMap&) = delete;
  BitMap& operator=(const BitMap&) = delete;

  uint64_t SizeInBytes() const { return byteCount_; }
  uint64_t BitCount() const { return byteCount_ * 8; }

  // False for an index at or beyond the bit count.
  bool Test(uint64_t index) const;
  // Both ignore an index at or beyond the bit count.
  void Set(uint64_t index);
  void Clear(uint64_t index);

  // The first set bit at or after index, or BitCount() when there is none.
  uint64_t NextSet(uint64_t index) const;

  // Whether any of the count bits from first on is set; bits at or beyond
  // the bit count are clear.
  bool AnySet(uint64_t first, uint64_t count) const;

  // Complements every byte, the spare bits of the last one included.
  void Invert();

  // this[k] = other[k] AND NOT this[k] for every byte both maps have:
  // the other map with this map's bits removed, stored here.
  void AndNot(const BitMap& other);

  // Copies all SizeInBytes() bytes; the caller has checked the room.
  void CopyOut(void* destination) const;

  // A new map whose bits stand for targetUnit bytes, from this one whose
  // bits stand for sourceUnit bytes. A target bit is set when a source bit
  // that its block touches at a multiple of sourceUnit from the block's
  // start is set. This map is left unchanged.
  std::unique_ptr<BitMap> Rescale(uint64_t sourceUnit, uint64_t targetUnit) const;

  // The length in bytes of what Rescale makes of a map of byteCount bytes.
  static uint64_t RescaledBytes(uint64_t byteCount, uint64_t sourceUnit, uint64_t targetUnit);

  // The bytes themselves, for loading a map from disk.
  uint8_t* Data() { return bytes_.get(); }
  const uint8_t* Data() const { return bytes_.get(); }

 private:
  // Rescaling to a unit 1, 2, 4 or 8 times this map's, and to a unit that
  // divides this map's 2, 4 or 8 times.
  void GroupInto(unsigned group, BitMap* target) const;
  void SpreadInto(unsigned spread, BitMap* target) const;

  uint64_t byteCount_;                // length of the bit array in bytes; never 0
  std::unique_ptr<uint8_t[]> bytes_;  // the bits
};

}  // namespace tolvarcore

#endif  // TOLVAR_CORE_BIT_MAP_H_
