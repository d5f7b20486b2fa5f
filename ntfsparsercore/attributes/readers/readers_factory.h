// Chooses the reader for an attribute: LZNT1 for compressed data
// attributes, plain for everything else.
#ifndef TOLVAR_NTFSPARSERCORE_ATTRIBUTES_READERS_READERS_FACTORY_H_
#define TOLVAR_NTFSPARSERCORE_ATTRIBUTES_READERS_READERS_FACTORY_H_

#include <cstdint>
#include <memory>

#include "ntfsparsercore/attribute.h"
#include "ntfsparsercore/attributes/readers/i_reader.h"
#include "ntfsparsercore/i_volume.h"

namespace ntfsparsercore {
namespace attributes {
namespace readers {

class ReadersFactory {
 public:
  // One factory per volume; the volume is borrowed and outlives it.
  explicit ReadersFactory(IVolume* volume) : volume_(volume) {}

  // A CompressedReader over a PlainAttributeReader for a compressed data
  // attribute; the PlainAttributeReader itself for any other attribute.
  std::shared_ptr<IReader> Create(const Attribute& attribute) const;

  IVolume* GetVolume() const { return volume_; }

 private:
  IVolume* volume_;  // the volume whose attributes are read
};

}  // namespace readers
}  // namespace attributes
}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_ATTRIBUTES_READERS_READERS_FACTORY_H_
