// NTFS's own upper-case table ($UpCase, record 10): one UTF-16 code unit
// for each of the 65,536 code units, by which Windows compares file names
// without regard to case. The command matches paths with it; the library's
// exports keep their lower-case lookup.
#ifndef TOLVAR_CLI_UP_CASE_TABLE_H_
#define TOLVAR_CLI_UP_CASE_TABLE_H_

#include <cstdint>
#include <string>
#include <vector>

#include "ntfsparsercore/mft_table.h"

namespace tolvarcli {

class UpCaseTable {
 public:
  // Code units in a full table.
  static constexpr std::size_t kUnitCount = 65536;
  static constexpr uint64_t kUpCaseRecord = 10;

  // A table from its bytes (UTF-16LE, one unit per code unit in order).
  // Units the bytes do not reach fold to themselves, so a short or missing
  // table still compares names exactly.
  explicit UpCaseTable(const std::vector<uint8_t>& bytes);

  // The table in $UpCase, read through table; an identity table when it
  // cannot be read.
  static UpCaseTable Read(ntfsparsercore::MftTable& table);

  char16_t Fold(char16_t unit) const { return table_[unit]; }
  std::u16string Fold(const std::u16string& name) const;
  // Whether two names are the same name to Windows.
  bool SameName(const std::u16string& a, const std::u16string& b) const;

 private:
  std::vector<char16_t> table_;  // kUnitCount entries
};

// UTF-8 text as UTF-16 code units; a byte that does not start or continue a
// sequence becomes U+FFFD.
std::u16string Utf8ToUtf16(const std::string& text);
// UTF-16 code units as UTF-8, lone surrogates as U+FFFD.
std::string Utf16ToUtf8(const std::u16string& units);

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_UP_CASE_TABLE_H_
