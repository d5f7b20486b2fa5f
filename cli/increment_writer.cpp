#include "cli/increment_writer.h"

#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

#include "ntfsparsercore/io/little_endian.h"

namespace tolvarcli {

namespace {

constexpr const char* kTemporarySuffix = ".partial";

}  // namespace

IncrementWriter::IncrementWriter(std::string path) : path_(std::move(path)), temporary_(path_ + kTemporarySuffix) {}

IncrementWriter::~IncrementWriter() {
  if (committed_) return;
  if (out_.is_open()) out_.close();
  std::error_code ignored;
  std::filesystem::remove(temporary_, ignored);
}

bool IncrementWriter::Begin(const IncrementHeader& header, const std::vector<uint8_t>& bitmap) {
  out_.open(temporary_, std::ios::binary | std::ios::trunc);
  if (!out_) return false;
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
  out_.write(reinterpret_cast<const char*>(crcBytes), sizeof crcBytes);
  out_.close();
  if (out_.fail()) return false;
  std::error_code error;
  std::filesystem::rename(temporary_, path_, error);
  if (error) return false;
  committed_ = true;
  return true;
}

bool IncrementWriter::Write(const void* data, std::size_t size) {
  crc_.Update(data, size);
  out_.write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
  return static_cast<bool>(out_);
}

}  // namespace tolvarcli
