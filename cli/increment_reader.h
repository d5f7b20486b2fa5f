// Reads an increment file: first a full check of its structure and
// checksum, then its block records one by one.
#ifndef TOLVAR_CLI_INCREMENT_READER_H_
#define TOLVAR_CLI_INCREMENT_READER_H_

#include <cstdint>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "cli/increment_header.h"

namespace tolvarcli {

class IncrementReader {
 public:
  // A block record: its index and its blockSize bytes.
  using BlockVisitor = std::function<bool(uint64_t index, const std::vector<uint8_t>& block)>;

  explicit IncrementReader(std::string path);

  // Reads the whole file once: header, bitmap, every record (indices
  // ascending, set in the bitmap, whole blocks inside the volume), the
  // trailer's count and the CRC-64 over everything before it. False, with
  // Error() saying why, on the first thing that is wrong.
  bool Verify();

  // After Verify: calls visit for every record in file order; stops and
  // returns false when visit does or the file cannot be read.
  bool ForEachBlock(const BlockVisitor& visit);

  const IncrementHeader& Header() const { return header_; }
  uint64_t BlockCount() const { return count_; }
  const std::string& Error() const { return error_; }
  // True when the failure was reading the file, not its contents.
  bool ReadFailed() const { return readFailed_; }

 private:
  bool Fail(const std::string& why);
  bool ReadExactly(std::ifstream& in, void* data, std::size_t size);
  bool CheckRecord(uint64_t index, uint64_t previous, bool first);

  std::string path_;             // the increment file
  IncrementHeader header_;       // after Verify
  std::vector<uint8_t> bitmap_;  // after Verify
  uint64_t count_ = 0;           // block records, after Verify
  std::string error_;            // why Verify failed
  bool readFailed_ = false;      // the file itself could not be read
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_INCREMENT_READER_H_
