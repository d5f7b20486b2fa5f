#include "cli/increment_writer.h"

#include <utility>

#include "ntfsparsercore/io/little_endian.h"

namespace tolvarcli {

IncrementWriter::IncrementWriter(std::string path) : out_(std::move(path)) {}

bool IncrementWriter::Begin(const IncrementHeader& header, const std::vector<uint8_t>& bitmap) {
  if (!out_.Open()) return false;
  uint8_t bytes[IncrementHeader::kSize];
  header.Encode(bytes);
  return Write(bytes, sizeof bytes) && Write(bitmap.data(), bitmap.size());
}

bool IncrementWriter::AddBlock(uint64_t index, const std::vector<uint8_t>& block) {
  uint8_t indexBytes[IncrementHeader::kRecordIndexSize];
  ntfsparsercore::io::StoreLe64(indexBytes, index);
  if (!Write(indexBytes, sizeof indexBytes) || !Write(block.data(), block.size())) return false;
  ++count_;
  return true;
}

bool IncrementWriter::Commit() {
  uint8_t countBytes[8];
  ntfsparsercore::io::StoreLe64(countBytes, count_);
  if (!Write(countBytes, sizeof countBytes)) return false;
  uint8_t crcBytes[8];
  ntfsparsercore::io::StoreLe64(crcBytes, crc_.Value());
  return out_.Write(crcBytes, sizeof crcBytes) && out_.Commit();
}

bool IncrementWriter::Write(const void* data, std::size_t size) {
  crc_.Update(data, size);
  return out_.Write(data, size);
}

}  // namespace tolvarcli
