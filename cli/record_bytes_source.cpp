#include "cli/record_bytes_source.h"

#include <cstring>
#include <utility>

namespace tolvarcli {

RecordBytesSource::RecordBytesSource(std::shared_ptr<ntfsparsercore::io::ISource> source, uint64_t offset,
                                     std::vector<uint8_t> bytes)
    : source_(std::move(source)), offset_(offset), bytes_(std::move(bytes)) {}

uint64_t RecordBytesSource::Read(void* buffer, uint64_t size, uint64_t offset) {
  const bool inside =
      offset >= offset_ && offset - offset_ <= bytes_.size() && size <= bytes_.size() - (offset - offset_);
  if (!inside) return source_->Read(buffer, size, offset);
  if (size != 0) std::memcpy(buffer, bytes_.data() + (offset - offset_), static_cast<std::size_t>(size));
  return size;
}

}  // namespace tolvarcli
