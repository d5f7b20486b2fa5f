// Damaged MFTs through the file exports: an image with a store of two
// snapshots whose shadow copies hold an NTFS volume, damaged in its MFT,
// then Init, GetFileChangesMap and ExcludeFiles; each test asserts the
// statuses and the exact messages, oldest first. POSIX only: the shadow
// copies are rebuilt from the store.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "common/error_queue.h"
#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/ntfs_image_builder.h"
#include "tests/fixtures/store_ntfs_image.h"
#include "tests/fixtures/temp_volume_file.h"
#include "tests/fixtures/vss_store_builder.h"
#include "tolvar/tolvar.h"

using tolvarcommon::ErrorRecord;

namespace {

using tolvartest::DrainErrors;
using tolvartest::NtfsImageBuilder;
using tolvartest::Record;
namespace vss = tolvartest::vss;

constexpr uint32_t kFlags = TOLVAR_OPTION_ERROR_QUEUE;
constexpr uint64_t kBlockSize = 4096;
using Image = tolvartest::StoreNtfsImage;
constexpr uint64_t kCluster = Image::kCluster;
constexpr uint64_t kRecordSize = Image::kRecordSize;
constexpr uint64_t kMftOffset = Image::kMftOffset;
constexpr uint64_t kStoreBlock = Image::kStoreBlock;
constexpr uint64_t kA = Image::kA;
constexpr uint64_t kB = Image::kB;
constexpr uint64_t kSmall = Image::kSmall;
constexpr uint64_t kUsaCountField = 6;  // file record: update sequence array count
constexpr uint64_t kSectorSize = 512;

const std::string kEndMarker = "Unexpected attribute type was expected(4096), actual(4294967295)";

// The end-of-attributes message of count record walks.
std::vector<ErrorRecord> EndMarkers(std::size_t count) {
  return std::vector<ErrorRecord>(count, Record(3, kEndMarker));
}

std::string ShadowCopyId(uint32_t n) { return Image::ShadowCopyId(n); }

vss::BuiltStore BuildImage() { return Image::Build(); }

// What one run of the file exports did: each call's status and the
// messages it left, oldest first.
struct FileOutcome {
  std::string path;  // the image's temporary path
  int32_t initStatus = 0;
  std::vector<ErrorRecord> initMessages;
  int32_t sizeStatus = 0;  // GetFileChangesMap with a null buffer
  uint64_t mapSize = 0;
  std::vector<ErrorRecord> sizeMessages;
  int32_t mapStatus = 0;  // GetFileChangesMap into a buffer of that size
  std::vector<uint8_t> map;
  std::vector<ErrorRecord> mapMessages;
  int32_t excludeStatus = 0;  // ExcludeFiles of the same path
  bool excludedHandle = false;
  std::vector<ErrorRecord> excludeMessages;
};

class DamagedMft : public tolvartest::QueueTest {
 protected:
  // Init from snapshot 1 to 2 on the image, cut to size bytes when size is
  // not 0, then the change map of path and its exclusion.
  static FileOutcome RunOn(tolvartest::SparseSource& source, const std::string& path, uint64_t size = 0) {
    tolvartest::TempVolumeFile file(source);
    if (size != 0) std::filesystem::resize_file(file.Path(), size);
    FileOutcome outcome;
    outcome.path = file.Path();
    TolvarHandle handle = nullptr;
    outcome.initStatus =
        Init(&handle, file.Path().c_str(), ShadowCopyId(1).c_str(), ShadowCopyId(2).c_str(), kBlockSize, kFlags);
    outcome.initMessages = DrainErrors();
    if (outcome.initStatus != TOLVAR_OK) return outcome;
    outcome.sizeStatus = GetFileChangesMap(handle, path.c_str(), nullptr, &outcome.mapSize);
    outcome.sizeMessages = DrainErrors();
    outcome.map.assign(outcome.mapSize, 0xEE);
    uint64_t room = outcome.mapSize;
    outcome.mapStatus = GetFileChangesMap(handle, path.c_str(), outcome.map.data(), &room);
    outcome.mapMessages = DrainErrors();
    const char* paths[] = {path.c_str(), nullptr};
    TolvarHandle excluded = nullptr;
    outcome.excludeStatus = ExcludeFiles(handle, &excluded, paths);
    outcome.excludedHandle = excluded != nullptr;
    outcome.excludeMessages = DrainErrors();
    FreeHandle(excluded);
    FreeHandle(handle);
    return outcome;
  }

  // Messages of several groups, in order.
  static std::vector<ErrorRecord> Join(const std::vector<std::vector<ErrorRecord>>& groups) {
    std::vector<ErrorRecord> all;
    for (const auto& group : groups) all.insert(all.end(), group.begin(), group.end());
    return all;
  }
};

// Init's one message: the walk over a block list ends where no further
// descriptor can be read, and says so, a complete walk included.
std::vector<ErrorRecord> InitMessages() { return {Record(1, "Failed to read index record")}; }

// Every walk of a record's attributes ends on the end marker, whose
// attribute record is built before the walk stops on its type: one message
// per walk. Looking up "/a.bin" walks six records: the root's index root,
// the root's name ("."), the root's index root again, the root's and
// a.bin's names, and a.bin's data attribute.
constexpr std::size_t kLookupWalks = 6;
// Opening an NTFS view walks the MFT's record 0 for its data attribute.
constexpr std::size_t kViewWalks = 1;

// What the sound image gives for /a.bin: Init, the map and the exclusion
// succeed, with only the end-of-attributes messages of the record walks.
void ExpectSoundOutcome(const FileOutcome& outcome) {
  EXPECT_EQ(outcome.initStatus, TOLVAR_OK);
  EXPECT_EQ(outcome.initMessages, InitMessages());
  // The first call opens both views, then looks the file up in the newer one.
  EXPECT_EQ(outcome.sizeStatus, TOLVAR_SIZE_RETURNED);
  EXPECT_EQ(outcome.mapSize, 1u);
  EXPECT_EQ(outcome.sizeMessages, EndMarkers(2 * kViewWalks + kLookupWalks));
  // The map looks the file up in both views; its three blocks lie in a
  // changed 16 KiB block.
  EXPECT_EQ(outcome.mapStatus, TOLVAR_OK);
  EXPECT_EQ(outcome.map, (std::vector<uint8_t>{0x07}));
  EXPECT_EQ(outcome.mapMessages, EndMarkers(2 * kLookupWalks));
  EXPECT_EQ(outcome.excludeStatus, TOLVAR_OK);
  EXPECT_TRUE(outcome.excludedHandle);
  EXPECT_EQ(outcome.excludeMessages, EndMarkers(kLookupWalks));
}

TEST_F(DamagedMft, SoundImageMapsAndExcludesAFile) {
  vss::BuiltStore built = BuildImage();
  ExpectSoundOutcome(RunOn(*built.source, "/a.bin"));
}

// A file record whose MFT page could not be loaded: its header read fails,
// and the 48 header bytes then come from the page's line as the failed load
// left it, still all 0xFF.
std::vector<ErrorRecord> UnloadedRecord() {
  return {Record(3, "MultiSectorHeader read failed"),
          Record(3, "Unexpected usn type. Was expected(1162627398), actual(0)"),
          Record(3, "Unexpected record type. Was expected(1162627398), actual(4294967295)")};
}

// A file record whose signature reads as actual: the multi-sector reader
// and the record's two checks each say so.
std::vector<ErrorRecord> RecordOfType(const std::string& actual) {
  return {Record(3, "Unexpected record type. Was expected(1162627398), actual(" + actual + ")"),
          Record(3, "Unexpected usn type. Was expected(1162627398), actual(" + actual + ")"),
          Record(3, "Unexpected record type. Was expected(1162627398), actual(" + actual + ")")};
}

// A record read again from a page whose load failed before: the line is
// served as it is, without a new read, and holds 0xFF bytes.
std::vector<ErrorRecord> StaleRecord() { return RecordOfType("4294967295"); }

// After a first call that could not load the root's page, the map and the
// exclusion find that page's stale line: the root reads as not in use.
void ExpectLaterCallsFindAStaleRoot(const FileOutcome& outcome) {
  EXPECT_EQ(outcome.mapStatus, TOLVAR_E_NOT_FOUND);
  EXPECT_EQ(outcome.mapMessages, StaleRecord());
  EXPECT_EQ(outcome.excludeStatus, TOLVAR_E_NOT_FOUND);
  EXPECT_FALSE(outcome.excludedHandle);
  EXPECT_EQ(outcome.excludeMessages, StaleRecord());
}

TEST_F(DamagedMft, ImageCutShortInsideTheMft) {
  vss::BuiltStore built = BuildImage();
  // The cut lies in b.bin's record, in the MFT's second 16 KiB: the store
  // before it is whole, the MFT's first 16 KiB (records 0 to 15) can be
  // read, records 16 to 31 share the cut line, records 32 on lie past it.
  const uint64_t cut = kMftOffset + kB * kRecordSize + 100;
  FileOutcome outcome = RunOn(*built.source, "/a.bin", cut);
  EXPECT_EQ(outcome.initStatus, TOLVAR_OK);
  EXPECT_EQ(outcome.initMessages, InitMessages());
  // The root is found; its entries a.bin (record 30) and b.bin (31) lie in
  // the line that the cut leaves short, small.txt (33) in the line after:
  // the shadow copy's line and the MFT page fail in turn (the rebuilt shadow
  // copy reads the image directly, without a line of its own).
  const uint64_t cutLine = kMftOffset + kStoreBlock;
  EXPECT_EQ(outcome.sizeStatus, TOLVAR_E_NOT_FOUND);
  EXPECT_EQ(outcome.sizeMessages,
            Join({EndMarkers(2 * kViewWalks + 4),
                  {Record(1, "Failed read cluster, position " +
                                 std::to_string(kMftOffset + kA * kRecordSize / kCluster * kCluster)),
                   Record(1, "Failed read cluster, position " + std::to_string(kA * kRecordSize))},
                  UnloadedRecord(),
                  StaleRecord(),
                  {Record(1, "Failed read cluster, position " + std::to_string(cutLine + kStoreBlock)),
                   Record(1, "Failed read cluster, position " + std::to_string(kSmall * kRecordSize))},
                  UnloadedRecord()}));
  // Later lookups read the three records from the pages' lines as left.
  const std::vector<ErrorRecord> lookup = Join({EndMarkers(4), StaleRecord(), StaleRecord(), StaleRecord()});
  EXPECT_EQ(outcome.mapStatus, TOLVAR_E_NOT_FOUND);
  EXPECT_EQ(outcome.map, std::vector<uint8_t>{});
  EXPECT_EQ(outcome.mapMessages, lookup);
  EXPECT_EQ(outcome.excludeStatus, TOLVAR_E_NOT_FOUND);
  EXPECT_FALSE(outcome.excludedHandle);
  EXPECT_EQ(outcome.excludeMessages, lookup);
}

TEST_F(DamagedMft, MftRecordZeroWithABadSignature) {
  vss::BuiltStore built = BuildImage();
  built.source->Write(kMftOffset, "FILX", 4);
  FileOutcome outcome = RunOn(*built.source, "/a.bin");
  EXPECT_EQ(outcome.initStatus, TOLVAR_OK);
  EXPECT_EQ(outcome.initMessages, InitMessages());
  // Each view's record 0 is not in use, so the MFT's stream is empty: the
  // root's page cannot be loaded, and the root is not in use.
  const std::string actual = "1481394502";  // "FILX"
  EXPECT_EQ(outcome.sizeStatus, TOLVAR_E_NOT_FOUND);
  EXPECT_EQ(
      outcome.sizeMessages,
      Join({RecordOfType(actual),
            RecordOfType(actual),
            {Record(1, "Failed read cluster, position " + std::to_string(NtfsImageBuilder::kRootRecord * kRecordSize))},
            UnloadedRecord()}));
  ExpectLaterCallsFindAStaleRoot(outcome);
}

TEST_F(DamagedMft, MftRecordZeroWithoutItsFixUpArray) {
  vss::BuiltStore built = BuildImage();
  const uint8_t none[2] = {0, 0};
  built.source->Write(kMftOffset + kUsaCountField, none, sizeof none);
  FileOutcome outcome = RunOn(*built.source, "/a.bin");
  EXPECT_EQ(outcome.initStatus, TOLVAR_OK);
  EXPECT_EQ(outcome.initMessages, InitMessages());
  // Read without fix-up, the end of record 0's first sector holds the
  // update sequence number 0x0A0B instead of bytes 4 and 5 of its run's
  // cluster offset: the MFT's stream then lies at cluster 0x0A0B00000200,
  // far past the volume, whose read is reported at the low 32 bits of its
  // position.
  const uint64_t runCluster = (uint64_t{0x0A0B} << 32) | Image::kMftCluster;
  const uint64_t rootPage = NtfsImageBuilder::kRootRecord * kRecordSize / kCluster * kCluster;
  EXPECT_EQ(outcome.sizeStatus, TOLVAR_E_NOT_FOUND);
  EXPECT_EQ(
      outcome.sizeMessages,
      Join({EndMarkers(2 * kViewWalks),
            {Record(1, "Failed read cluster, position " +
                           std::to_string(static_cast<uint32_t>(runCluster * kCluster + rootPage))),
             Record(1, "Failed read cluster, position " + std::to_string(NtfsImageBuilder::kRootRecord * kRecordSize))},
            UnloadedRecord()}));
  ExpectLaterCallsFindAStaleRoot(outcome);
}

TEST_F(DamagedMft, MftRecordZeroWhoseSectorEndsDoNotMatchItsUpdateSequenceNumber) {
  vss::BuiltStore built = BuildImage();
  // The fix-up is applied without comparing the sector's last two bytes
  // with the update sequence number: record 0 reads as sound.
  const uint8_t wrong[2] = {0xde, 0xad};
  built.source->Write(kMftOffset + kSectorSize - 2, wrong, sizeof wrong);
  built.source->Write(kMftOffset + 2 * kSectorSize - 2, wrong, sizeof wrong);
  ExpectSoundOutcome(RunOn(*built.source, "/a.bin"));
}

}  // namespace
