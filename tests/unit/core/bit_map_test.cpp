#include "core/bit_map.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <vector>

namespace {

using tolvarcore::BitMap;

std::vector<uint8_t> BytesOf(const BitMap& map) {
  std::vector<uint8_t> bytes(map.SizeInBytes());
  map.CopyOut(bytes.data());
  return bytes;
}

TEST(BitMap, ConstructingWithZeroBytesGivesOneClearByte) {
  BitMap map(0);
  EXPECT_EQ(map.SizeInBytes(), 1u);
  EXPECT_EQ(map.BitCount(), 8u);
  EXPECT_EQ(BytesOf(map), std::vector<uint8_t>{0});
}

TEST(BitMap, ConstructedBitsAreClear) {
  BitMap map(3);
  EXPECT_EQ(BytesOf(map), (std::vector<uint8_t>{0, 0, 0}));
  EXPECT_EQ(map.BitCount(), 24u);
}

TEST(BitMap, BitAtBitCountIsFalseAndSetOrClearIgnoreIt) {
  BitMap map(2);
  EXPECT_FALSE(map.Test(16));
  map.Set(16);
  EXPECT_FALSE(map.Test(16));
  EXPECT_EQ(BytesOf(map), (std::vector<uint8_t>{0, 0}));
  map.Invert();
  map.Clear(16);
  map.Clear(UINT64_MAX);
  EXPECT_EQ(BytesOf(map), (std::vector<uint8_t>{0xFF, 0xFF}));
}

TEST(BitMap, Bit9LivesInByte1AsValue0x02) {
  BitMap map(2);
  map.Set(9);
  EXPECT_EQ(BytesOf(map), (std::vector<uint8_t>{0x00, 0x02}));
  EXPECT_TRUE(map.Test(9));
  map.Clear(9);
  EXPECT_FALSE(map.Test(9));
}

TEST(BitMap, NextSetFindsEachSetBitInOrder) {
  BitMap map(40);
  const std::vector<uint64_t> set = {0, 7, 8, 9, 63, 64, 200, 319};
  for (uint64_t i : set) map.Set(i);
  std::vector<uint64_t> found;
  for (uint64_t i = map.NextSet(0); i < map.BitCount(); i = map.NextSet(i + 1)) found.push_back(i);
  EXPECT_EQ(found, set);
  EXPECT_EQ(map.NextSet(320), 320u);
  EXPECT_EQ(map.NextSet(UINT64_MAX), 320u);
  BitMap empty(5);
  EXPECT_EQ(empty.NextSet(0), 40u);
  EXPECT_EQ(empty.NextSet(3), 40u);
}

TEST(BitMap, AnySetLooksOnlyAtTheBitsInItsRange) {
  BitMap map(4);  // 32 bits
  map.Set(13);
  EXPECT_FALSE(map.AnySet(0, 13));
  EXPECT_TRUE(map.AnySet(0, 14));
  EXPECT_TRUE(map.AnySet(13, 1));
  EXPECT_FALSE(map.AnySet(14, 18));
  EXPECT_TRUE(map.AnySet(8, 8));
  EXPECT_FALSE(map.AnySet(0, 0));
  EXPECT_FALSE(map.AnySet(32, 1));
  EXPECT_TRUE(map.AnySet(1, UINT64_MAX));  // the end does not wrap round
  EXPECT_FALSE(map.AnySet(UINT64_MAX, 2));
}

TEST(BitMap, InvertComplementsEveryByteIncludingSpareBits) {
  BitMap map(2);
  map.Set(0);
  map.Set(15);
  map.Invert();
  EXPECT_EQ(BytesOf(map), (std::vector<uint8_t>{0xFE, 0x7F}));
}

// Random maps of many lengths, unaligned ends included, against the
// byte-by-byte definitions of the whole-map operations.
std::unique_ptr<BitMap> RandomMap(uint64_t bytes, std::mt19937* random) {
  auto map = std::make_unique<BitMap>(bytes);
  for (uint64_t k = 0; k < bytes; ++k) map->Data()[k] = static_cast<uint8_t>((*random)());
  return map;
}

TEST(BitMap, WholeMapOperationsAgreeWithTheirByteDefinitionsOnRandomMaps) {
  std::mt19937 random(20261122);
  for (uint64_t selfBytes = 1; selfBytes <= 41; ++selfBytes) {
    for (uint64_t otherBytes : {uint64_t{1}, selfBytes - (selfBytes > 3 ? 3 : 0), selfBytes, selfBytes + 9}) {
      std::unique_ptr<BitMap> self = RandomMap(selfBytes, &random);
      std::unique_ptr<BitMap> other = RandomMap(otherBytes, &random);
      const std::vector<uint8_t> before = BytesOf(*self);
      const std::vector<uint8_t> others = BytesOf(*other);

      std::vector<uint8_t> inverted = before;
      for (uint8_t& b : inverted) b = static_cast<uint8_t>(~b);
      BitMap invertedMap(selfBytes);
      std::copy(before.begin(), before.end(), invertedMap.Data());
      invertedMap.Invert();
      EXPECT_EQ(BytesOf(invertedMap), inverted) << selfBytes;

      std::vector<uint8_t> andNot = before;
      for (uint64_t k = 0; k < std::min(selfBytes, otherBytes); ++k) {
        andNot[k] = static_cast<uint8_t>(others[k] & ~before[k]);
      }
      self->AndNot(*other);
      EXPECT_EQ(BytesOf(*self), andNot) << selfBytes << " " << otherBytes;
    }
  }
}

TEST(BitMap, AndNotOf0011Into0101Leaves0010) {
  BitMap other(1);
  other.Set(0);
  other.Set(1);
  BitMap self(1);
  self.Set(0);
  self.Set(2);
  self.AndNot(other);
  EXPECT_EQ(BytesOf(self), std::vector<uint8_t>{0x02});
}

TEST(BitMap, AndNotLeavesBytesBeyondTheShorterMapAlone) {
  BitMap self(3);
  self.Set(8 * 2 + 1);
  BitMap other(1);
  other.Set(3);
  self.AndNot(other);
  EXPECT_EQ(BytesOf(self), (std::vector<uint8_t>{0x08, 0x00, 0x02}));

  BitMap shortSelf(1);
  BitMap longOther(2);
  longOther.Set(9);
  shortSelf.AndNot(longOther);
  EXPECT_EQ(BytesOf(shortSelf), std::vector<uint8_t>{0});
}

TEST(BitMapRescale, Bit0From16KiBTo4KiBGivesFourBits) {
  BitMap map(1);
  map.Set(0);
  auto rescaled = map.Rescale(16384, 4096);
  EXPECT_EQ(BytesOf(*rescaled), (std::vector<uint8_t>{0x0F, 0, 0, 0}));
  EXPECT_EQ(BytesOf(map), std::vector<uint8_t>{0x01});
}

TEST(BitMapRescale, Bit7From16KiBTo128KiBGivesOneBit) {
  BitMap map(1);
  map.Set(7);
  auto rescaled = map.Rescale(16384, 131072);
  EXPECT_EQ(BytesOf(*rescaled), std::vector<uint8_t>{0x01});
}

TEST(BitMapRescale, EightSourceBitsAreOredPerTargetBlock) {
  BitMap map(2);
  map.Set(9);
  auto rescaled = map.Rescale(16384, 131072);
  EXPECT_EQ(BytesOf(*rescaled), std::vector<uint8_t>{0x02});
  auto half = map.Rescale(16384, 65536);  // bits 0-3 -> 0, 4-7 -> 1, 8-11 -> 2
  EXPECT_EQ(BytesOf(*half), std::vector<uint8_t>{0x04});
}

TEST(BitMapRescale, OddTargetUnitProbesAtSourceUnitSteps) {
  // Target blocks of 20,480 bytes over 16,384-byte units: block k starts at
  // 20,480 k and probes at p and p + 16,384.
  BitMap map(1);
  map.Set(2);  // bytes 32,768..49,151
  auto rescaled = map.Rescale(16384, 20480);
  // Block 1 (20,480) probes source bits 1 and 2; block 2 (40,960) probes 2 and 3.
  // total = 131,072 -> 6 target bits, 1 byte.
  EXPECT_EQ(BytesOf(*rescaled), std::vector<uint8_t>{0x06});
}

TEST(BitMapRescale, LengthFollowsTheVolumeFormula) {
  // A volume of V bytes has ceil(ceil(V / 16384) / 8) store bitmap bytes;
  // at block size B the rescaled map has ceil(floor(n * 131072 / B) / 8).
  for (uint64_t n : {1u, 3u, 17u}) {
    BitMap map(n);
    for (uint64_t b = 4096; b <= 131072; b += 4096) {
      uint64_t bits = n * 131072 / b;
      EXPECT_EQ(map.Rescale(16384, b)->SizeInBytes(), std::max<uint64_t>((bits + 7) / 8, 1)) << n << " " << b;
    }
    EXPECT_EQ(map.Rescale(16384, 4096)->SizeInBytes(), 4 * n);
  }
}

TEST(BitMapRescale, ZeroUnitGivesAnEmptyMapInsteadOfDividingByZero) {
  BitMap map(4);
  map.Invert();
  EXPECT_EQ(BytesOf(*map.Rescale(0, 4096)), std::vector<uint8_t>{0});
  EXPECT_EQ(BytesOf(*map.Rescale(16384, 0)), std::vector<uint8_t>{0});
}

// Straight from the definition: every target block start, every probe.
std::vector<uint8_t> RescaleByDefinition(const BitMap& map, uint64_t sourceUnit, uint64_t targetUnit) {
  uint64_t total = map.SizeInBytes() * 8 * sourceUnit;
  uint64_t targetBits = total / targetUnit;
  BitMap target((targetBits + 7) / 8);
  for (uint64_t p = 0; p < total; p += targetUnit) {
    for (uint64_t q = 0; q < targetUnit; q += sourceUnit) {
      uint64_t s = (p + q) / sourceUnit;
      if (s < map.BitCount() && map.Test(s)) {
        if (p / targetUnit < target.BitCount()) target.Set(p / targetUnit);
        break;
      }
    }
  }
  return BytesOf(target);
}

TEST(BitMapRescale, AgreesWithTheDefinitionOnMixedPatterns) {
  BitMap map(9);
  for (uint64_t i = 0; i < map.BitCount(); ++i) {
    if ((i * 37 + 11) % 5 == 0 || i == 71) map.Set(i);
  }
  const uint64_t units[] = {512, 4096, 8192, 12288, 16384, 20480, 65536, 131072};
  for (uint64_t source : units) {
    for (uint64_t target : units) {
      EXPECT_EQ(BytesOf(*map.Rescale(source, target)), RescaleByDefinition(map, source, target))
          << source << " -> " << target;
    }
  }
}

// Sparse, dense and runs-of-bits maps of several lengths, every unit pair
// the library meets (the store's 16 KiB to every valid block size) and a
// few odd ones: each rescaled map equals the one from the definition.
TEST(BitMapRescale, AgreesWithTheDefinitionOnRandomMapsOfManyLengths) {
  std::mt19937_64 random(20261122);
  std::vector<std::pair<uint64_t, uint64_t>> unitPairs;
  for (uint64_t target = 4096; target <= 131072; target += 4096) unitPairs.emplace_back(16384, target);
  for (uint64_t odd : {512u, 20480u, 49152u}) {
    unitPairs.emplace_back(odd, 65536);
    unitPairs.emplace_back(4096, odd);
  }
  for (uint64_t bytes : {1u, 2u, 7u, 8u, 9u, 15u, 16u, 24u, 33u, 64u, 100u, 257u}) {
    for (unsigned density : {0u, 2u, 50u, 98u, 100u}) {
      BitMap map(bytes);
      for (uint64_t i = 0; i < map.BitCount(); ++i) {
        if (random() % 100 < density) map.Set(i);
      }
      for (const auto& units : unitPairs) {
        EXPECT_EQ(BytesOf(*map.Rescale(units.first, units.second)), RescaleByDefinition(map, units.first, units.second))
            << bytes << " bytes, density " << density << ", " << units.first << " -> " << units.second;
      }
    }
  }
}

TEST(BitMapRescale, LastSourceBitReachesTheLastTargetBlockThatFits) {
  for (uint64_t target = 4096; target <= 131072; target += 4096) {
    BitMap map(3);
    map.Set(map.BitCount() - 1);
    EXPECT_EQ(BytesOf(*map.Rescale(16384, target)), RescaleByDefinition(map, 16384, target)) << target;
  }
}

TEST(BitMapRescale, RescaledBytesIsTheLengthOfTheRescaledMap) {
  for (uint64_t bytes : {1u, 7u, 8u, 9u, 100u, 4097u}) {
    for (uint64_t source : {512u, 4096u, 16384u, 20480u}) {
      for (uint64_t target : {4096u, 8192u, 16384u, 65536u, 131072u}) {
        EXPECT_EQ(BitMap::RescaledBytes(bytes, source, target),
                  RescaleByDefinition(BitMap(bytes), source, target).size())
            << bytes << " " << source << " -> " << target;
      }
    }
    // Units of 0 cover nothing: a map of one clear byte.
    EXPECT_EQ(BitMap::RescaledBytes(bytes, 0, 4096), 1u);
    EXPECT_EQ(BitMap::RescaledBytes(bytes, 16384, 0), 1u);
  }
}

}  // namespace
