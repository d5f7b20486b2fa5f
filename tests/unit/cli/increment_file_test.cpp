// Writing increment files and checking them back, including the ways a
// damaged file is refused.
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>
#include <vector>

#include "cli/block_codec.h"
#include "cli/block_hash.h"
#include "cli/increment_reader.h"
#include "cli/increment_writer.h"
#include "tests/fixtures/unique_temp_path.h"

namespace tolvarcli {
namespace {

constexpr uint64_t kBlockSize = 4096;
constexpr uint64_t kVolumeSize = 16 * kBlockSize;
const char kFrom[] = "ec06abc4-bd2f-41cc-a817-921f2046080d";
const char kTo[] = "d1229f1a-31d8-45de-8a72-0d6a3a1f59e8";

class IncrementFileTest : public ::testing::Test {
 protected:
  void SetUp() override { path_ = tolvartest::UniqueTempPath("tolvar-increment-"); }
  void TearDown() override {
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
    std::filesystem::remove(path_ + ".partial", ignored);
  }

  IncrementHeader Header() const {
    IncrementHeader header;
    header.volumeSize = kVolumeSize;
    header.blockSize = kBlockSize;
    header.bitmapLength = 2;
    header.from = kFrom;
    header.to = kTo;
    return header;
  }

  // Blocks 1 and 9 set; writes the given records.
  void Write(const std::vector<uint64_t>& indices) {
    IncrementWriter writer(path_);
    ASSERT_TRUE(writer.Begin(Header(), {0x02, 0x02}));
    for (uint64_t index : indices) {
      ASSERT_TRUE(writer.AddBlock(index, std::vector<uint8_t>(kBlockSize, static_cast<uint8_t>(index))));
    }
    ASSERT_TRUE(writer.Commit());
  }

  void Patch(uint64_t offset, const std::vector<uint8_t>& bytes) {
    std::fstream file(path_, std::ios::binary | std::ios::in | std::ios::out);
    file.seekp(static_cast<std::streamoff>(offset));
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  }

  std::string Refusal() {
    IncrementReader reader(path_);
    EXPECT_FALSE(reader.Verify());
    return reader.Error();
  }

  std::string path_;
};

TEST_F(IncrementFileTest, WrittenFileVerifiesAndReadsBack) {
  Write({1, 9});
  EXPECT_FALSE(std::filesystem::exists(path_ + ".partial"));
  EXPECT_EQ(std::filesystem::file_size(path_), IncrementHeader::kSize + 2 +
                                                   2 * (IncrementHeader::kRecordIndexSize + kBlockSize) +
                                                   IncrementHeader::kTrailerSize);
  IncrementReader reader(path_);
  ASSERT_TRUE(reader.Verify()) << reader.Error();
  EXPECT_EQ(reader.Header().from, kFrom);
  EXPECT_EQ(reader.Header().to, kTo);
  EXPECT_EQ(reader.Header().volumeSize, kVolumeSize);
  std::vector<uint64_t> seen;
  ASSERT_TRUE(reader.ForEachBlock([&](uint64_t index, const std::vector<uint8_t>& block) {
    EXPECT_EQ(block, std::vector<uint8_t>(kBlockSize, static_cast<uint8_t>(index)));
    seen.push_back(index);
    return true;
  }));
  EXPECT_EQ(seen, (std::vector<uint64_t>{1, 9}));
}

TEST_F(IncrementFileTest, UncommittedWriterLeavesNoFile) {
  {
    IncrementWriter writer(path_);
    ASSERT_TRUE(writer.Begin(Header(), {0x02, 0x02}));
    ASSERT_TRUE(writer.AddBlock(1, std::vector<uint8_t>(kBlockSize)));
    EXPECT_TRUE(std::filesystem::exists(path_ + ".partial"));
  }
  EXPECT_FALSE(std::filesystem::exists(path_ + ".partial"));
  EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(IncrementFileTest, FlippedByteInABlockIsAChecksumMismatch) {
  Write({1, 9});
  Patch(IncrementHeader::kSize + 2 + 8 + 100, {0xFF});
  EXPECT_EQ(Refusal(), "checksum mismatch");
}

TEST_F(IncrementFileTest, BadMagicIsRefused) {
  Write({1});
  Patch(0, {'X'});
  EXPECT_EQ(Refusal(), "not an increment file (bad magic)");
}

TEST_F(IncrementFileTest, OtherVersionIsRefused) {
  Write({1});
  Patch(IncrementHeader::kVersionOffset, {4});
  EXPECT_EQ(Refusal(), "unsupported increment version 4");
}

// Versions 2 and 3, plain and compressed: the records carry both
// fingerprints and read back; a changed stored byte fails its block's hash.
class FingerprintedIncrementTest : public IncrementFileTest,
                                   public ::testing::WithParamInterface<std::tuple<uint32_t, bool>> {
 protected:
  static uint32_t Version() { return std::get<0>(GetParam()); }
  static bool Compressed() { return std::get<1>(GetParam()); }
  IncrementHeader FingerprintedHeader() const {
    IncrementHeader header = Header();
    header.version = Version();
    header.flags = Compressed() ? IncrementHeader::kFlagCompressed : 0;
    return header;
  }
  void WriteFingerprinted() {
    IncrementWriter writer(path_);
    ASSERT_TRUE(writer.Begin(FingerprintedHeader(), {0x02, 0x02}));
    for (uint64_t index : {1, 9}) {
      ASSERT_TRUE(writer.AddBlock(index, std::vector<uint8_t>(kBlockSize, static_cast<uint8_t>(index)), 100 + index));
    }
    ASSERT_TRUE(writer.Commit());
  }
  static bool Unavailable() { return !BlockHash::Available() || (Compressed() && !BlockCodec::Available()); }
};

TEST_P(FingerprintedIncrementTest, WrittenFileVerifiesAndCarriesTheFingerprints) {
  if (Unavailable()) GTEST_SKIP() << "no xxhash or zstd";
  WriteFingerprinted();
  IncrementReader reader(path_);
  ASSERT_TRUE(reader.Verify()) << reader.Error();
  ASSERT_EQ(reader.Records().size(), 2u);
  EXPECT_EQ(reader.Records()[1].oldHash, 109u);
  const std::vector<uint8_t> nine(kBlockSize, 9);
  EXPECT_EQ(reader.Records()[1].newHash, BlockHash::Of(nine.data(), nine.size()));
  if (Compressed()) {
    EXPECT_LT(std::filesystem::file_size(path_), 2 * kBlockSize);
  }
  std::vector<uint64_t> seen;
  ASSERT_TRUE(reader.ForEachBlock([&](uint64_t index, const std::vector<uint8_t>& block) {
    EXPECT_EQ(block, std::vector<uint8_t>(kBlockSize, static_cast<uint8_t>(index)));
    seen.push_back(index);
    return true;
  }));
  EXPECT_EQ(seen, (std::vector<uint64_t>{1, 9}));
}

TEST_P(FingerprintedIncrementTest, AChangedStoredByteFailsTheBlocksHash) {
  if (Unavailable()) GTEST_SKIP() << "no xxhash or zstd";
  WriteFingerprinted();
  const IncrementHeader header = FingerprintedHeader();
  const uint64_t records = IncrementHeader::kSize + 2 + header.PaddingAfter(IncrementHeader::kSize + 2);
  Patch(records + header.RecordHeaderSize() + (Compressed() ? 4 : 100), {0x7F});
  const std::string refusal = Refusal();
  EXPECT_TRUE(refusal == "block record 0 does not match its hash") << refusal;
}

TEST_P(FingerprintedIncrementTest, Version3StartsEveryRecordAndStoredBlockOnACacheLine) {
  if (Unavailable() || Version() != IncrementHeader::kVersion3) GTEST_SKIP() << "version 3 with xxhash and zstd";
  WriteFingerprinted();
  IncrementReader reader(path_);
  ASSERT_TRUE(reader.Verify()) << reader.Error();
  for (const IncrementReader::Record& record : reader.Records()) {
    EXPECT_EQ(record.at % IncrementHeader::kRecordAlignment, 0u);
    EXPECT_EQ((record.at - IncrementHeader::kRecordHeaderSizeV3) % IncrementHeader::kRecordAlignment, 0u);
  }
  EXPECT_EQ((std::filesystem::file_size(path_) - IncrementHeader::kTrailerSize) % IncrementHeader::kRecordAlignment,
            0u);
}

TEST_P(FingerprintedIncrementTest, AFileCutInsideThePaddingIsRefused) {
  if (Unavailable() || Version() != IncrementHeader::kVersion3) GTEST_SKIP() << "version 3 with xxhash and zstd";
  IncrementWriter writer(path_);
  ASSERT_TRUE(writer.Begin(FingerprintedHeader(), {0x02, 0x02}));
  ASSERT_TRUE(writer.Commit());
  // Header, bitmap, 62 zeros, trailer: keep 30 of the zeros only.
  std::filesystem::resize_file(path_, IncrementHeader::kSize + 2 + 30 + IncrementHeader::kTrailerSize);
  EXPECT_EQ(Refusal(), "file size does not fit whole blocks");
}

INSTANTIATE_TEST_SUITE_P(VersionsPlainAndCompressed, FingerprintedIncrementTest,
                         ::testing::Combine(::testing::Values(IncrementHeader::kVersion2, IncrementHeader::kVersion3),
                                            ::testing::Bool()));

TEST_F(IncrementFileTest, TruncatedFileIsRefused) {
  Write({1, 9});
  std::filesystem::resize_file(path_, std::filesystem::file_size(path_) - 1);
  EXPECT_EQ(Refusal(), "file size does not fit whole blocks");
}

TEST_F(IncrementFileTest, BlockOutsideTheBitmapIsRefused) {
  Write({1, 9});
  Patch(IncrementHeader::kSize + 2, {2});  // the first record's index 1 -> 2
  EXPECT_EQ(Refusal(), "block 2 is not in the bitmap");
}

TEST_F(IncrementFileTest, HugeBitmapLengthIsRefusedBeforeAllocating) {
  Write({1});
  Patch(IncrementHeader::kBitmapLengthOffset, {0, 0, 0, 0, 0, 0, 0, 0x40});
  EXPECT_EQ(Refusal(), "bitmap longer than the file");
}

TEST_F(IncrementFileTest, BadBlockSizeIsRefused) {
  Write({1});
  Patch(IncrementHeader::kBlockSizeOffset, {0x01, 0x10});
  EXPECT_EQ(Refusal(), "bad block size 4097");
}

TEST_F(IncrementFileTest, MissingFileIsAReadFailure) {
  IncrementReader reader(path_ + ".absent");
  EXPECT_FALSE(reader.Verify());
  EXPECT_TRUE(reader.ReadFailed());
}

}  // namespace
}  // namespace tolvarcli
