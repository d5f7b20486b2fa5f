#include "cli/increment_writer.h"

#include <utility>

#include "cli/block_codec.h"
#include "ntfsparsercore/io/little_endian.h"

namespace tolvarcli {

using ntfsparsercore::io::StoreLe64;

namespace {

const uint8_t kZeros[IncrementHeader::kRecordAlignment] = {};

}  // namespace

IncrementWriter::IncrementWriter(std::string path) : out_(std::move(path)) {}

bool IncrementWriter::Begin(const IncrementHeader& header, const std::vector<uint8_t>& bitmap) {
  header_ = header;
  if (!out_.Open()) return false;
  uint8_t bytes[IncrementHeader::kSize];
  header.Encode(bytes);
  return Write(bytes, sizeof bytes) && Write(bitmap.data(), bitmap.size()) && Pad();
}

bool IncrementWriter::AddBlock(uint64_t index, const std::vector<uint8_t>& block, uint64_t oldHash, uint64_t flags) {
  if (header_.version == IncrementHeader::kVersion1) {
    uint8_t indexBytes[IncrementHeader::kRecordIndexSize];
    StoreLe64(indexBytes, index);
    if (!Write(indexBytes, sizeof indexBytes) || !Write(block.data(), block.size())) return false;
    ++count_;
    return true;
  }
  return AddHashedBlock(index, block, oldHash, BlockHash::Of(block.data(), block.size()), flags);
}

bool IncrementWriter::AddHashedBlock(uint64_t index, const std::vector<uint8_t>& block, uint64_t oldHash,
                                     uint64_t newHash, uint64_t flags) {
  const uint8_t* stored = block.data();
  std::size_t storedSize = block.size();
  if (header_.Compressed()) {
    if (!BlockCodec::Compress(block.data(), block.size(), &packed_)) return false;
    stored = packed_.data();
    storedSize = packed_.size();
  }
  uint8_t head[IncrementHeader::kRecordHeaderSizeV3] = {};
  StoreLe64(head + IncrementHeader::kRecordIndexOffset, index);
  StoreLe64(head + IncrementHeader::kRecordFlagsOffset, flags);
  StoreLe64(head + IncrementHeader::kRecordOldHashOffset, oldHash);
  StoreLe64(head + IncrementHeader::kRecordNewHashOffset, newHash);
  StoreLe64(head + IncrementHeader::kRecordStoredLengthOffset, storedSize);
  if (!Write(head, header_.RecordHeaderSize()) || !Write(stored, storedSize) || !Pad()) return false;
  ++count_;
  return true;
}

bool IncrementWriter::Commit() {
  uint8_t countBytes[8];
  StoreLe64(countBytes, count_);
  if (!Write(countBytes, sizeof countBytes)) return false;
  uint8_t sumBytes[8];
  StoreLe64(sumBytes, header_.version == IncrementHeader::kVersion1 ? crc_.Value() : hash_.Value());
  return out_.Write(sumBytes, sizeof sumBytes) && out_.Commit();
}

bool IncrementWriter::Write(const void* data, std::size_t size) {
  if (header_.version == IncrementHeader::kVersion1) {
    crc_.Update(data, size);
  } else {
    hash_.Update(data, size);
  }
  written_ += size;
  return out_.Write(data, size);
}

bool IncrementWriter::Pad() {
  const uint64_t padding = header_.PaddingAfter(written_);
  return padding == 0 || Write(kZeros, padding);
}

}  // namespace tolvarcli
