// The value of a file name attribute (0x30): the parent directory, the
// times and sizes as the directory entry last saw them, and the name with
// its namespace. Read in two steps, the fixed part and then the name, so
// that a caller looking for one namespace reads only the names it wants.
#ifndef TOLVAR_NTFSPARSERCORE_FILE_NAME_VALUE_H_
#define TOLVAR_NTFSPARSERCORE_FILE_NAME_VALUE_H_

#include <cstdint>
#include <string>

#include "ntfsparsercore/io/i_source.h"

namespace ntfsparsercore {

class FileNameValue {
 public:
  // The fixed part, read in one piece.
  static constexpr uint64_t kHeaderSize = 66;
  static constexpr uint64_t kParentReference = 0x00;      // 8 bytes: file reference of the parent directory
  static constexpr uint64_t kCreationTime = 0x08;         // 8 bytes: FILETIME
  static constexpr uint64_t kModificationTime = 0x10;     // 8 bytes: FILETIME
  static constexpr uint64_t kMftModificationTime = 0x18;  // 8 bytes: FILETIME
  static constexpr uint64_t kAccessTime = 0x20;           // 8 bytes: FILETIME
  static constexpr uint64_t kAllocatedSize = 0x28;        // 8 bytes
  static constexpr uint64_t kDataSize = 0x30;             // 8 bytes
  static constexpr uint64_t kFileAttributes = 0x38;       // 4 bytes
  static constexpr uint64_t kNameLength = 0x40;           // 1 byte: name length in UTF-16 code units
  static constexpr uint64_t kNamespace = 0x41;            // 1 byte: namespace of the name
  static constexpr uint64_t kName = 0x42;                 // the name, UTF-16LE

  // Namespaces.
  static constexpr uint8_t kNamespacePosix = 0;
  static constexpr uint8_t kNamespaceWin32 = 1;
  static constexpr uint8_t kNamespaceDos = 2;
  static constexpr uint8_t kNamespaceWin32AndDos = 3;

  // Reads the fixed part from the value; false when it cannot be read in full.
  bool ReadHeader(io::ISource& value);

  uint64_t ParentRecordNumber() const;
  uint8_t Namespace() const { return header_[kNamespace]; }
  uint8_t NameLength() const { return header_[kNameLength]; }

  // Reads the name from the value, in UTF-8; code units a short read
  // leaves out read as zeros.
  std::string ReadName(io::ISource& value) const;

 private:
  static constexpr std::size_t kNameBufferSize = 514;  // 255 code units and a terminator

  uint8_t header_[kHeaderSize] = {};
};

}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_FILE_NAME_VALUE_H_
