// The 16-byte identifier of the shadow-copy store and of the VSS service.
//
// Compared as 16 raw bytes; all zero means "none". Its text form is the
// usual one of a little-endian GUID: lower-case hexadecimal without braces,
// the first three groups byte-reversed, e.g. the store identifier
// 6b 87 08 38 76 c1 48 4e b7 ae 04 04 6e 6c c7 52 reads
// "3808876b-c176-4e48-b7ae-04046e6cc752". Shadow copies are named to the
// library in this form.
#ifndef TOLVAR_CORE_VSS_GUID_H_
#define TOLVAR_CORE_VSS_GUID_H_

#include <cstdint>
#include <string>

namespace tolvarcore {
namespace vss {

struct Guid {
  uint8_t bytes[16] = {};

  // The 16 bytes at p, as they stand on disk.
  static Guid FromBytes(const uint8_t* p);

  // Parses the text form ("%08x-%04x-%04x-%04x-%012x" with the first three
  // groups little-endian on disk); upper-case digits are accepted, braces
  // are not. Returns false, leaving *out alone, on anything else.
  static bool Parse(const std::string& text, Guid* out);

  bool IsZero() const;

  // The text form: 36 lower-case characters, no braces.
  std::string ToString() const;

  bool operator==(const Guid& other) const;
  bool operator!=(const Guid& other) const { return !(*this == other); }
};

// {3808876b-c176-4e48-b7ae-04046e6cc752} (format::kStoreIdentifierBytes):
// heads the store's volume header and every page of every store record. Built on first use, then shared.
const Guid& StoreIdentifier();

}  // namespace vss
}  // namespace tolvarcore

#endif  // TOLVAR_CORE_VSS_GUID_H_
