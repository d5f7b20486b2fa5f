#include "ntfsparsercore/index_entry_header.h"

#include <gtest/gtest.h>

#include <cstdint>

#include "ntfsparsercore/io/little_endian.h"
#include "ntfsparsercore/ntfs_format.h"

namespace {

namespace format = ntfsparsercore::format;
using ntfsparsercore::IndexEntryHeader;

TEST(IndexEntryHeader, FileReferenceKeepsTheRecordNumberInItsLow48Bits) {
  uint8_t bytes[format::kEntryHeaderSize] = {};
  ntfsparsercore::io::StoreLe64(bytes + format::kEntryFileReference, 0x0007123456789abcull);
  const IndexEntryHeader entry = IndexEntryHeader::Parse(bytes);
  EXPECT_EQ(entry.fileReference, 0x0007123456789abcull);
  EXPECT_EQ(entry.RecordNumber(), 0x123456789abcull);
}

TEST(IndexEntryHeader, LengthAndFlagsComeFromTheirFields) {
  uint8_t bytes[format::kEntryHeaderSize] = {};
  ntfsparsercore::io::StoreLe16(bytes + format::kEntryLength, 0x68);
  ntfsparsercore::io::StoreLe32(bytes + format::kEntryFlags, format::kEntryFlagHasSubNode | format::kEntryFlagLast);
  const IndexEntryHeader entry = IndexEntryHeader::Parse(bytes);
  EXPECT_EQ(entry.length, 0x68);
  EXPECT_TRUE(entry.HasSubNode());
  EXPECT_TRUE(entry.IsLast());
}

TEST(IndexEntryHeader, OtherFlagBitsMeanNeitherSubNodeNorLast) {
  uint8_t bytes[format::kEntryHeaderSize] = {};
  ntfsparsercore::io::StoreLe32(bytes + format::kEntryFlags, 0xfffffffcu);
  const IndexEntryHeader entry = IndexEntryHeader::Parse(bytes);
  EXPECT_FALSE(entry.HasSubNode());
  EXPECT_FALSE(entry.IsLast());
}

TEST(IndexEntryHeader, SubNodeVcnIsTheEntrysLastEightBytes) {
  uint8_t bytes[format::kEntryHeaderSize] = {};
  ntfsparsercore::io::StoreLe16(bytes + format::kEntryLength, 0x18);
  EXPECT_EQ(IndexEntryHeader::Parse(bytes).SubNodeVcnPosition(0x40), 0x40u + 0x18u - 8u);
}

}  // namespace
