// Reads a FileRecordInfo straight from a record's bytes, for the records
// that make up nearly every MFT: free ones, extension records, and base
// records whose attributes all lie in the record itself (no
// $ATTRIBUTE_LIST), with resident $STANDARD_INFORMATION and $FILE_NAME
// values, one $DATA attribute per name, and an allocated size within the
// record. For those it gives what ReadFileRecordInfo gives through the
// library's NTFS parser, reading the bytes the way that parser does (fix-ups
// put back by absolute sector position, reads clipped to the allocated size,
// the attribute walk ended by a type above 4096 or a position met before),
// without building the parser's objects, which cost most of the time of
// `tolvar changes`. Every other record is left to the parser.
#ifndef TOLVAR_CLI_FILE_RECORD_PARSER_H_
#define TOLVAR_CLI_FILE_RECORD_PARSER_H_

#include <cstdint>
#include <vector>

#include "cli/file_record_info.h"

namespace tolvarcli {

class FileRecordParser {
 public:
  // Where the record lies and how the volume is laid out.
  struct Layout {
    uint64_t position = 0;     // the record's first byte in the MFT's source
    uint64_t sectorSize = 0;   // the volume's; 0 leaves the fix-ups out
    uint64_t clusterSize = 0;  // the volume's
  };

  // Fills *info from raw, the record numbered record as stored, and
  // returns true; false when the record is not one this reads, and *info
  // is then to be read through the parser.
  static bool Parse(uint64_t record, const std::vector<uint8_t>& raw, const Layout& layout, FileRecordInfo* info);
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_FILE_RECORD_PARSER_H_
