#include "ntfsparsercore/utf16_name.h"

#include "ntfsparsercore/io/little_endian.h"

namespace ntfsparsercore {

namespace {

constexpr uint32_t kReplacement = 0xFFFD;

bool IsHighSurrogate(uint32_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool IsLowSurrogate(uint32_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

void AppendUtf8(std::string* out, uint32_t code) {
  if (code < 0x80) {
    out->push_back(static_cast<char>(code));
  } else if (code < 0x800) {
    out->push_back(static_cast<char>(0xC0 | (code >> 6)));
    out->push_back(static_cast<char>(0x80 | (code & 0x3F)));
  } else if (code < 0x10000) {
    out->push_back(static_cast<char>(0xE0 | (code >> 12)));
    out->push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | (code & 0x3F)));
  } else {
    out->push_back(static_cast<char>(0xF0 | (code >> 18)));
    out->push_back(static_cast<char>(0x80 | ((code >> 12) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | (code & 0x3F)));
  }
}

}  // namespace

std::string Utf16LeToUtf8(const uint8_t* bytes, std::size_t unitCount) {
  std::string out;
  for (std::size_t i = 0; i < unitCount; ++i) {
    const uint32_t unit = io::LoadLe16(bytes + 2 * i);
    if (unit == 0) break;
    if (IsHighSurrogate(unit) && i + 1 < unitCount && IsLowSurrogate(io::LoadLe16(bytes + 2 * (i + 1)))) {
      const uint32_t low = io::LoadLe16(bytes + 2 * (i + 1));
      AppendUtf8(&out, 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00));
      ++i;
    } else if (IsHighSurrogate(unit) || IsLowSurrogate(unit)) {
      AppendUtf8(&out, kReplacement);
    } else {
      AppendUtf8(&out, unit);
    }
  }
  return out;
}

}  // namespace ntfsparsercore
