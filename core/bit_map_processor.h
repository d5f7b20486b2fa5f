// Holds the two store bitmaps loaded for a snapshot sequence and ORs them
// into the block processor's bitmaps.
#ifndef TOLVAR_CORE_BIT_MAP_PROCESSOR_H_
#define TOLVAR_CORE_BIT_MAP_PROCESSOR_H_

#include <memory>

#include "core/bit_map.h"
#include "core/vss/snapshot.h"
#include "core/vss/vss_volume.h"

namespace tolvarcore {

class BitMapProcessor {
 public:
  BitMapProcessor();

  BitMapProcessor(const BitMapProcessor&) = delete;
  BitMapProcessor& operator=(const BitMapProcessor&) = delete;

  // Loads current from last's bitmap record and reference from first's (when
  // first is another snapshot object than last) or else from last's previous
  // bitmap (when it has one), then combines them: with a reference,
  // current = reference AND NOT current bytewise and reference is inverted;
  // without, current is inverted. Bitmaps are volume size >> 17 bytes long.
  // Returns false when volume or last is absent, or a bitmap cannot be read
  // whole ("Read last vss-bitmap data failed", "Read first vss-bitmap data
  // failed", code 1).
  bool Load(const std::shared_ptr<vss::VssVolume>& volume, const std::shared_ptr<vss::Snapshot>& first,
            const std::shared_ptr<vss::Snapshot>& last);

  // For every bit set in the held bitmap, sets the same bit in target (bits
  // beyond target's count are ignored). Nothing happens when the held bitmap
  // or target is absent.
  virtual void ApplyCurrent(BitMap* target) const;
  virtual void ApplyReference(BitMap* target) const;

  // A new map of byteCount bytes holding what ApplyCurrent (ApplyReference)
  // would set in a clear map of that size. When the held bitmap has that
  // size already it is handed over instead of copied, and no longer held:
  // on large volumes this spares a fresh map and a pass over it.
  std::unique_ptr<BitMap> TakeCurrent(uint64_t byteCount);
  std::unique_ptr<BitMap> TakeReference(uint64_t byteCount);
  virtual ~BitMapProcessor();

  // The held bitmaps, or null; for inspection.
  const BitMap* GetCurrent() const { return current_.get(); }
  const BitMap* GetReference() const { return reference_.get(); }

 private:
  std::unique_ptr<BitMap> current_;    // the end snapshot's store bitmap
  std::unique_ptr<BitMap> reference_;  // the start snapshot's, or the end's previous bitmap
};

}  // namespace tolvarcore

#endif  // TOLVAR_CORE_BIT_MAP_PROCESSOR_H_
