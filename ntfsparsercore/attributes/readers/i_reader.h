// An attribute's value as a byte source, with its layout on the volume.
#ifndef TOLVAR_NTFSPARSERCORE_ATTRIBUTES_READERS_I_READER_H_
#define TOLVAR_NTFSPARSERCORE_ATTRIBUTES_READERS_I_READER_H_

#include "ntfsparsercore/attributes/readers/extent.h"
#include "ntfsparsercore/io/i_source.h"

namespace ntfsparsercore {
namespace attributes {
namespace readers {

// Slots 0 to 2 are those of ISource: Read copies bytes of the value from a
// byte offset of the value, GetSize is the attribute's value size.
class IReader : public io::ISource {
 public:
  // The value's pieces on the volume, in file order. Meant for
  // non-resident values: callers ask whether the value is resident first.
  virtual ExtentList GetExtents() = 0;
};

}  // namespace readers
}  // namespace attributes
}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_ATTRIBUTES_READERS_I_READER_H_
