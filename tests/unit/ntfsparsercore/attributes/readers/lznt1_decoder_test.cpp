#include "ntfsparsercore/attributes/readers/lznt1_decoder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using ntfsparsercore::attributes::readers::Lznt1Decoder;
using Bytes = std::vector<uint8_t>;

// A compressed chunk of 8 bytes that expands to 4096 bytes of "abcabc...":
// three literals, then one copy token of displacement 3 and length 4093.
const Bytes kAbcChunk = {0x05, 0xB0, 0x08, 'a', 'b', 'c', 0xFA, 0x2F};

Bytes Abc(std::size_t size) {
  Bytes out(size);
  for (std::size_t i = 0; i < size; ++i) out[i] = static_cast<uint8_t>("abc"[i % 3]);
  return out;
}

Bytes Join(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}

TEST(Lznt1DecoderTest, ChunkB004WithFlagByteZeroYieldsFourLiteralsAndConsumesSeven) {
  const Bytes chunk = {0x04, 0xB0, 0x00, 'w', 'x', 'y', 'z', 0x99};
  Bytes out(16, 0xEE);
  const auto result = Lznt1Decoder::DecodeChunk(chunk.data(), chunk.size(), out.data(), 0, out.size(), 0, 4096);
  EXPECT_EQ(result.consumed, 7u);
  EXPECT_EQ(result.produced, 4u);
  EXPECT_EQ(Bytes(out.begin(), out.begin() + 5), (Bytes{'w', 'x', 'y', 'z', 0xEE}));
}

TEST(Lznt1DecoderTest, CopyTokensRepeatOverlappingPatterns) {
  Bytes out(4096);
  const auto result = Lznt1Decoder::DecodeChunk(kAbcChunk.data(), kAbcChunk.size(), out.data(), 0, out.size(), 0, 4096);
  EXPECT_EQ(result.consumed, 8u);
  EXPECT_EQ(result.produced, 4096u);
  EXPECT_EQ(out, Abc(4096));
}

TEST(Lznt1DecoderTest, DisplacementAndLengthSplitMovesWithThePosition) {
  // 17 literals (p = 17, k = 1), then a token of displacement 17 (16 << 11)
  // and length 5 (2 + 3): the split is 11 bits of length, 5 of displacement.
  Bytes chunk = {0,   0,   0x00, 'A', 'B', 'C', 'D', 'E', 'F',  'G', 'H',  0x00,
                 'I', 'J', 'K',  'L', 'M', 'N', 'O', 'P', 0x02, 'Q', 0x02, 0x80};
  chunk[0] = static_cast<uint8_t>(chunk.size() - 3);
  chunk[1] = 0xB0;
  Bytes out(64, 0);
  const auto result = Lznt1Decoder::DecodeChunk(chunk.data(), chunk.size(), out.data(), 0, out.size(), 0, 4096);
  EXPECT_EQ(result.produced, 22u);
  EXPECT_EQ(std::string(out.begin(), out.begin() + 22), "ABCDEFGHIJKLMNOPQABCDE");
}

TEST(Lznt1DecoderTest, StoredChunkCopiesItsBytes) {
  const Bytes chunk = {0x03, 0x30, 'r', 'a', 'w', '!'};
  Bytes out(8, 0);
  const auto result = Lznt1Decoder::DecodeChunk(chunk.data(), chunk.size(), out.data(), 2, out.size(), 0, 4096);
  EXPECT_EQ(result.consumed, 6u);
  EXPECT_EQ(result.produced, 4u);
  EXPECT_EQ(out, (Bytes{0, 0, 'r', 'a', 'w', '!', 0, 0}));
}

TEST(Lznt1DecoderTest, CopyTokenAtTheStartOfAChunkReadsBeforeTheChunkStartUnchecked) {
  // A stored chunk "ABCD", then a compressed chunk whose first item copies
  // 3 bytes from 4 back: out of its own chunk, into the previous one.
  const Bytes stored = Join({{0x03, 0x30, 'A', 'B', 'C', 'D'}, {0x02, 0xB0, 0x01, 0x00, 0x30}});
  Bytes out(8192, 0xEE);
  EXPECT_EQ(Lznt1Decoder::ExpandUnit(stored.data(), stored.size(), out.data(), out.size(), 0, 4096), 7u);
  EXPECT_EQ(std::string(out.begin(), out.begin() + 7), "ABCDABC");
}

TEST(Lznt1DecoderTest, CopyTokenReachingBeforeTheOutputStartReadsZerosInsteadOfOutOfBounds) {
  const Bytes chunk = {0x02, 0xB0, 0x01, 0x00, 0x30};
  Bytes out(16, 0xEE);
  const auto result = Lznt1Decoder::DecodeChunk(chunk.data(), chunk.size(), out.data(), 0, out.size(), 0, 4096);
  EXPECT_EQ(result.produced, 3u);
  EXPECT_EQ(Bytes(out.begin(), out.begin() + 4), (Bytes{0, 0, 0, 0xEE}));
}

TEST(Lznt1DecoderTest, FewerThanTwoBytesOrLessThanTheChunkLengthConsumeNothing) {
  Bytes out(16);
  const Bytes one = {0x04};
  auto result = Lznt1Decoder::DecodeChunk(one.data(), one.size(), out.data(), 0, out.size(), 0, 4096);
  EXPECT_EQ(result.consumed, 0u);
  EXPECT_EQ(result.produced, 0u);
  const Bytes cut = {0x04, 0xB0, 0x00, 'w', 'x', 'y'};
  result = Lznt1Decoder::DecodeChunk(cut.data(), cut.size(), out.data(), 0, out.size(), 0, 4096);
  EXPECT_EQ(result.consumed, 0u);
  EXPECT_EQ(result.produced, 0u);
}

TEST(Lznt1DecoderTest, ZeroHeaderConsumesToTheEndOfTheClusterCountedFromThePosition) {
  const Bytes zero = {0x00, 0x00, 0x12, 0x34};
  Bytes out(16);
  const auto result = Lznt1Decoder::DecodeChunk(zero.data(), zero.size(), out.data(), 0, out.size(), 4096 + 100, 512);
  EXPECT_EQ(result.consumed, 412u);
  EXPECT_EQ(result.produced, 0u);
}

TEST(Lznt1DecoderTest, ZeroHeaderWithClusterSizeZeroConsumesTheRestInsteadOfDividingByZero) {
  const Bytes zero = {0x00, 0x00, 0x12, 0x34, 0x56};
  Bytes out(16);
  const auto result = Lznt1Decoder::DecodeChunk(zero.data(), zero.size(), out.data(), 0, out.size(), 7, 0);
  EXPECT_EQ(result.consumed, 5u);
  EXPECT_EQ(result.produced, 0u);
}

TEST(Lznt1DecoderTest, UnitOfTwoChunksExpandsToTheUnitSize) {
  const Bytes stored = Join({kAbcChunk, kAbcChunk, Bytes(40, 0)});
  Bytes out(8192);
  EXPECT_EQ(Lznt1Decoder::ExpandUnit(stored.data(), stored.size(), out.data(), out.size(), 4096, 512), 8192u);
  EXPECT_EQ(out, Join({Abc(4096), Abc(4096)}));
}

TEST(Lznt1DecoderTest, ZeroHeaderAfterTheFirstChunkEndsTheExpansion) {
  const Bytes stored = Join({kAbcChunk, {0x00, 0x00}, kAbcChunk});
  Bytes out(8192, 0xEE);
  EXPECT_EQ(Lznt1Decoder::ExpandUnit(stored.data(), stored.size(), out.data(), out.size(), 4096, 512), 4096u);
  EXPECT_EQ(out[4096], 0xEE);
}

TEST(Lznt1DecoderTest, OutputThatWouldPassTheCapacityStopsThereInsteadOfOverrunning) {
  const Bytes stored = Join({kAbcChunk, kAbcChunk});
  Bytes out(4100);
  EXPECT_EQ(Lznt1Decoder::ExpandUnit(stored.data(), stored.size(), out.data(), out.size(), 0, 512), 4100u);
  EXPECT_EQ(Bytes(out.begin() + 4096, out.end()), (Bytes{'a', 'b', 'c', 'a'}));
  const Bytes raw = {0x03, 0x30, 'r', 'a', 'w', '!'};
  Bytes two(2);
  const auto result = Lznt1Decoder::DecodeChunk(raw.data(), raw.size(), two.data(), 0, two.size(), 0, 512);
  EXPECT_EQ(result.consumed, 6u);
  EXPECT_EQ(result.produced, 2u);
  EXPECT_EQ(two, (Bytes{'r', 'a'}));
}

TEST(Lznt1DecoderTest, CopyTokenCutByTheEndOfTheInputEndsTheChunk) {
  // The chunk claims 4 bytes; the token's second byte lies past the input.
  const Bytes chunk = {0x01, 0xB0, 0x02, 'q', 0x00};
  Bytes out(16, 0xEE);
  const auto result = Lznt1Decoder::DecodeChunk(chunk.data(), 4, out.data(), 0, out.size(), 0, 4096);
  EXPECT_EQ(result.consumed, 4u);
  EXPECT_EQ(result.produced, 1u);
  EXPECT_EQ(out[0], 'q');
  EXPECT_EQ(out[1], 0xEE);
}

}  // namespace
