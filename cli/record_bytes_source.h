// One MFT record's bytes, read once, in front of the source they came from:
// the NTFS parser reads a record in many small pieces (the fix-up array a
// byte at a time, each attribute header apart), and serving them from memory
// rather than through the snapshot's views is most of what reading a
// record costs. Bytes outside the record (an attribute list's extension
// records, a damaged header's sizes that reach past the record) still come
// from the source, so the parser sees exactly what it would without it.
#ifndef TOLVAR_CLI_RECORD_BYTES_SOURCE_H_
#define TOLVAR_CLI_RECORD_BYTES_SOURCE_H_

#include <cstdint>
#include <memory>
#include <vector>

#include "ntfsparsercore/io/i_source.h"

namespace tolvarcli {

class RecordBytesSource : public ntfsparsercore::io::ISource {
 public:
  // bytes are what source holds at offset; source is shared.
  RecordBytesSource(std::shared_ptr<ntfsparsercore::io::ISource> source, uint64_t offset, std::vector<uint8_t> bytes);

  uint64_t Read(void* buffer, uint64_t size, uint64_t offset) override;
  uint64_t GetSize() override { return source_->GetSize(); }

 private:
  std::shared_ptr<ntfsparsercore::io::ISource> source_;
  uint64_t offset_;             // where bytes_ lie in source_
  std::vector<uint8_t> bytes_;  // the record
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_RECORD_BYTES_SOURCE_H_
