#include "core/vss/guid.h"

#include <cstdio>
#include <cstring>

#include "core/vss/store_format.h"

namespace tolvarcore {
namespace vss {

// The GUID's text form is written out with its positions and lengths as
// numbers: they are the form's, not the store's.
// NOLINTBEGIN(readability-magic-numbers)

namespace {

// Text position of each byte's two digits, in on-disk byte order.
constexpr int kTextPosition[16] = {6, 4, 2, 0, 11, 9, 16, 14, 19, 21, 24, 26, 28, 30, 32, 34};

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

Guid Guid::FromBytes(const uint8_t* p) {
  Guid guid;
  std::memcpy(guid.bytes, p, sizeof(guid.bytes));
  return guid;
}

bool Guid::Parse(const std::string& text, Guid* out) {
  if (text.size() != 36) return false;
  for (std::size_t dash : {8u, 13u, 18u, 23u}) {
    if (text[dash] != '-') return false;
  }
  Guid guid;
  for (int i = 0; i < 16; ++i) {
    int high = HexValue(text[kTextPosition[i]]);
    int low = HexValue(text[kTextPosition[i] + 1]);
    if (high < 0 || low < 0) return false;
    guid.bytes[i] = static_cast<uint8_t>(high << 4 | low);
  }
  *out = guid;
  return true;
}

bool Guid::IsZero() const {
  for (uint8_t b : bytes) {
    if (b != 0) return false;
  }
  return true;
}

std::string Guid::ToString() const {
  char text[37];
  std::snprintf(text, sizeof(text), "%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x", bytes[3],
                bytes[2], bytes[1], bytes[0], bytes[5], bytes[4], bytes[7], bytes[6], bytes[8], bytes[9], bytes[10],
                bytes[11], bytes[12], bytes[13], bytes[14], bytes[15]);
  return std::string(text, 36);
}

bool Guid::operator==(const Guid& other) const { return std::memcmp(bytes, other.bytes, sizeof(bytes)) == 0; }

const Guid& StoreIdentifier() {
  static const Guid identifier = [] { return Guid::FromBytes(format::kStoreIdentifierBytes); }();
  return identifier;
}

// NOLINTEND(readability-magic-numbers)

}  // namespace vss
}  // namespace tolvarcore
