#include "core/vss/guid.h"

#include <gtest/gtest.h>

namespace {

using tolvarcore::vss::Guid;
using tolvarcore::vss::StoreIdentifier;

TEST(Guid, DefaultIsZero) {
  Guid guid;
  EXPECT_TRUE(guid.IsZero());
  EXPECT_EQ(guid.ToString(), "00000000-0000-0000-0000-000000000000");
}

TEST(Guid, TextFormReversesTheFirstThreeGroups) {
  const uint8_t bytes[16] = {0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07,
                             0x08, 0x09, 0x0a, 0x0b, 0x0c, 0x0d, 0x0e, 0x0f};
  EXPECT_EQ(Guid::FromBytes(bytes).ToString(), "03020100-0504-0706-0809-0a0b0c0d0e0f");
}

TEST(Guid, StoreIdentifierHasItsOnDiskBytesAndText) {
  const uint8_t bytes[16] = {0x6b, 0x87, 0x08, 0x38, 0x76, 0xc1, 0x48, 0x4e,
                             0xb7, 0xae, 0x04, 0x04, 0x6e, 0x6c, 0xc7, 0x52};
  EXPECT_EQ(StoreIdentifier(), Guid::FromBytes(bytes));
  EXPECT_EQ(StoreIdentifier().ToString(), "3808876b-c176-4e48-b7ae-04046e6cc752");
  EXPECT_EQ(&StoreIdentifier(), &StoreIdentifier());
}

TEST(Guid, ComparesAllSixteenBytes) {
  Guid a;
  Guid b;
  b.bytes[15] = 1;
  EXPECT_NE(a, b);
  EXPECT_FALSE(b.IsZero());
  a.bytes[15] = 1;
  EXPECT_EQ(a, b);
}

TEST(Guid, ParseIsTheInverseOfToString) {
  Guid guid;
  ASSERT_TRUE(Guid::Parse("ec06abc4-bd2f-41cc-a817-921f2046080d", &guid));
  EXPECT_EQ(guid.bytes[0], 0xc4);
  EXPECT_EQ(guid.bytes[3], 0xec);
  EXPECT_EQ(guid.bytes[8], 0xa8);
  EXPECT_EQ(guid.ToString(), "ec06abc4-bd2f-41cc-a817-921f2046080d");
  ASSERT_TRUE(Guid::Parse("EC06ABC4-BD2F-41CC-A817-921F2046080D", &guid));
  EXPECT_EQ(guid.ToString(), "ec06abc4-bd2f-41cc-a817-921f2046080d");
}

TEST(Guid, ParseRejectsBracesAndMalformedText) {
  Guid guid;
  guid.bytes[0] = 7;
  EXPECT_FALSE(Guid::Parse("{ec06abc4-bd2f-41cc-a817-921f2046080d}", &guid));
  EXPECT_FALSE(Guid::Parse("ec06abc4-bd2f-41cc-a817-921f2046080", &guid));
  EXPECT_FALSE(Guid::Parse("ec06abc4xbd2f-41cc-a817-921f2046080d", &guid));
  EXPECT_FALSE(Guid::Parse("ec06abc4-bd2f-41cc-a817-921f2046080g", &guid));
  EXPECT_EQ(guid.bytes[0], 7);
}

}  // namespace
