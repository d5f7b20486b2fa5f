#include "ntfsparsercore/io/volume_name.h"

#include <cstring>

namespace ntfsparsercore {
namespace io {

namespace {

// Offsets beyond this are past any image that off_t can address.
constexpr uint64_t kLargestValue = static_cast<uint64_t>(INT64_MAX);
constexpr uint64_t kLargestPartition = UINT32_MAX;

// Decimal digits only, not empty, not above largest.
bool ParseNumber(const std::string& text, uint64_t largest, uint64_t* value) {
  if (text.empty()) return false;
  uint64_t result = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    const uint64_t digit = static_cast<uint64_t>(c - '0');
    if (result > (largest - digit) / 10) return false;
    result = result * 10 + digit;
  }
  *value = result;
  return true;
}

// Whether text ends in suffix followed by a number; the number goes to *value.
bool SplitSuffix(const std::string& text, const char* suffix, uint64_t largest, std::string* path, uint64_t* value) {
  const std::size_t at = text.rfind(suffix);
  if (at == std::string::npos || at == 0) return false;
  if (!ParseNumber(text.substr(at + std::strlen(suffix)), largest, value)) return false;
  *path = text.substr(0, at);
  return true;
}

}  // namespace

VolumeName VolumeName::Parse(const std::string& text, const std::function<bool(const std::string&)>& exists) {
  VolumeName name;
  name.path = text;
  if (exists(text)) return name;
  std::string path;
  uint64_t value = 0;
  if (SplitSuffix(text, kPartitionSuffix, kLargestPartition, &path, &value) && value != 0) {
    name.path = path;
    name.pick = Pick::kPartition;
    name.value = value;
  } else if (SplitSuffix(text, kOffsetSuffix, kLargestValue, &path, &value)) {
    name.path = path;
    name.pick = Pick::kOffset;
    name.value = value;
  }
  return name;
}

std::string VolumeName::ToString() const {
  switch (pick) {
    case Pick::kPartition:
      return path + kPartitionSuffix + std::to_string(value);
    case Pick::kOffset:
      return path + kOffsetSuffix + std::to_string(value);
    default:
      return path;
  }
}

}  // namespace io
}  // namespace ntfsparsercore
