#include "cli/up_case_table.h"

#include <memory>

#include "ntfsparsercore/io/little_endian.h"
#include "ntfsparsercore/io/ntfs_file.h"
#include "ntfsparsercore/mft_record.h"
#include "ntfsparsercore/utf16_name.h"

namespace tolvarcli {

namespace {

constexpr char16_t kReplacement = 0xFFFD;

// Bytes of a full table.
constexpr uint64_t kTableBytes = 2 * UpCaseTable::kUnitCount;

// The length of the UTF-8 sequence that lead starts, or 0 when it starts none.
int SequenceLength(unsigned char lead) {
  if (lead < 0x80) return 1;
  if ((lead & 0xE0) == 0xC0) return 2;
  if ((lead & 0xF0) == 0xE0) return 3;
  if ((lead & 0xF8) == 0xF0) return 4;
  return 0;
}

void AppendCode(std::u16string* out, uint32_t code) {
  if (code < 0x10000) {
    out->push_back(static_cast<char16_t>(code));
    return;
  }
  code -= 0x10000;
  out->push_back(static_cast<char16_t>(0xD800 + (code >> 10)));
  out->push_back(static_cast<char16_t>(0xDC00 + (code & 0x3FF)));
}

}  // namespace

UpCaseTable::UpCaseTable(const std::vector<uint8_t>& bytes) : table_(kUnitCount) {
  for (std::size_t unit = 0; unit < kUnitCount; ++unit) {
    table_[unit] = 2 * unit + 1 < bytes.size() ? static_cast<char16_t>(ntfsparsercore::io::LoadLe16(&bytes[2 * unit]))
                                               : static_cast<char16_t>(unit);
  }
}

UpCaseTable UpCaseTable::Read(ntfsparsercore::MftTable& table) {
  std::vector<uint8_t> bytes;
  ntfsparsercore::io::NtfsFile file(table.GetRecord(kUpCaseRecord, true));
  if (file.GetSize() >= kTableBytes) {
    bytes.resize(kTableBytes);
    bytes.resize(static_cast<std::size_t>(file.Read(bytes.data(), kTableBytes, 0)));
  }
  return UpCaseTable(bytes);
}

std::u16string UpCaseTable::Fold(const std::u16string& name) const {
  std::u16string folded(name);
  for (char16_t& unit : folded) unit = Fold(unit);
  return folded;
}

bool UpCaseTable::SameName(const std::u16string& a, const std::u16string& b) const {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (Fold(a[i]) != Fold(b[i])) return false;
  }
  return true;
}

std::u16string Utf8ToUtf16(const std::string& text) {
  std::u16string out;
  for (std::size_t i = 0; i < text.size();) {
    const unsigned char lead = static_cast<unsigned char>(text[i]);
    const int length = SequenceLength(lead);
    bool sound = length != 0 && i + length <= text.size();
    uint32_t code = length == 1 ? lead : lead & (0x7F >> length);
    for (int k = 1; sound && k < length; ++k) {
      const unsigned char next = static_cast<unsigned char>(text[i + k]);
      sound = (next & 0xC0) == 0x80;
      code = (code << 6) | (next & 0x3F);
    }
    if (!sound || code > 0x10FFFF) {
      out.push_back(kReplacement);
      ++i;
      continue;
    }
    AppendCode(&out, code);
    i += length;
  }
  return out;
}

std::string Utf16ToUtf8(const std::u16string& units) {
  std::vector<uint8_t> bytes(2 * units.size() + 2, 0);
  for (std::size_t i = 0; i < units.size(); ++i) {
    bytes[2 * i] = static_cast<uint8_t>(units[i] & 0xFF);
    bytes[2 * i + 1] = static_cast<uint8_t>(units[i] >> 8);
  }
  // A zero unit would end the conversion early; names hold none.
  return ntfsparsercore::Utf16LeToUtf8(bytes.data(), units.size());
}

}  // namespace tolvarcli
