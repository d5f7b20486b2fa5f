#include "cli/raw_image_writer.h"

namespace tolvarcli {

bool RawImageWriter::Open(uint64_t size) {
  size_ = size;
  return out_.Open();
}

bool RawImageWriter::SkipTo(uint64_t offset) {
  return offset >= out_.Position() && out_.WriteZeros(offset - out_.Position());
}

bool RawImageWriter::Put(uint64_t offset, const uint8_t* data, std::size_t size) {
  return SkipTo(offset) && out_.Write(data, size);
}

bool RawImageWriter::PutZeros(uint64_t offset, uint64_t size) { return SkipTo(offset) && out_.WriteZeros(size); }

bool RawImageWriter::Commit() { return SkipTo(size_) && out_.Commit(); }

}  // namespace tolvarcli
