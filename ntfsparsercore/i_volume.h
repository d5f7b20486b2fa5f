// What the record and attribute decoders need from an NTFS volume: its
// bytes and its geometry. NtfsVolume implements it (after the boot sector
// is read); tests use volumes held in memory.
#ifndef TOLVAR_NTFSPARSERCORE_I_VOLUME_H_
#define TOLVAR_NTFSPARSERCORE_I_VOLUME_H_

#include <cstdint>

#include "ntfsparsercore/io/i_source.h"

namespace ntfsparsercore {

// Slots 0 to 2 are those of ISource (Read bounded by the volume size,
// GetSize, destructor); the geometry getters follow in this order.
class IVolume : public io::ISource {
 public:
  // Bytes per sector: the stride of the update sequence fix-up.
  virtual uint32_t GetSectorSize() = 0;
  // Bytes per cluster: the unit of data runs and compression units.
  virtual uint64_t GetClusterSize() = 0;
  // Bytes of the source beneath the volume, past which no read delivers
  // anything; the volume size when it has no other source.
  virtual uint64_t GetSourceSize() { return GetSize(); }
};

}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_I_VOLUME_H_
