#include "core/vss/block_descriptor.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "ntfsparsercore/io/little_endian.h"

namespace {

namespace format = tolvarcore::vss::format;
using tolvarcore::vss::BlockDescriptor;

TEST(BlockDescriptor, ParseReadsEveryFieldLittleEndian) {
  std::vector<uint8_t> bytes(format::kDescriptorSize);
  ntfsparsercore::io::StoreLe64(bytes.data() + 0, 0x0000000123454000ull);
  ntfsparsercore::io::StoreLe64(bytes.data() + 8, 0x1122334455667788ull);
  ntfsparsercore::io::StoreLe64(bytes.data() + 16, 0x00000000ABCD0000ull);
  ntfsparsercore::io::StoreLe32(bytes.data() + 24, 0x00000088u);
  ntfsparsercore::io::StoreLe32(bytes.data() + 28, 0x8000000Fu);

  const BlockDescriptor descriptor = BlockDescriptor::Parse(bytes.data());

  EXPECT_EQ(descriptor.originalOffset, 0x0000000123454000ull);
  EXPECT_EQ(descriptor.relativeOffset, 0x1122334455667788ull);
  EXPECT_EQ(descriptor.storeDataOffset, 0x00000000ABCD0000ull);
  EXPECT_EQ(descriptor.flags, 0x88u);
  EXPECT_EQ(descriptor.allocationBitmap, 0x8000000Fu);
  EXPECT_FALSE(descriptor.IsForwarder());
  EXPECT_FALSE(descriptor.IsOverlay());
  EXPECT_FALSE(descriptor.IsNotUsed());
}

TEST(BlockDescriptor, FlagBitsAreRecognisedSeparately) {
  BlockDescriptor descriptor;
  descriptor.flags = format::kDescriptorFlagForwarder;
  EXPECT_TRUE(descriptor.IsForwarder());
  descriptor.flags = format::kDescriptorFlagOverlay;
  EXPECT_TRUE(descriptor.IsOverlay());
  EXPECT_FALSE(descriptor.IsForwarder());
  descriptor.flags = format::kDescriptorFlagNotUsed | 0x80;
  EXPECT_TRUE(descriptor.IsNotUsed());
  EXPECT_FALSE(descriptor.IsOverlay());
}

TEST(BlockDescriptor, OnlyAllZeroBytesAreEmpty) {
  std::vector<uint8_t> bytes(format::kDescriptorSize, 0);
  EXPECT_TRUE(BlockDescriptor::Parse(bytes.data()).IsEmpty());
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    bytes.assign(format::kDescriptorSize, 0);
    bytes[i] = 1;
    EXPECT_FALSE(BlockDescriptor::Parse(bytes.data()).IsEmpty()) << "byte " << i;
  }
}

}  // namespace
