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

  // Where one record is and, in versions 2 and 3, what it promises.
  struct Record {
    uint64_t index = 0;    // the block's number
    uint64_t flags = 0;    // versions 2 and 3: IncrementHeader::kRecordUnchecked
    uint64_t oldHash = 0;  // versions 2 and 3: the block's hash in the older shadow copy
    uint64_t newHash = 0;  // versions 2 and 3: the hash of its new contents
    uint64_t at = 0;       // file offset of the stored bytes
    uint64_t stored = 0;   // stored length
  };

  explicit IncrementReader(std::string path);

  // Reads the whole file once: header, bitmap, every record (indices
  // ascending, set in the bitmap, whole blocks inside the volume; in
  // versions 2 and 3 each block decompressed and checked against its hash), the
  // trailer's count and the checksum over everything before it. False,
  // with Error() saying why, on the first thing that is wrong.
  bool Verify();

  // After Verify: calls visit for every record in file order with the
  // block's new contents; stops and returns false when visit does or the
  // file cannot be read.
  bool ForEachBlock(const BlockVisitor& visit);

  const IncrementHeader& Header() const { return header_; }
  uint64_t BlockCount() const { return records_.size(); }
  const std::vector<Record>& Records() const { return records_; }
  const std::string& Error() const { return error_; }
  // True when the failure was reading the file, not its contents.
  bool ReadFailed() const { return readFailed_; }

 private:
  bool Fail(const std::string& why);
  bool ReadExactly(std::ifstream& in, void* data, std::size_t size);
  bool CheckRecord(uint64_t index, uint64_t previous, bool first);
  bool ReadRecords(std::ifstream& in, uint64_t end, std::vector<uint8_t>* stored, std::vector<uint8_t>* block,
                   const std::function<void(const void*, std::size_t)>& sum);
  // Reads and sums the zeros that follow the part of the file ending at
  // *at, and moves *at past them; false when the file ends before end.
  bool ReadPadding(std::ifstream& in, uint64_t* at, uint64_t end,
                   const std::function<void(const void*, std::size_t)>& sum);
  // The block's new contents from its stored bytes; false when they do not decode.
  bool Unpack(const Record& record, const std::vector<uint8_t>& stored, std::vector<uint8_t>* block) const;

  std::string path_;             // the increment file
  IncrementHeader header_;       // after Verify
  std::vector<uint8_t> bitmap_;  // after Verify
  std::vector<Record> records_;  // after Verify
  std::string error_;            // why Verify failed
  bool readFailed_ = false;      // the file itself could not be read
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_INCREMENT_READER_H_
