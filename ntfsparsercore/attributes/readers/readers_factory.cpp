#include "ntfsparsercore/attributes/readers/readers_factory.h"

#include "ntfsparsercore/attributes/readers/compressed_reader.h"
#include "ntfsparsercore/attributes/readers/plain_attribute_reader.h"
#include "ntfsparsercore/ntfs_format.h"

namespace ntfsparsercore {
namespace attributes {
namespace readers {

std::shared_ptr<IReader> ReadersFactory::Create(const Attribute& attribute) const {
  auto plain = std::make_shared<PlainAttributeReader>(volume_, attribute);
  if (attribute.GetType() == format::kAttributeData && attribute.IsCompressed()) {
    return std::make_shared<CompressedReader>(volume_, plain, attribute);
  }
  return plain;
}

}  // namespace readers
}  // namespace attributes
}  // namespace ntfsparsercore
