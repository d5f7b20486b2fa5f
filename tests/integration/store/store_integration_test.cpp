// The store reader on a real Windows 10 volume, held against libvshadow's
// vshadowinfo.
//
// The volume is partition 1 of a disk image, at byte 1,048,576; it is read
// through an offset window onto the image file, behind a 16 KiB cache line
// as the volume provider reads volumes. The store holds two shadow copies,
// ec06abc4-bd2f-41cc-a817-921f2046080d and then
// d1229f1a-31d8-45de-8a72-0d6a3a1f59e8.
//
// Arguments: --archive=PATH (only named in messages) --image=PATH
// --vshadowinfo=PATH. Exits with 77 (skipped) when the image or vshadowinfo
// is absent.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "common/error_queue.h"
#include "core/bit_map.h"
#include "core/bit_map_processor.h"
#include "core/vss/service/vss_context.h"
#include "core/vss/mark_indexed_blocks.h"
#include "core/vss/record_head.h"
#include "core/vss/records/catalog.h"
#include "core/vss/snapshot_sequence.h"
#include "core/vss/vss_volume.h"
#include "ntfsparsercore/io/cache_proxy.h"
#include "ntfsparsercore/io/little_endian.h"
#include "ntfsparsercore/io/source_factory.h"
#include "ntfsparsercore/io/system_file.h"
#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/offset_source.h"

using tolvarcommon::ErrorRecord;

namespace {

using tolvarcore::BitMap;
using tolvarcore::BitMapProcessor;
using tolvarcore::vss::BuildSnapshotList;
using tolvarcore::vss::BuildSnapshotSequence;
using tolvarcore::vss::MarkIndexedBlocks;
using tolvarcore::vss::RecordHead;
using tolvarcore::vss::SnapshotList;
using tolvarcore::vss::VssRecord;
using tolvarcore::vss::VssVolume;
using tolvarcore::vss::records::Catalog;
using tolvarcore::vss::service::VssContext;
using tolvartest::DrainErrors;
using tolvartest::Record;

constexpr uint64_t kPartitionOffset = 1048576;
constexpr uint64_t kPartitionLength = 68716331008ull;
const char* const kFirstShadowCopy = "ec06abc4-bd2f-41cc-a817-921f2046080d";
const char* const kSecondShadowCopy = "d1229f1a-31d8-45de-8a72-0d6a3a1f59e8";

std::string g_image;
std::string g_vshadowinfo;

// ---------------------------------------------------------------------------
// The oracle: vshadowinfo -a -o 1048576 IMAGE, parsed.

struct OracleBlock {
  uint64_t original = 0;
  uint64_t relative = 0;
  uint64_t offset = 0;
  uint32_t flags = 0;
  uint32_t bitmap = 0;
};

struct OracleStore {
  std::string identifier;
  std::string setId;
  std::string shadowCopyId;
  uint64_t volumeSize = 0;
  std::vector<OracleBlock> blocks;
};

std::string Trim(const std::string& text) {
  std::size_t begin = text.find_first_not_of(" \t\r\n");
  std::size_t end = text.find_last_not_of(" \t\r\n");
  return begin == std::string::npos ? std::string() : text.substr(begin, end - begin + 1);
}

std::vector<OracleStore> RunOracle() {
  std::string command = "'" + g_vshadowinfo + "' -a -o " + std::to_string(kPartitionOffset) + " '" + g_image + "'";
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return {};
  std::string output;
  char buffer[4096];
  std::size_t n;
  while ((n = fread(buffer, 1, sizeof(buffer), pipe)) > 0) output.append(buffer, n);
  pclose(pipe);

  std::vector<OracleStore> stores;
  std::istringstream lines(output);
  std::string line;
  while (std::getline(lines, line)) {
    std::string trimmed = Trim(line);
    if (trimmed.rfind("Store:", 0) == 0) {
      stores.emplace_back();
      continue;
    }
    if (trimmed.rfind("Block:", 0) == 0 && !stores.empty()) {
      stores.back().blocks.emplace_back();
      continue;
    }
    std::size_t colon = trimmed.find(':');
    if (colon == std::string::npos || stores.empty()) continue;
    std::string key = Trim(trimmed.substr(0, colon));
    std::string value = Trim(trimmed.substr(colon + 1));
    OracleStore& store = stores.back();
    if (key == "Identifier") store.identifier = value;
    if (key == "Shadow copy set ID") store.setId = value;
    if (key == "Shadow copy ID") store.shadowCopyId = value;
    if (key == "Volume size") {
      std::size_t open = value.find('(');
      if (open != std::string::npos) store.volumeSize = std::strtoull(value.c_str() + open + 1, nullptr, 10);
    }
    if (store.blocks.empty()) continue;
    OracleBlock& block = store.blocks.back();
    uint64_t number = std::strtoull(value.c_str(), nullptr, 16);
    if (key == "Original offset") block.original = number;
    if (key == "Relative offset") block.relative = number;
    if (key == "Offset") block.offset = number;
    if (key == "Flags") block.flags = static_cast<uint32_t>(number);
    if (key == "Bitmap") block.bitmap = static_cast<uint32_t>(number);
  }
  return stores;
}

// ---------------------------------------------------------------------------

class StoreIntegration : public tolvartest::QueueTest {
 protected:
  static void SetUpTestSuite() { oracle_ = new std::vector<OracleStore>(RunOracle()); }
  static void TearDownTestSuite() {
    delete oracle_;
    oracle_ = nullptr;
  }

  void SetUp() override {
    tolvartest::QueueTest::SetUp();
    // The whole disk as it is: the test applies the partition's offset itself.
    std::shared_ptr<ntfsparsercore::io::ISource> image(ntfsparsercore::io::SystemFile::Open(g_image.c_str()));
    ASSERT_NE(image, nullptr);
    auto window = std::make_shared<tolvartest::OffsetSource>(image, kPartitionOffset, kPartitionLength);
    source_ = std::make_shared<ntfsparsercore::io::CacheProxy>(window, 16384);
    volume_ = std::make_shared<VssVolume>(source_);
    ASSERT_EQ(oracle_->size(), 2u) << "vshadowinfo did not list two stores";
  }

  SnapshotList Snapshots() {
    Catalog catalog(volume_->OpenRecord(volume_->GetCatalogOffset()));
    return BuildSnapshotList(catalog);
  }

  static std::vector<OracleStore>* oracle_;
  std::shared_ptr<ntfsparsercore::io::ISource> source_;
  std::shared_ptr<VssVolume> volume_;
};

std::vector<OracleStore>* StoreIntegration::oracle_ = nullptr;

TEST_F(StoreIntegration, CatalogListsTheSnapshotsThatVshadowinfoLists) {
  EXPECT_NE(volume_->GetCatalogOffset(), 0u);
  EXPECT_FALSE(volume_->GetStoreVolumeIdentifier().IsZero());
  EXPECT_EQ(volume_->GetVolumeIdentifier(), volume_->GetStoreVolumeIdentifier());  // the store lives on the volume
  EXPECT_EQ(volume_->GetSize(), kPartitionLength);

  Catalog catalog(volume_->OpenRecord(volume_->GetCatalogOffset()));
  ASSERT_EQ(catalog.GetDefinitions().size(), 2u);
  EXPECT_LT(catalog.GetDefinitions()[0].creationOrder, catalog.GetDefinitions()[1].creationOrder);
  SnapshotList list = BuildSnapshotList(catalog);
  ASSERT_EQ(list.size(), 2u);

  std::size_t i = 0;
  for (const auto& snapshot : list) {
    const OracleStore& store = (*oracle_)[i];
    SCOPED_TRACE("store " + std::to_string(i + 1));
    EXPECT_EQ(snapshot->GetGuid().ToString(), store.identifier);
    EXPECT_EQ(snapshot->GetVolumeSize(), store.volumeSize);
    std::shared_ptr<VssRecord> header = volume_->OpenRecord(snapshot->GetHeaderOffset());
    RecordHead head = RecordHead::Read(header.get());
    EXPECT_EQ(head.firstIdentifier.ToString(), store.shadowCopyId);
    EXPECT_EQ(head.setIdentifier.ToString(), store.setId);
    EXPECT_NE(snapshot->GetIndexOffset(), 0u);
    EXPECT_NE(snapshot->GetBitmapOffset(), 0u);
    EXPECT_NE(snapshot->GetRangeOffset(), 0u);

    // The index record's descriptors are the blocks vshadowinfo lists, in
    // order, up to the first all-zero descriptor.
    std::shared_ptr<VssRecord> index = volume_->OpenRecord(snapshot->GetIndexOffset());
    std::vector<OracleBlock> read;
    uint8_t bytes[32];
    for (uint64_t offset = 0; index->Read(bytes, 32, offset) == 32; offset += 32) {
      OracleBlock block{ntfsparsercore::io::LoadLe64(bytes), ntfsparsercore::io::LoadLe64(bytes + 8),
                        ntfsparsercore::io::LoadLe64(bytes + 16), ntfsparsercore::io::LoadLe32(bytes + 24),
                        ntfsparsercore::io::LoadLe32(bytes + 28)};
      if (block.original == 0 && block.relative == 0 && block.offset == 0 && block.flags == 0) break;
      read.push_back(block);
    }
    ASSERT_EQ(read.size(), store.blocks.size());
    for (std::size_t k = 0; k < read.size(); ++k) {
      SCOPED_TRACE("block " + std::to_string(k + 1));
      EXPECT_EQ(read[k].original, store.blocks[k].original);
      EXPECT_EQ(read[k].relative, store.blocks[k].relative);
      EXPECT_EQ(read[k].offset, store.blocks[k].offset);
      EXPECT_EQ(read[k].flags, store.blocks[k].flags);
      EXPECT_EQ(read[k].bitmap, store.blocks[k].bitmap);
    }
    ++i;
  }
  EXPECT_EQ((*oracle_)[0].shadowCopyId, kFirstShadowCopy);
  EXPECT_EQ((*oracle_)[1].shadowCopyId, kSecondShadowCopy);
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(StoreIntegration, SequenceBetweenTheTwoShadowCopiesHasTwoElements) {
  VssContext context(volume_);  // POSIX: the properties come from the store itself
  EXPECT_EQ(context.GetSnapshotProperties(kFirstShadowCopy).setIdentifier.ToString(), (*oracle_)[0].setId);
  EXPECT_EQ(context.GetSnapshotProperties(kSecondShadowCopy).setIdentifier.ToString(), (*oracle_)[1].setId);

  SnapshotList list = Snapshots();
  ASSERT_TRUE(BuildSnapshotSequence({kFirstShadowCopy, kSecondShadowCopy}, context, *volume_, &list));
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list.front()->GetGuid().ToString(), (*oracle_)[0].identifier);
  EXPECT_EQ(list.back()->GetGuid().ToString(), (*oracle_)[1].identifier);
  EXPECT_TRUE(DrainErrors().empty());

  list = Snapshots();
  ASSERT_TRUE(BuildSnapshotSequence({kSecondShadowCopy, kSecondShadowCopy}, context, *volume_, &list));
  EXPECT_EQ(list.size(), 1u);

  list = Snapshots();
  EXPECT_FALSE(BuildSnapshotSequence({kSecondShadowCopy, kFirstShadowCopy}, context, *volume_, &list));
  EXPECT_EQ(DrainErrors(),
            (std::vector<ErrorRecord>{Record(14, "Failed build snapshot sequence. End snapshot not find")}));
}

TEST_F(StoreIntegration, BothBitmapsLoad) {
  SnapshotList list = Snapshots();
  ASSERT_EQ(list.size(), 2u);
  const uint64_t bytes = kPartitionLength >> 17;
  for (const auto& snapshot : list) {
    BitMapProcessor processor;
    ASSERT_TRUE(processor.Load(volume_, snapshot, snapshot));
    EXPECT_EQ(processor.GetCurrent()->SizeInBytes(), bytes);
  }
  // The second store has a previous bitmap (vss-store-format.md).
  EXPECT_NE(list.back()->GetPreviousBitmapOffset(), 0u);

  BitMapProcessor processor;
  ASSERT_TRUE(processor.Load(volume_, list.front(), list.back()));
  ASSERT_NE(processor.GetReference(), nullptr);
  EXPECT_EQ(processor.GetCurrent()->SizeInBytes(), bytes);
  EXPECT_EQ(processor.GetReference()->SizeInBytes(), bytes);
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(StoreIntegration, MarkIndexedBlocksWalksToTheEndOfEachIndexRecord) {
  SnapshotList list = Snapshots();
  ASSERT_EQ(list.size(), 2u);
  const uint64_t bytes = ((kPartitionLength + 16383) / 16384 + 7) / 8;
  std::size_t i = 0;
  for (const auto& snapshot : list) {
    SCOPED_TRACE("store " + std::to_string(i + 1));
    const OracleStore& store = (*oracle_)[i++];
    std::shared_ptr<VssRecord> index = volume_->OpenRecord(snapshot->GetIndexOffset());
    ASSERT_GT(index->PageCount(), 0u);

    // Every block vshadowinfo lists, by the marking rules.
    std::set<uint64_t> expected;
    std::set<uint64_t> seen;
    std::set<uint64_t> expectedOverlay;
    for (const OracleBlock& block : store.blocks) {
      if ((block.flags & 4) != 0 || (block.original == 0 && block.relative == 0)) continue;
      uint64_t number = block.original >> 14;
      expected.insert(number);
      if (!seen.insert(number).second && (block.flags & 2) != 0) expectedOverlay.insert(number);
    }

    BitMap changed(bytes);
    MarkIndexedBlocks(index, changed, false);
    // The walk ran off the end of the record's last page: the closing
    // message and nothing else.
    EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(1, "Failed to read index record")}));
    std::set<uint64_t> marked;
    for (uint64_t b = 0; b < changed.BitCount(); ++b) {
      if (changed.Test(b)) marked.insert(b);
    }
    EXPECT_EQ(marked, expected);

    BitMap overlays(bytes);
    MarkIndexedBlocks(index, overlays, true);
    EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(1, "Failed to read index record")}));
    std::set<uint64_t> overlaid;
    for (uint64_t b = 0; b < overlays.BitCount(); ++b) {
      if (overlays.Test(b)) overlaid.insert(b);
    }
    EXPECT_EQ(overlaid, expectedOverlay);
  }
}

bool IsExecutable(const std::string& path) { return !path.empty() && access(path.c_str(), X_OK) == 0; }

bool Exists(const std::string& path) {
  struct stat info;
  return !path.empty() && stat(path.c_str(), &info) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  std::string archive;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg.rfind("--archive=", 0) == 0) archive = arg.substr(10);
    if (arg.rfind("--image=", 0) == 0) g_image = arg.substr(8);
    if (arg.rfind("--vshadowinfo=", 0) == 0) g_vshadowinfo = arg.substr(14);
  }
  if (!Exists(g_image)) {
    std::printf("SKIPPED: no disk image at %s (the archive %s is absent, or was not unpacked)\n", g_image.c_str(),
                archive.c_str());
    return 77;
  }
  if (!IsExecutable(g_vshadowinfo)) {
    std::printf("SKIPPED: the oracle vshadowinfo (Debian package libvshadow-utils) was not found\n");
    return 77;
  }
  return RUN_ALL_TESTS();
}
