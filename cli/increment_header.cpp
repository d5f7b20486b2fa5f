#include "cli/increment_header.h"

#include <algorithm>
#include <cstring>

#include "cli/block_codec.h"
#include "cli/block_hash.h"
#include "ntfsparsercore/io/little_endian.h"

namespace tolvarcli {

using ntfsparsercore::io::LoadLe32;
using ntfsparsercore::io::LoadLe64;
using ntfsparsercore::io::StoreLe32;
using ntfsparsercore::io::StoreLe64;

constexpr char IncrementHeader::kMagic[9];

namespace {

constexpr uint64_t kMagicSize = 8;
// Block sizes that Init accepts.
constexpr uint64_t kMinBlockSize = 4096;
constexpr uint64_t kMaxBlockSize = 131072;

void StoreIdentifier(uint8_t* field, const std::string& identifier) {
  std::memset(field, 0, IncrementHeader::kIdentifierField);
  std::memcpy(field, identifier.data(),
              std::min<std::size_t>(identifier.size(), IncrementHeader::kIdentifierField - 1));
}

std::string LoadIdentifier(const uint8_t* field) {
  const char* text = reinterpret_cast<const char*>(field);
  // The field may lack a NUL in a damaged file: never read past it.
  return std::string(text, strnlen(text, IncrementHeader::kIdentifierField));
}

}  // namespace

void IncrementHeader::Encode(uint8_t* out) const {
  std::memset(out, 0, kSize);
  std::memcpy(out + kMagicOffset, kMagic, kMagicSize);
  StoreLe32(out + kVersionOffset, version);
  StoreLe64(out + kFlagsOffset, flags);
  StoreLe32(out + kHeaderSizeOffset, static_cast<uint32_t>(kSize));
  StoreLe64(out + kVolumeSizeOffset, volumeSize);
  StoreLe64(out + kBlockSizeOffset, blockSize);
  StoreLe64(out + kBitmapLengthOffset, bitmapLength);
  StoreIdentifier(out + kFromOffset, from);
  StoreIdentifier(out + kToOffset, to);
}

bool IncrementHeader::Decode(const uint8_t* in, IncrementHeader* header, std::string* error) {
  if (std::memcmp(in + kMagicOffset, kMagic, kMagicSize) != 0) {
    *error = "not an increment file (bad magic)";
    return false;
  }
  const uint32_t version = LoadLe32(in + kVersionOffset);
  const bool fingerprinted = version == kVersion2 || version == kVersion3;
  const bool known = version == kVersion1 || (fingerprinted && BlockHash::Available());
  if (!known || LoadLe32(in + kHeaderSizeOffset) != kSize) {
    *error = "unsupported increment version " + std::to_string(version);
    return false;
  }
  IncrementHeader decoded;
  decoded.version = version;
  decoded.flags = fingerprinted ? LoadLe64(in + kFlagsOffset) : 0;
  if ((decoded.flags & ~kFlagCompressed) != 0 || (decoded.Compressed() && !BlockCodec::Available())) {
    *error = "unsupported increment flags " + std::to_string(decoded.flags);
    return false;
  }
  decoded.volumeSize = LoadLe64(in + kVolumeSizeOffset);
  decoded.blockSize = LoadLe64(in + kBlockSizeOffset);
  decoded.bitmapLength = LoadLe64(in + kBitmapLengthOffset);
  decoded.from = LoadIdentifier(in + kFromOffset);
  decoded.to = LoadIdentifier(in + kToOffset);
  if (decoded.blockSize < kMinBlockSize || decoded.blockSize > kMaxBlockSize ||
      decoded.blockSize % kMinBlockSize != 0) {
    *error = "bad block size " + std::to_string(decoded.blockSize);
    return false;
  }
  *header = decoded;
  return true;
}

uint64_t IncrementHeader::RecordHeaderSize() const {
  if (version == kVersion1) return kRecordIndexSize;
  return version == kVersion2 ? kRecordHeaderSizeV2 : kRecordHeaderSizeV3;
}

uint64_t IncrementHeader::PaddingAfter(uint64_t offset) const {
  if (version != kVersion3) return 0;
  return (kRecordAlignment - offset % kRecordAlignment) % kRecordAlignment;
}

}  // namespace tolvarcli
