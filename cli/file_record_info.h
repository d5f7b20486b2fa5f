// What the command needs to know of one MFT record in one snapshot: its
// header, its names with their parents, the four $STANDARD_INFORMATION
// times and attributes, and its data streams (size, runs or resident value).
// Read through the library's NTFS parser; a record that fails the parser's
// checks is marked damaged rather than dropped.
#ifndef TOLVAR_CLI_FILE_RECORD_INFO_H_
#define TOLVAR_CLI_FILE_RECORD_INFO_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ntfsparsercore/attribute.h"
#include "ntfsparsercore/file_name_value.h"
#include "ntfsparsercore/mft_table.h"
#include "ntfsparsercore/run_list.h"

namespace tolvarcli {

// One $FILE_NAME attribute.
struct FileName {
  uint64_t parent = 0;          // parent directory's record number
  uint16_t parentSequence = 0;  // and its sequence number
  uint8_t nameSpace = 0;        // 0 POSIX, 1 Win32, 2 DOS, 3 Win32 and DOS
  std::u16string name;          // the name as stored
};

// One $DATA attribute.
struct DataStream {
  std::u16string name;                 // empty for the unnamed stream
  uint64_t size = 0;                   // value size
  uint64_t initializedSize = 0;        // bytes written; the rest reads as zeros
  bool resident = true;                // value inside the record
  bool compressed = false;             // LZNT1 compression units
  bool sparse = false;                 // may have unallocated runs
  std::vector<uint8_t> residentValue;  // the value, when resident
  ntfsparsercore::RunList runs;        // the runs, when not
  uint16_t compressionUnit = 0;        // log2 clusters per unit, when compressed
};

struct FileRecordInfo {
  // $STANDARD_INFORMATION times, in this order.
  enum Time { kCreated = 0, kModified = 1, kRecordChanged = 2, kAccessed = 3, kTimeCount = 4 };
  // Namespaces of FileName::nameSpace.
  static constexpr uint8_t kPosixNamespace = 0;
  static constexpr uint8_t kWin32Namespace = 1;
  static constexpr uint8_t kDosNamespace = 2;
  static constexpr uint8_t kWin32AndDosNamespace = 3;

  uint64_t record = 0;      // the record number
  uint16_t sequence = 0;    // the header's sequence number
  bool zero = true;         // the record's bytes are all zero (never used)
  bool damaged = false;     // not zero, and the parser reported it
  bool inUse = false;       // in use and sound
  bool directory = false;   // a directory
  uint64_t baseRecord = 0;  // the base record of an extension record; 0 for a base record
  std::vector<FileName> names;
  bool hasTimes = false;                      // $STANDARD_INFORMATION was read
  uint64_t times[kTimeCount] = {0, 0, 0, 0};  // Windows FILETIMEs
  uint32_t attributes = 0;                    // file attribute flags
  std::vector<DataStream> streams;            // every $DATA attribute, in the parser's order

  // The unnamed data stream, or null.
  const DataStream* UnnamedData() const;
  // The unnamed data stream's size; 0 without one.
  uint64_t Size() const;
  // The name shown for the record: POSIX, then Win32, then Win32-and-DOS,
  // then DOS namespace; null without a name.
  const FileName* PreferredName() const;
  // The names other than DOS short names: those a directory listing shows.
  std::vector<FileName> ListedNames() const;
};

// Bytes of a $STANDARD_INFORMATION value that are read, and the most of a
// $FILE_NAME value (its header and 255 UTF-16 code units).
constexpr uint64_t kStandardInformationSize = 36;
constexpr uint64_t kFileNameValueLimit = ntfsparsercore::FileNameValue::kHeaderSize + 2 * 255;

// The times and attributes of a $STANDARD_INFORMATION value into *info;
// false (and *info unchanged) when the value is shorter than they need.
bool DecodeStandardInformation(const std::vector<uint8_t>& value, FileRecordInfo* info);
// A $FILE_NAME value's parent and name; false when the value is shorter
// than its header.
bool DecodeFileName(const std::vector<uint8_t>& value, FileName* name);

// The record numbered record, read through table on a volume of clusters
// of clusterSize bytes. Messages the parser makes while reading it are kept
// from the error queue.
FileRecordInfo ReadFileRecordInfo(ntfsparsercore::MftTable& table, uint64_t clusterSize, uint64_t record);

// The record's bytes as stored (no fix-up applied); short when the MFT
// ends before them.
std::vector<uint8_t> ReadRawRecord(ntfsparsercore::MftTable& table, uint64_t record);

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_FILE_RECORD_INFO_H_
