// Writes an increment file through an OutputFile: to standard output, in
// place into a device or FIFO, or under a temporary name renamed into place
// only when complete, so that a failed backup leaves no partial file behind.
#ifndef TOLVAR_CLI_INCREMENT_WRITER_H_
#define TOLVAR_CLI_INCREMENT_WRITER_H_

#include <cstdint>
#include <string>
#include <vector>

#include "cli/block_hash.h"
#include "cli/crc64.h"
#include "cli/increment_header.h"
#include "cli/output_file.h"

namespace tolvarcli {

class IncrementWriter {
 public:
  explicit IncrementWriter(std::string path);
  IncrementWriter(const IncrementWriter&) = delete;
  IncrementWriter& operator=(const IncrementWriter&) = delete;

  // Opens the output and writes the header and the bitmap.
  bool Begin(const IncrementHeader& header, const std::vector<uint8_t>& bitmap);

  // Appends one block record (block holds the header's block size).
  // oldHash, the hash of the block in the older shadow copy, and the
  // record's flags go into version 2 and 3 records only.
  bool AddBlock(uint64_t index, const std::vector<uint8_t>& block, uint64_t oldHash = 0, uint64_t flags = 0);
  // The same for a version 2 or 3 record whose block hash, newHash, the caller
  // has taken already.
  bool AddHashedBlock(uint64_t index, const std::vector<uint8_t>& block, uint64_t oldHash, uint64_t newHash,
                      uint64_t flags);

  // Writes the trailer and commits the output.
  bool Commit();

  // The name to put in a message about a failed write.
  std::string WritingName() const { return out_.WritingName(); }
  bool IsStandardOutput() const { return out_.IsStandardOutput(); }
  uint64_t BlockCount() const { return count_; }

 private:
  bool Write(const void* data, std::size_t size);
  // Writes the zeros that the format puts after what was written last.
  bool Pad();

  OutputFile out_;               // the target
  IncrementHeader header_;       // as Begin wrote it
  Crc64 crc_;                    // version 1: over every byte written so far
  BlockHash hash_;               // versions 2 and 3: over every byte written so far
  uint64_t written_ = 0;         // bytes written so far
  std::vector<uint8_t> packed_;  // a compressed block
  uint64_t count_ = 0;           // block records written
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_INCREMENT_WRITER_H_
