#include "cli/increment_reader.h"

#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

#include "cli/block_codec.h"
#include "cli/block_hash.h"
#include "cli/crc64.h"
#include "ntfsparsercore/io/little_endian.h"

namespace tolvarcli {

using ntfsparsercore::io::LoadLe64;

namespace {

constexpr std::size_t kWordSize = 8;

bool BitIsSet(const std::vector<uint8_t>& bitmap, uint64_t index) {
  const uint64_t byte = index / 8;
  return byte < bitmap.size() && ((bitmap[byte] >> (index % 8)) & 1) != 0;
}

}  // namespace

IncrementReader::IncrementReader(std::string path) : path_(std::move(path)) {}

bool IncrementReader::Fail(const std::string& why) {
  error_ = why;
  return false;
}

bool IncrementReader::ReadExactly(std::ifstream& in, void* data, std::size_t size) {
  in.read(static_cast<char*>(data), static_cast<std::streamsize>(size));
  return static_cast<std::size_t>(in.gcount()) == size;
}

bool IncrementReader::CheckRecord(uint64_t index, uint64_t previous, bool first) {
  if (!first && index <= previous) return Fail("block " + std::to_string(index) + " out of order");
  if (!BitIsSet(bitmap_, index)) return Fail("block " + std::to_string(index) + " is not in the bitmap");
  // Guards the multiplication below as well as the volume's end.
  if (index >= header_.volumeSize / header_.blockSize) {
    return Fail("block " + std::to_string(index) + " lies past the end of the volume");
  }
  return true;
}

bool IncrementReader::Unpack(const Record& record, const std::vector<uint8_t>& stored,
                             std::vector<uint8_t>* block) const {
  if (header_.version == IncrementHeader::kVersion1) {
    std::memcpy(block->data(), stored.data(), block->size());
    return true;
  }
  if (header_.Compressed()) {
    if (!BlockCodec::Decompress(stored.data(), record.stored, block->data(), block->size())) return false;
  } else {
    if (record.stored != block->size()) return false;
    std::memcpy(block->data(), stored.data(), block->size());
  }
  return BlockHash::Of(block->data(), block->size()) == record.newHash;
}

bool IncrementReader::ReadRecords(std::ifstream& in, uint64_t end, std::vector<uint8_t>* stored,
                                  std::vector<uint8_t>* block,
                                  const std::function<void(const void*, std::size_t)>& sum) {
  const bool version1 = header_.version == IncrementHeader::kVersion1;
  const uint64_t headSize = header_.RecordHeaderSize();
  uint64_t at = IncrementHeader::kSize + header_.bitmapLength;
  if (!ReadPadding(in, &at, end, sum)) return Fail("file size does not fit whole blocks");
  while (at < end) {
    const std::string which = "block record " + std::to_string(records_.size());
    uint8_t head[IncrementHeader::kRecordHeaderSizeV3];
    if (end - at < headSize || !ReadExactly(in, head, headSize)) return Fail("file size does not fit whole blocks");
    Record record;
    record.index = LoadLe64(head + IncrementHeader::kRecordIndexOffset);
    record.flags = version1 ? 0 : LoadLe64(head + IncrementHeader::kRecordFlagsOffset);
    record.oldHash = version1 ? 0 : LoadLe64(head + IncrementHeader::kRecordOldHashOffset);
    record.newHash = version1 ? 0 : LoadLe64(head + IncrementHeader::kRecordNewHashOffset);
    record.stored = version1 ? header_.blockSize : LoadLe64(head + IncrementHeader::kRecordStoredLengthOffset);
    record.at = at + headSize;
    // A stored length is at most what zstd could make of a block; checked
    // before anything is allocated for it.
    if (record.stored > 2 * header_.blockSize || record.stored > end - record.at) {
      return Fail("file size does not fit whole blocks");
    }
    if (!CheckRecord(record.index, records_.empty() ? 0 : records_.back().index, records_.empty())) return false;
    stored->resize(record.stored);
    if (!ReadExactly(in, stored->data(), stored->size())) return Fail("cannot read " + which);
    sum(head, headSize);
    sum(stored->data(), stored->size());
    if (!Unpack(record, *stored, block)) return Fail(which + " does not match its hash");
    records_.push_back(record);
    at = record.at + record.stored;
    if (!ReadPadding(in, &at, end, sum)) return Fail("file size does not fit whole blocks");
  }
  return true;
}

bool IncrementReader::ReadPadding(std::ifstream& in, uint64_t* at, uint64_t end,
                                  const std::function<void(const void*, std::size_t)>& sum) {
  const uint64_t padding = header_.PaddingAfter(*at);
  if (padding == 0) return true;
  uint8_t zeros[IncrementHeader::kRecordAlignment];
  if (*at > end || end - *at < padding || !ReadExactly(in, zeros, padding)) return false;
  sum(zeros, padding);
  *at += padding;
  return true;
}

bool IncrementReader::Verify() {
  std::error_code sizeError;
  const uint64_t fileSize = std::filesystem::file_size(path_, sizeError);
  std::ifstream in(path_, std::ios::binary);
  if (sizeError || !in) {
    readFailed_ = true;
    return Fail("cannot read " + path_);
  }
  if (fileSize < IncrementHeader::kSize + IncrementHeader::kTrailerSize) return Fail("too short for an increment");

  uint8_t headerBytes[IncrementHeader::kSize];
  if (!ReadExactly(in, headerBytes, sizeof headerBytes)) return Fail("cannot read the header");
  if (!IncrementHeader::Decode(headerBytes, &header_, &error_)) return false;
  Crc64 crc;
  BlockHash hash;
  const bool version1 = header_.version == IncrementHeader::kVersion1;
  const auto sum = [&](const void* data, std::size_t size) {
    if (version1) {
      crc.Update(data, size);
    } else {
      hash.Update(data, size);
    }
  };
  sum(headerBytes, sizeof headerBytes);

  // Sizes from the header are checked against the file before anything is allocated.
  const uint64_t fixedSize = IncrementHeader::kSize + IncrementHeader::kTrailerSize;
  if (header_.bitmapLength > fileSize - fixedSize) return Fail("bitmap longer than the file");
  const uint64_t recordBytes = fileSize - fixedSize - header_.bitmapLength;
  if (version1 && recordBytes % (IncrementHeader::kRecordIndexSize + header_.blockSize) != 0) {
    return Fail("file size does not fit whole blocks");
  }
  bitmap_.assign(header_.bitmapLength, 0);
  if (!ReadExactly(in, bitmap_.data(), bitmap_.size())) return Fail("cannot read the bitmap");
  sum(bitmap_.data(), bitmap_.size());

  std::vector<uint8_t> stored;
  std::vector<uint8_t> block(header_.blockSize);
  records_.clear();
  if (!ReadRecords(in, fileSize - IncrementHeader::kTrailerSize, &stored, &block, sum)) return false;

  uint8_t trailer[IncrementHeader::kTrailerSize];
  if (!ReadExactly(in, trailer, sizeof trailer)) return Fail("cannot read the trailer");
  if (LoadLe64(trailer) != records_.size()) return Fail("block count in the trailer does not match the file");
  sum(trailer, kWordSize);
  if (LoadLe64(trailer + kWordSize) != (version1 ? crc.Value() : hash.Value())) return Fail("checksum mismatch");
  return true;
}

bool IncrementReader::ForEachBlock(const BlockVisitor& visit) {
  std::ifstream in(path_, std::ios::binary);
  if (!in) return false;
  std::vector<uint8_t> stored;
  std::vector<uint8_t> block(header_.blockSize);
  for (const Record& record : records_) {
    stored.resize(record.stored);
    in.seekg(static_cast<std::streamoff>(record.at));
    if (!ReadExactly(in, stored.data(), stored.size()) || !Unpack(record, stored, &block)) return false;
    if (!visit(record.index, block)) return false;
  }
  return true;
}

}  // namespace tolvarcli
