#include "cli/increment_reader.h"

#include <filesystem>
#include <system_error>
#include <utility>

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

bool IncrementReader::Verify() {
  std::error_code sizeError;
  const uint64_t fileSize = std::filesystem::file_size(path_, sizeError);
  std::ifstream in(path_, std::ios::binary);
  if (sizeError || !in) {
    readFailed_ = true;
    return Fail("cannot read " + path_);
  }
  if (fileSize < IncrementHeader::kSize + IncrementHeader::kTrailerSize) return Fail("too short for an increment");

  Crc64 crc;
  uint8_t headerBytes[IncrementHeader::kSize];
  if (!ReadExactly(in, headerBytes, sizeof headerBytes)) return Fail("cannot read the header");
  if (!IncrementHeader::Decode(headerBytes, &header_, &error_)) return false;
  crc.Update(headerBytes, sizeof headerBytes);

  // Sizes from the header are checked against the file before anything is allocated.
  const uint64_t recordSize = IncrementHeader::kRecordIndexSize + header_.blockSize;
  const uint64_t fixedSize = IncrementHeader::kSize + IncrementHeader::kTrailerSize;
  if (header_.bitmapLength > fileSize - fixedSize) return Fail("bitmap longer than the file");
  const uint64_t recordBytes = fileSize - fixedSize - header_.bitmapLength;
  if (recordBytes % recordSize != 0) return Fail("file size does not fit whole blocks");
  const uint64_t records = recordBytes / recordSize;

  bitmap_.assign(header_.bitmapLength, 0);
  if (!ReadExactly(in, bitmap_.data(), bitmap_.size())) return Fail("cannot read the bitmap");
  crc.Update(bitmap_.data(), bitmap_.size());

  std::vector<uint8_t> block(header_.blockSize);
  uint64_t previous = 0;
  for (uint64_t i = 0; i < records; ++i) {
    uint8_t indexBytes[IncrementHeader::kRecordIndexSize];
    if (!ReadExactly(in, indexBytes, sizeof indexBytes) || !ReadExactly(in, block.data(), block.size())) {
      return Fail("cannot read block record " + std::to_string(i));
    }
    const uint64_t index = LoadLe64(indexBytes);
    if (!CheckRecord(index, previous, i == 0)) return false;
    previous = index;
    crc.Update(indexBytes, sizeof indexBytes);
    crc.Update(block.data(), block.size());
  }

  uint8_t trailer[IncrementHeader::kTrailerSize];
  if (!ReadExactly(in, trailer, sizeof trailer)) return Fail("cannot read the trailer");
  if (LoadLe64(trailer) != records) return Fail("block count in the trailer does not match the file");
  crc.Update(trailer, kWordSize);
  if (LoadLe64(trailer + kWordSize) != crc.Value()) return Fail("checksum mismatch");
  count_ = records;
  return true;
}

bool IncrementReader::ForEachBlock(const BlockVisitor& visit) {
  std::ifstream in(path_, std::ios::binary);
  in.seekg(static_cast<std::streamoff>(IncrementHeader::kSize + header_.bitmapLength));
  if (!in) return false;
  std::vector<uint8_t> block(header_.blockSize);
  for (uint64_t i = 0; i < count_; ++i) {
    uint8_t indexBytes[IncrementHeader::kRecordIndexSize];
    if (!ReadExactly(in, indexBytes, sizeof indexBytes) || !ReadExactly(in, block.data(), block.size())) return false;
    if (!visit(LoadLe64(indexBytes), block)) return false;
  }
  return true;
}

}  // namespace tolvarcli
