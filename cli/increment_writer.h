// Writes an increment file under a temporary name beside its target and
// renames it into place only when complete, so that a failed backup leaves
// no partial file behind.
#ifndef TOLVAR_CLI_INCREMENT_WRITER_H_
#define TOLVAR_CLI_INCREMENT_WRITER_H_

#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include "cli/crc64.h"
#include "cli/increment_header.h"

namespace tolvarcli {

class IncrementWriter {
 public:
  explicit IncrementWriter(std::string path);
  IncrementWriter(const IncrementWriter&) = delete;
  IncrementWriter& operator=(const IncrementWriter&) = delete;
  // Removes the temporary file unless Commit succeeded.
  ~IncrementWriter();

  // Creates the temporary file and writes the header and the bitmap.
  bool Begin(const IncrementHeader& header, const std::vector<uint8_t>& bitmap);

  // Appends one block record (block holds the header's block size).
  bool AddBlock(uint64_t index, const std::vector<uint8_t>& block);

  // Writes the trailer, closes the file and renames it to the target.
  bool Commit();

  const std::string& TemporaryPath() const { return temporary_; }
  uint64_t BlockCount() const { return count_; }

 private:
  bool Write(const void* data, std::size_t size);

  std::string path_;        // the target
  std::string temporary_;   // where the file grows until Commit
  std::ofstream out_;       // the temporary file while open
  Crc64 crc_;               // over every byte written so far
  uint64_t count_ = 0;      // block records written
  bool committed_ = false;  // renamed into place
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_INCREMENT_WRITER_H_
