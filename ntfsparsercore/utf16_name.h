// Conversion of NTFS names (UTF-16LE code units) to the UTF-8 strings that
// the parser compares and hands out.
#ifndef TOLVAR_NTFSPARSERCORE_UTF16_NAME_H_
#define TOLVAR_NTFSPARSERCORE_UTF16_NAME_H_

#include <cstddef>
#include <cstdint>
#include <string>

namespace ntfsparsercore {

// Converts up to unitCount UTF-16LE code units at bytes, stopping at the
// first zero unit. Surrogate pairs become one four-byte sequence; a lone
// surrogate becomes U+FFFD.
std::string Utf16LeToUtf8(const uint8_t* bytes, std::size_t unitCount);

}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_UTF16_NAME_H_
