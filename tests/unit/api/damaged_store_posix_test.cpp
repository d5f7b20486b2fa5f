// Damaged store images through the exports: Init's status and the exact
// messages, oldest first, for images cut short at the volume header, in
// the catalog and in a block list, for zeroed and looping record chains,
// for catalog entries that point past the end of the volume and for a
// bitmap shorter than the volume needs. POSIX only: the shadow copies are
// rebuilt from the store.
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "common/error_queue.h"
#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/temp_volume_file.h"
#include "tests/fixtures/vss_store_builder.h"
#include "tolvar/tolvar.h"

using tolvarcommon::ErrorRecord;

namespace {

using tolvartest::DrainErrors;
using tolvartest::Record;
using tolvartest::vss::Block;
using tolvartest::vss::BuildStore;
using tolvartest::vss::BuiltStore;
using tolvartest::vss::Snap;
using tolvartest::vss::StoreSpec;

constexpr uint32_t kFlags = TOLVAR_OPTION_ERROR_QUEUE;
constexpr uint64_t kBlockSize = 16384;
constexpr uint64_t kPageHeaderSize = 128;
constexpr uint64_t kEntrySize = 128;                  // one catalog entry
constexpr uint64_t kDescriptorSize = 32;              // one block-list entry
constexpr uint64_t kOwnOffsetField = 32;              // page header: the page's own offset
constexpr uint64_t kNextOffsetField = 40;             // page header: offset of the next page
constexpr uint64_t kDefinitionVolumeSizeField = 8;    // catalog definition: volume size
constexpr uint64_t kDeclarationIndexField = 8;        // catalog declaration: block-list offset
constexpr uint64_t kDeclarationBitmapField = 8 + 40;  // catalog declaration: bitmap offset
constexpr uint64_t kChangedOffset = 0x200000;

std::string ShadowCopyId(uint32_t n) { return tolvartest::vss::Id(0x100 + n).ToString(); }

struct Outcome {
  std::string path;  // the image's temporary path
  int32_t status;
  std::vector<ErrorRecord> messages;
};

class DamagedStore : public tolvartest::QueueTest {
 protected:
  // Two snapshots; the older one's block list names two blocks, so its
  // record has more than one descriptor to cut through.
  static StoreSpec TwoSnapshots() {
    StoreSpec spec;
    spec.snapshots = {Snap(1, 10), Snap(2, 20)};
    spec.snapshots[0].descriptors = {Block(kChangedOffset), Block(kChangedOffset + kBlockSize)};
    return spec;
  }

  // Init from snapshot 1 to 2 on the image, cut to size bytes when size is
  // not 0; the handle, if any, is freed.
  static Outcome InitOn(tolvartest::SparseSource& source, uint64_t size = 0) {
    tolvartest::TempVolumeFile file(source);
    if (size != 0) std::filesystem::resize_file(file.Path(), size);
    TolvarHandle handle = nullptr;
    Outcome outcome;
    outcome.path = file.Path();
    outcome.status =
        Init(&handle, file.Path().c_str(), ShadowCopyId(1).c_str(), ShadowCopyId(2).c_str(), kBlockSize, kFlags);
    outcome.messages = DrainErrors();
    FreeHandle(handle);
    return outcome;
  }

  static void PutLe64(tolvartest::SparseSource& source, uint64_t offset, uint64_t value) {
    uint8_t bytes[8];
    ntfsparsercore::io::StoreLe64(bytes, value);
    source.Write(offset, bytes, sizeof bytes);
  }
};

TEST_F(DamagedStore, ImageCutShortInsideTheVolumeHeader) {
  BuiltStore built = BuildStore(TwoSnapshots());
  Outcome outcome = InitOn(*built.source, tolvartest::vss::kVolumeHeaderOffset + 48);
  EXPECT_EQ(outcome.status, TOLVAR_E_FAILED);
  EXPECT_EQ(outcome.messages,
            (std::vector<ErrorRecord>{
                Record(1, "Failed read cluster, position 7680"), Record(1, "Failed to read vss volume header"),
                Record(12, "Invalid storage with empty guid"), Record(1, "Can't open volume " + outcome.path)}));
}

TEST_F(DamagedStore, ImageCutShortInsideTheCatalog) {
  BuiltStore built = BuildStore(TwoSnapshots());
  // The page header and the first snapshot's two entries survive; the
  // second snapshot's definition is cut in its body.
  Outcome outcome = InitOn(*built.source, built.catalogOffset + kPageHeaderSize + 2 * kEntrySize + 20);
  EXPECT_EQ(outcome.status, TOLVAR_E_FAILED);
  EXPECT_EQ(outcome.messages,
            (std::vector<ErrorRecord>{Record(1, "Failed read cluster, position " + std::to_string(built.catalogOffset)),
                                      Record(1, "Failed to read vss record header"),
                                      Record(12, "Can't find last page."), Record(1, "Failed to read snapshot"),
                                      Record(12, "Snapshot guid is empty"), Record(12, "Empty snapshot internal guid"),
                                      Record(13, "Failed build snapshot sequence. Start snapshot not find"),
                                      Record(12, "Failed to get snapshot sequence")}));
}

TEST_F(DamagedStore, ImageCutShortInsideABlockList) {
  BuiltStore built = BuildStore(TwoSnapshots());
  // Move the older snapshot's block list to the end of the image (the page
  // after the catalog), then cut it after its first descriptor and half of
  // the second.
  uint64_t moved = built.catalogOffset + tolvartest::vss::kPageSize;
  std::vector<uint8_t> page(tolvartest::vss::kPageSize);
  built.source->Read(page.data(), page.size(), built.offsets[0].index);
  built.source->Write(moved, page);
  PutLe64(*built.source, moved + kOwnOffsetField, moved);
  uint64_t declaration = built.catalogOffset + kPageHeaderSize + kEntrySize;
  PutLe64(*built.source, declaration + kDeclarationIndexField, moved);
  Outcome outcome = InitOn(*built.source, moved + kPageHeaderSize + kDescriptorSize + 16);
  EXPECT_EQ(outcome.status, TOLVAR_OK);
  EXPECT_EQ(outcome.messages,
            (std::vector<ErrorRecord>{Record(1, "Failed read cluster, position " + std::to_string(moved)),
                                      Record(1, "Failed to read vss record header"),
                                      Record(12, "Can't find last page."), Record(1, "Failed to read index record")}));
}

TEST_F(DamagedStore, ZeroedCatalogPage) {
  BuiltStore built = BuildStore(TwoSnapshots());
  built.source->Write(built.catalogOffset, std::vector<uint8_t>(tolvartest::vss::kPageSize, 0));
  Outcome outcome = InitOn(*built.source);
  EXPECT_EQ(outcome.status, TOLVAR_E_FAILED);
  EXPECT_EQ(outcome.messages,
            (std::vector<ErrorRecord>{Record(12, "Unexpected vss record native offset. Actual(" +
                                                     std::to_string(built.catalogOffset) + "), was expected(0)"),
                                      Record(12, "Can't find last page."), Record(1, "Failed to read snapshot"),
                                      Record(12, "Unexpected vss record native offset. Actual(" +
                                                     std::to_string(built.catalogOffset) + "), was expected(0)"),
                                      Record(12, "Can't find last page."), Record(1, "Failed to read snapshot"),
                                      Record(13, "Failed build snapshot sequence. Start snapshot not find"),
                                      Record(12, "Failed to get snapshot sequence")}));
}

TEST_F(DamagedStore, BlockListWhosePageChainLoopsBackToItself) {
  BuiltStore built = BuildStore(TwoSnapshots());
  PutLe64(*built.source, built.offsets[0].index + kNextOffsetField, built.offsets[0].index);
  Outcome outcome = InitOn(*built.source);
  EXPECT_EQ(outcome.status, TOLVAR_OK);
  EXPECT_EQ(outcome.messages,
            (std::vector<ErrorRecord>{Record(12, "Find page based loop."), Record(1, "Failed to read index record")}));
}

TEST_F(DamagedStore, CatalogDeclarationWhoseBitmapLiesPastTheEndOfTheVolume) {
  BuiltStore built = BuildStore(TwoSnapshots());
  // Pairs layout: definition 1, declaration 1, definition 2, declaration 2.
  uint64_t declaration = built.catalogOffset + kPageHeaderSize + 3 * kEntrySize;
  const uint64_t pastTheEnd = built.source->GetSize() + 0x100000;
  PutLe64(*built.source, declaration + kDeclarationBitmapField, pastTheEnd);
  Outcome outcome = InitOn(*built.source);
  EXPECT_EQ(outcome.status, TOLVAR_E_FAILED);
  // The rebuilt shadow copies read the store through a line of their own,
  // so the storage's line meets the bitmap's page as it would on Windows:
  // the page cannot be read and the record has no pages.
  EXPECT_EQ(outcome.messages, (std::vector<ErrorRecord>{
                                  Record(1, "Failed read cluster, position " + std::to_string(pastTheEnd)),
                                  Record(1, "Failed to read vss record header"),
                                  Record(12, "Can't find last page."),
                                  Record(1, "Read last vss-bitmap data failed"),
                                  Record(12, "Bitmap init failed"),
                              }));
}

TEST_F(DamagedStore, BitmapShorterThanTheVolumeNeeds) {
  StoreSpec spec = TwoSnapshots();
  // 4 GiB needs 32,768 bitmap bytes: three pages; the record has one.
  spec.volumeSize = 4096 * tolvartest::vss::kMiB;
  spec.snapshots[1].bitmapPages = 1;
  BuiltStore built = BuildStore(spec);
  Outcome outcome = InitOn(*built.source);
  EXPECT_EQ(outcome.status, TOLVAR_E_FAILED);
  EXPECT_EQ(outcome.messages, (std::vector<ErrorRecord>{Record(1, "Read last vss-bitmap data failed"),
                                                        Record(12, "Bitmap init failed")}));
}

TEST_F(DamagedStore, CatalogDefinitionWithAVolumeOfAnExabyte) {
  BuiltStore built = BuildStore(TwoSnapshots());
  // Pairs layout: the newer snapshot's definition is the third entry. Its
  // bitmap would need 8 TiB; the record holds one page.
  uint64_t definition = built.catalogOffset + kPageHeaderSize + 2 * kEntrySize;
  PutLe64(*built.source, definition + kDefinitionVolumeSizeField, uint64_t{1} << 60);
  Outcome outcome = InitOn(*built.source);
  EXPECT_EQ(outcome.status, TOLVAR_E_FAILED);
  EXPECT_EQ(outcome.messages, (std::vector<ErrorRecord>{
                                  Record(1, "Read last vss-bitmap data failed"),
                                  Record(12, "Bitmap init failed"),
                              }));
}

}  // namespace
