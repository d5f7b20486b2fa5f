// Writes the fuzz targets' seed inputs.
//
//   make_fuzz_seeds store DIR                 stores built in memory, with
//                                             the Init target's option bytes
//   make_fuzz_seeds store-volume DIR          the same stores alone
//   make_fuzz_seeds ntfs DIR [IMAGE START LENGTH]...
//                                             volumes built in memory, and
//                                             the bytes the NTFS work reads
//                                             from each partition given
//   make_fuzz_seeds ntfs-records DIR          small volumes built in memory
//   make_fuzz_seeds lznt1 DIR                 compression units
//   make_fuzz_seeds file-changes DIR          two versions of small volumes
//                                             with files, for the file exports
//   make_fuzz_seeds store-files DIR           the same in stores, with the
//                                             Init target's option bytes
//   make_fuzz_seeds store-image DIR IMAGE     the bytes Init and the start
//                                             of its block walk read from a
//                                             volume image with a store, with
//                                             option bytes
//   make_fuzz_seeds store-volume-image DIR IMAGE
//                                             the same bytes alone
//   make_fuzz_seeds store-files-image DIR IMAGE
//                                             the bytes Init and the file
//                                             exports read, with option bytes
//   make_fuzz_seeds file-changes-images DIR OLDER NEWER
//                                             the bytes the file exports read
//                                             from two versions of a volume
//
// The image kinds run Init from the shadow copy Id(0x101) to Id(0x102), as
// the Init targets do, so the image's store must name those.
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "common/error_queue.h"
#include "api/tracking_handle.h"
#include "core/vss/service/vss_context.h"
#include "tests/fixtures/fake_source_factory.h"
#include "tests/fixtures/file_volume_images.h"
#include "tests/fixtures/memory_source.h"
#include "tests/fixtures/store_ntfs_image.h"
#include "tests/fixtures/ntfs_image_builder.h"
#include "tests/fixtures/vss_store_builder.h"
#include "tests/fuzz/file_changes_handle.h"
#include "tests/fuzz/file_changes_input.h"
#include "tests/fuzz/file_exports_workload.h"
#include "tests/fuzz/ntfs_workload.h"
#include "tests/fuzz/partition_file_source.h"
#include "tests/fuzz/recording_source.h"
#include "tests/fuzz/sparse_volume_input.h"
#include "ntfsparsercore/io/crc32.h"
#include "ntfsparsercore/io/little_endian.h"

using tolvarcommon::CreateErrorQueue;
using tolvarcommon::DestroyErrorQueue;
using tolvarcommon::ErrorRecord;
using tolvarcommon::PopError;

namespace {

namespace vss = tolvartest::vss;
using tolvarfuzz::SparseVolumeInput;

constexpr uint64_t kStoreVolumeSize = 16 * vss::kMiB;
constexpr uint64_t kOldDataBase = 12 * vss::kMiB;   // where the old contents of changed blocks sit
constexpr uint32_t kForwarder = 1;                  // block-list entry flag
constexpr uint64_t kNtfsLimit = uint64_t{1} << 32;  // the NTFS target's largest volume
constexpr uint64_t kStoreLimit = 16 * vss::kMiB;    // the store and file targets' largest volume

void Write(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  if (!out.good()) {
    std::cerr << "cannot write " << path << "\n";
    std::exit(1);
  }
}

// A block-list entry whose old contents sit below kOldDataBase's end of
// the volume; forwarders carry no store data (a store with one that does
// is unreadable).
vss::Descriptor Changed(uint64_t original, uint32_t flags = 0) {
  vss::Descriptor d = vss::Block(original, flags);
  d.storeData = (flags & kForwarder) != 0 ? 0 : kOldDataBase + original;
  return d;
}

// Option bytes: block size selector, then flags (bit 0 newest pass, bit 1 compare).
// Without options, the volume alone.
bool g_storeOptions = true;

void WriteStore(const std::string& dir, const std::string& name, const vss::StoreSpec& spec, uint8_t sizeStep,
                uint8_t options) {
  vss::BuiltStore built = vss::BuildStore(spec);
  std::vector<uint8_t> bytes;
  if (g_storeOptions) bytes = {sizeStep, options};
  std::vector<uint8_t> volume = SparseVolumeInput::Encode(*built.source);
  bytes.insert(bytes.end(), volume.begin(), volume.end());
  Write(dir + "/" + name, bytes);
}

void Stores(const std::string& dir) {
  vss::StoreSpec two;
  two.volumeSize = kStoreVolumeSize;
  two.snapshots = {vss::Snap(1, 10), vss::Snap(2, 20)};
  two.snapshots[0].descriptors = {Changed(0x10000), Changed(0x24000, 2)};
  two.snapshots[1].descriptors = {Changed(0x100000), Changed(0x100000, 2), Changed(0x200000, 1)};
  WriteStore(dir, "two-snapshots", two, 3, 0);
  WriteStore(dir, "two-snapshots-newest-compare", two, 0, 3);

  vss::StoreSpec bitmaps = two;
  bitmaps.snapshots[0].bitmapBlocks = {1, 2, 3, 200};
  bitmaps.snapshots[1].hasPreviousBitmap = true;
  bitmaps.snapshots[1].previousBitmapBlocks = {5, 6};
  WriteStore(dir, "bitmaps", bitmaps, 7, 1);

  vss::StoreSpec three;
  three.volumeSize = kStoreVolumeSize;
  three.layout = vss::CatalogLayout::kDefinitionsFirst;
  three.snapshots = {vss::Snap(1, 10), vss::Snap(2, 20), vss::Snap(3, 30)};
  three.snapshots[1].descriptors = {Changed(0x8000), Changed(0x300000)};
  three.snapshots[2].descriptors = {Changed(0x40000, 4)};
  WriteStore(dir, "three-definitions-first", three, 1, 2);
}

void BuiltVolumes(const std::string& dir) {
  using tolvartest::NtfsImageBuilder;
  NtfsImageBuilder builder;
  builder.SetRoot({tolvartest::IndexEntryBytes(16, 0x00)});
  builder.AddFile(16, "a.txt", {tolvartest::ResidentData(1, {'h', 'e', 'l', 'l', 'o'})});
  auto recording =
      std::make_shared<tolvarfuzz::RecordingSource>(std::make_shared<tolvartest::MemorySource>(builder.Image()));
  tolvarfuzz::NtfsWorkload::Run(recording);
  Write(dir + "/built-volume", SparseVolumeInput::Encode(*recording->Touched(kNtfsLimit)));
}

void Partition(const std::string& dir, const std::string& image, uint64_t start, uint64_t length) {
  auto file = std::make_shared<tolvarfuzz::PartitionFileSource>(image, start, length);
  if (!file->IsOpen()) {
    std::cerr << "cannot open " << image << "\n";
    std::exit(1);
  }
  auto recording = std::make_shared<tolvarfuzz::RecordingSource>(file);
  tolvarfuzz::NtfsWorkload::Run(recording);
  std::string name = image.substr(image.find_last_of('/') + 1);
  Write(dir + "/" + name + "-" + std::to_string(start), SparseVolumeInput::Encode(*recording->Touched(kNtfsLimit)));
}

void WriteImage(const std::string& path, const tolvartest::Bytes& image) {
  tolvartest::SparseSource sparse(image.size());
  sparse.Write(0, image);
  Write(path, SparseVolumeInput::Encode(sparse));
}

// Small volumes: resident and non-resident files, a directory whose index
// has an allocation block, a file in it.
void SmallVolumes(const std::string& dir) {
  using namespace tolvartest;
  constexpr uint64_t kDataCluster = 20;  // first cluster after the MFT
  constexpr uint64_t kIndexCluster = 22;
  NtfsImageBuilder builder;
  builder.SetRoot({IndexEntryBytes(16, 0x00), IndexEntryBytes(17, 0x00), IndexEntryBytes(18, 0x00)});
  builder.AddFile(16, "a.txt", {ResidentData(1, {'h', 'e', 'l', 'l', 'o'})});
  builder.AddFile(17, "b.bin",
                  {NonResidentAttribute(0x80, 1, 0, 1, 6000, {{2, static_cast<int64_t>(kDataCluster), 1, 1}})});
  builder.PutCluster(kDataCluster, Bytes(4096, 0x5a));
  builder.PutCluster(kDataCluster + 1, Bytes(1904, 0xa5));
  Bytes rootOfDir = IndexRootAttribute(1, 4096, {IndexEntryBytes(0, 0x03, 0)});
  Bytes allocation =
      NonResidentAttribute(0xA0, 2, 0, 0, 4096, {{1, static_cast<int64_t>(kIndexCluster), 1, 1}}, "$I30");
  builder.AddFile(18, "d", {rootOfDir, allocation}, NtfsImageBuilder::kRootRecord, 1, 0x0003);
  builder.AddFile(19, "inner", {ResidentData(1, {'x'})}, 18);
  builder.PutCluster(kIndexCluster,
                     IndexBlockBytes(4096, 512, 0, {IndexEntryBytes(19, 0x00), IndexEntryBytes(0, 0x02)}));
  WriteImage(dir + "/files-and-directory", builder.Image());

  // A file whose data lies in two extension records that its attribute list
  // names, and an LZNT1-compressed file: one stored cluster, then a sparse run.
  constexpr uint64_t kListedRecord = 20;
  constexpr uint64_t kExtentCluster = 24;
  constexpr uint64_t kCompressedCluster = 27;
  NtfsImageBuilder listed;
  listed.SetRoot({IndexEntryBytes(kListedRecord, 0x00), IndexEntryBytes(23, 0x00)});
  Bytes list;
  for (const Bytes& entry : {AttributeListEntryBytes(0x30, 0, kListedRecord, 4),
                             AttributeListEntryBytes(0x80, 2, 22, 7), AttributeListEntryBytes(0x80, 0, 21, 7)}) {
    PutBytes(&list, list.size(), entry);
  }
  AttributeFields listAttribute;
  listAttribute.type = 0x20;
  listAttribute.id = 2;
  listAttribute.value = list;
  FileRecordFields base;
  base.attributes = {AttributeBytes(listAttribute), FileNameAttribute(4, NtfsImageBuilder::kRootRecord, "listed.bin")};
  listed.SetRecord(kListedRecord, FileRecordBytes(base));
  FileRecordFields first;
  first.baseRecord = kListedRecord;
  first.attributes = {NonResidentAttribute(0x80, 7, 0, 1, 3 * 4096, {{2, static_cast<int64_t>(kExtentCluster), 1, 1}})};
  listed.SetRecord(21, FileRecordBytes(first));
  FileRecordFields second;
  second.baseRecord = kListedRecord;
  second.attributes = {NonResidentAttribute(0x80, 7, 2, 2, 0, {{1, static_cast<int64_t>(kExtentCluster + 2), 1, 1}})};
  listed.SetRecord(22, FileRecordBytes(second));
  for (uint64_t i = 0; i < 3; ++i) listed.PutCluster(kExtentCluster + i, Bytes(4096, static_cast<uint8_t>(0x60 + i)));
  AttributeFields compressed;
  compressed.type = 0x80;
  compressed.flags = 0x0001;
  compressed.id = 1;
  compressed.nonResident = true;
  compressed.lastVcn = 15;
  compressed.compressionUnit = 4;
  compressed.allocatedSize = 16 * 4096;
  compressed.dataSize = compressed.initializedSize = 5000;
  compressed.compressedSize = 4096;
  compressed.mappingPairs = MappingPairs({{1, static_cast<int64_t>(kCompressedCluster), 1, 1}, {15, 0, 1, 0}});
  listed.AddFile(23, "z.txt", {AttributeBytes(compressed)});
  listed.PutCluster(kCompressedCluster, {0x07, 0xB0, 0x08, 'a', 'b', 'c', 0x03, 0x20, 0, 0});
  WriteImage(dir + "/attribute-list-and-compressed", listed.Image());
}

// The input of the file exports' target for two versions of a volume.
void WriteVersions(const std::string& path, uint8_t blockSelector, uint8_t options, const tolvartest::Bytes& older,
                   const tolvartest::Bytes& newer) {
  tolvartest::SparseSource olderSource(older.size());
  olderSource.Write(0, older);
  tolvartest::SparseSource newerSource(newer.size());
  newerSource.Write(0, newer);
  Write(path, tolvarfuzz::FileChangesInput::Encode(blockSelector, options, olderSource, newerSource));
}

// One version of a volume with a compressed file of two units (the second
// one moved in the newer version), a sparse file whose last cluster
// changed, a directory with an index allocation block holding a file whose
// data changed in place, and a resident file whose text changed.
tolvartest::Bytes CompressedAndSparseVolume(bool newer) {
  using namespace tolvartest;
  constexpr uint64_t kCompressedRecord = 20;
  constexpr uint64_t kSparseRecord = 21;
  constexpr uint64_t kDirectoryRecord = 22;
  constexpr uint64_t kInnerRecord = 23;
  constexpr uint64_t kResidentRecord = 24;
  constexpr uint64_t kIndexCluster = 30;
  constexpr int64_t kFirstUnitCluster = 40;
  const int64_t secondUnitCluster = newer ? 50 : 41;
  constexpr int64_t kSparseCluster = 60;
  constexpr int64_t kInnerCluster = 70;
  const Bytes chunk = {0x07, 0xB0, 0x08, 'a', 'b', 'c', 0x03, 0x20, 0, 0};  // "abcabcabc" in one LZNT1 chunk

  NtfsImageBuilder builder;
  // Path lookup starts from the root's own entry, ".".
  builder.SetRoot({IndexEntryBytes(NtfsImageBuilder::kRootRecord, 0x00), IndexEntryBytes(kCompressedRecord, 0x00),
                   IndexEntryBytes(kSparseRecord, 0x00), IndexEntryBytes(kDirectoryRecord, 0x00),
                   IndexEntryBytes(kResidentRecord, 0x00)});

  AttributeFields compressed;
  compressed.type = 0x80;
  compressed.flags = 0x0001;
  compressed.id = 1;
  compressed.nonResident = true;
  compressed.lastVcn = 31;
  compressed.compressionUnit = 4;
  compressed.allocatedSize = 32 * 4096;
  compressed.dataSize = compressed.initializedSize = 16 * 4096 + 5000;
  compressed.compressedSize = 3 * 4096;
  compressed.mappingPairs = MappingPairs(
      {{1, kFirstUnitCluster, 1, 1}, {15, 0, 1, 0}, {2, secondUnitCluster - kFirstUnitCluster, 1, 1}, {14, 0, 1, 0}});
  builder.AddFile(kCompressedRecord, "c.txt", {AttributeBytes(compressed)});
  builder.PutCluster(kFirstUnitCluster, chunk);
  builder.PutCluster(static_cast<uint64_t>(secondUnitCluster), chunk);

  AttributeFields sparse;
  sparse.type = 0x80;
  sparse.flags = 0x8000;
  sparse.id = 1;
  sparse.nonResident = true;
  sparse.lastVcn = 8;
  sparse.allocatedSize = 9 * 4096;
  sparse.dataSize = sparse.initializedSize = 9 * 4096;
  sparse.mappingPairs = MappingPairs({{2, kSparseCluster, 1, 1}, {6, 0, 1, 0}, {1, 2, 1, 1}});
  builder.AddFile(kSparseRecord, "s.bin", {AttributeBytes(sparse)});
  builder.PutCluster(kSparseCluster, Bytes(4096, 0x11));
  builder.PutCluster(kSparseCluster + 1, Bytes(4096, 0x12));
  builder.PutCluster(kSparseCluster + 2, Bytes(4096, newer ? 0x23 : 0x13));

  Bytes rootOfDirectory = IndexRootAttribute(1, 4096, {IndexEntryBytes(0, 0x03, 0)});
  Bytes allocation =
      NonResidentAttribute(0xA0, 2, 0, 0, 4096, {{1, static_cast<int64_t>(kIndexCluster), 1, 1}}, "$I30");
  builder.AddFile(kDirectoryRecord, "d", {rootOfDirectory, allocation}, NtfsImageBuilder::kRootRecord, 1, 0x0003);
  builder.PutCluster(kIndexCluster,
                     IndexBlockBytes(4096, 512, 0, {IndexEntryBytes(kInnerRecord, 0x00), IndexEntryBytes(0, 0x02)}));
  builder.AddFile(kInnerRecord, "inner.bin", {NonResidentAttribute(0x80, 1, 0, 1, 6000, {{2, kInnerCluster, 1, 1}})},
                  kDirectoryRecord);
  builder.PutCluster(kInnerCluster, Bytes(4096, 0x31));
  builder.PutCluster(kInnerCluster + 1, Bytes(1904, newer ? 0x42 : 0x32));

  const std::string text = newer ? "newer text" : "older";
  builder.AddFile(kResidentRecord, "r.txt", {ResidentData(1, Bytes(text.begin(), text.end()))});
  return builder.Image();
}

// Versions of small volumes: non-resident files kept, moved, fragmented
// and new, resident and empty files (FileVolumeImages), compressed and
// sparse files and a file below a directory.
void FileVersions(const std::string& dir) {
  using tolvarfuzz::FileChangesInput;
  const tolvartest::Bytes older = tolvartest::FileVolumeImages::Build(false);
  const tolvartest::Bytes newer = tolvartest::FileVolumeImages::Build(true);
  WriteVersions(dir + "/files-4k", 0, 0, older, newer);
  WriteVersions(dir + "/files-64k-inverted-missing", 15,
                FileChangesInput::kInvertChanges | FileChangesInput::kMissingPath, older, newer);
  const tolvartest::Bytes compressedOlder = CompressedAndSparseVolume(false);
  const tolvartest::Bytes compressedNewer = CompressedAndSparseVolume(true);
  WriteVersions(dir + "/compressed-sparse-4k", 0, 0, compressedOlder, compressedNewer);
  WriteVersions(dir + "/compressed-sparse-16k-inverted", 3, FileChangesInput::kInvertChanges, compressedOlder,
                compressedNewer);
}

// Two versions of a volume in a store: the option bytes, then the store's image.
void WriteStoreVersions(const std::string& path, uint8_t blockSelector, uint8_t options,
                        tolvartest::SparseSource& store) {
  std::vector<uint8_t> bytes = {blockSelector, options};
  std::vector<uint8_t> volume = SparseVolumeInput::Encode(store);
  bytes.insert(bytes.end(), volume.begin(), volume.end());
  Write(path, bytes);
}

// The files of FileVersions, in stores whose shadow copies are the two
// versions: the default volume of StoreNtfsImage (MFT at 2 MiB, a moved
// and a changed file) and the compressed and sparse files.
void StoreFileVersions(const std::string& dir) {
  using tolvartest::StoreNtfsImage;
  constexpr uint8_t kMissingPath = 0x02;
  constexpr uint8_t kNewestPass = 0x01;
  const tolvartest::vss::BuiltStore moved = StoreNtfsImage::Build();
  WriteStoreVersions(dir + "/moved-4k", 0, 0, *moved.source);
  WriteStoreVersions(dir + "/moved-64k-newest-missing", 15, kNewestPass | kMissingPath, *moved.source);
  const tolvartest::vss::BuiltStore compressed =
      StoreNtfsImage::Build(CompressedAndSparseVolume(false), CompressedAndSparseVolume(true));
  WriteStoreVersions(dir + "/compressed-sparse-4k", 0, 0, *compressed.source);
  WriteStoreVersions(dir + "/compressed-sparse-16k", 3, 0, *compressed.source);
}

// Units of 4 KiB clusters (selector 3): one stored chunk, one compressed
// chunk with a back-reference, and a chunk followed by the end marker.
void Units(const std::string& dir) {
  std::vector<uint8_t> stored = {3, 0x03, 0x30};  // header: stored, 4,096 bytes of data
  stored.resize(3 + 4096, 'a');
  Write(dir + "/stored-chunk", stored);
  // Compressed: "abc" then a copy of length 6 from 3 back (tuple 0x2003 with 12-bit length field).
  std::vector<uint8_t> compressed = {3, 0x07, 0xB0, 0x08, 'a', 'b', 'c', 0x03, 0x20, 0, 0};
  Write(dir + "/compressed-chunk", compressed);
  std::vector<uint8_t> ended = {3, 0x02, 0xB0, 0x00, 'x', 'y', 'z', 0, 0};
  Write(dir + "/ended-chunk", ended);
}

// ---------------------------------------------------------------------------
// Seeds recorded from volume images that the image builder made.

// The size of the file at path, or 0 when it cannot be read.
uint64_t FileSize(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return 0;
  return static_cast<uint64_t>(status.st_size);
}

// The whole image file at path behind a recording source; exits when the
// file cannot be opened.
std::shared_ptr<tolvarfuzz::RecordingSource> RecordedImage(const std::string& path) {
  auto file = std::make_shared<tolvarfuzz::PartitionFileSource>(path, 0, FileSize(path));
  if (!file->IsOpen()) {
    std::cerr << "cannot open " << path << "\n";
    std::exit(1);
  }
  return std::make_shared<tolvarfuzz::RecordingSource>(file);
}

// True when the image fits the store and file targets' volumes; says why not otherwise.
bool FitsStoreTargets(const std::string& image) {
  if (FileSize(image) <= kStoreLimit) return true;
  std::cout << "skipped " << image << ": " << FileSize(image) << " bytes, more than the " << kStoreLimit
            << " the targets take\n";
  return false;
}

// What Init does, on the recorded image opened through the library's own
// volume provider: the handle, or null when Init would fail.
std::unique_ptr<TrackingHandle> InitOnImage(const std::shared_ptr<tolvarfuzz::RecordingSource>& image,
                                            uint64_t blockSize, uint32_t flags) {
  static const char kPath[] = "image";
  auto factory = std::make_shared<tolvartest::FakeSourceFactory>();
  factory->Add(kPath, image);
  auto handle = std::make_unique<TrackingHandle>();
  handle->volumeProvider = std::make_unique<tolvarcore::VolumeProvider>(factory);
  handle->blockProcessor = std::make_unique<tolvarcore::BlockProcessor>(blockSize, flags);
  std::shared_ptr<tolvarcore::vss::VssVolume> volume = handle->volumeProvider->OpenVolume(kPath);
  if (!volume) return nullptr;
  std::shared_ptr<tolvarcore::vss::VssVolume> storage = handle->volumeProvider->FindStorage(volume);
  if (!storage) return nullptr;
  tolvarcore::vss::service::VssContext context(storage);
  const std::pair<std::string, std::string> identifiers(vss::Id(0x101).ToString(), vss::Id(0x102).ToString());
  if (handle->blockProcessor->Compute(context, *handle->volumeProvider, volume, storage, identifiers) !=
      tolvarcore::WorkerResult::kOk) {
    return nullptr;
  }
  return handle;
}

// The first changed blocks of the handle, compared or not. Only their
// contents go into the seed: the rest of the walk reads zeros, which keeps
// the seed small (the whole walk's data is most of a store image's bytes).
void WalkSome(TrackingHandle& handle, uint64_t blockSize, bool compare) {
  constexpr int kBlocksRecorded = 4;
  std::vector<uint8_t> block(blockSize);
  for (int i = 0; i < kBlocksRecorded; ++i) {
    uint64_t room = blockSize;
    uint64_t index = 0;
    if (handle.blockProcessor->NextBlock(block.data(), &room, compare, &index) != tolvarcore::WorkerResult::kOk) break;
  }
}

void DrainErrors() {
  ErrorRecord record;
  while (PopError(&record)) {
  }
}

// Records what Init reads with and without the newest pass, with the
// start of the block walk or (fileWork) the file exports' work after it.
// Exits when Init fails: the image is not what the seeds need.
std::shared_ptr<tolvartest::SparseSource> RecordInit(const std::string& image, bool fileWork) {
  constexpr uint64_t kBlockSize = 4096;
  auto recording = RecordedImage(image);
  CreateErrorQueue();
  for (uint32_t newestPass : {0u, static_cast<uint32_t>(TOLVAR_OPTION_NEWEST_PASS)}) {
    std::unique_ptr<TrackingHandle> handle = InitOnImage(recording, kBlockSize, TOLVAR_OPTION_ERROR_QUEUE | newestPass);
    if (!handle) {
      std::cerr << "Init fails on " << image << "\n";
      std::exit(1);
    }
    if (fileWork) {
      tolvarfuzz::FileExportsWorkload::Run(handle.get(), kBlockSize, false);
    } else {
      WalkSome(*handle, kBlockSize, newestPass != 0);
    }
    DrainErrors();
  }
  DestroyErrorQueue();
  return recording->Touched(kStoreLimit);
}

std::string BaseName(const std::string& path) { return path.substr(path.find_last_of('/') + 1); }

// store_init (with option bytes: 4 KiB blocks; 16 KiB blocks with the
// newest pass and compare) and store_reader (without) seeds from image.
void StoreImage(const std::string& dir, const std::string& image) {
  if (!FitsStoreTargets(image)) return;
  std::shared_ptr<tolvartest::SparseSource> touched = RecordInit(image, false);
  const std::string name = dir + "/" + BaseName(image);
  std::vector<uint8_t> volume = SparseVolumeInput::Encode(*touched);
  if (!g_storeOptions) {
    Write(name, volume);
    return;
  }
  for (const std::vector<uint8_t>& options : {std::vector<uint8_t>{0, 0}, std::vector<uint8_t>{3, 3}}) {
    std::vector<uint8_t> bytes = options;
    bytes.insert(bytes.end(), volume.begin(), volume.end());
    Write(name + "-" + std::to_string(options[0]) + "-" + std::to_string(options[1]), bytes);
  }
}

// store_files seeds from image: 4 KiB blocks, and 64 KiB blocks with the
// newest pass and a missing path.
void StoreFilesImage(const std::string& dir, const std::string& image) {
  if (!FitsStoreTargets(image)) return;
  std::shared_ptr<tolvartest::SparseSource> touched = RecordInit(image, true);
  constexpr uint8_t kNewestPassAndMissingPath = 0x03;
  WriteStoreVersions(dir + "/" + BaseName(image) + "-4k", 0, 0, *touched);
  WriteStoreVersions(dir + "/" + BaseName(image) + "-64k-newest-missing", 15, kNewestPassAndMissingPath, *touched);
}

// The image file whole in a sparse source (chunks of zeros left out), so
// that the file_changes handle can compare and read it as its target does.
std::shared_ptr<tolvartest::SparseSource> LoadImage(const std::string& path) {
  auto file = RecordedImage(path);
  auto image = std::make_shared<tolvartest::SparseSource>(file->GetSize());
  std::vector<uint8_t> chunk(tolvartest::SparseSource::kChunk);
  for (uint64_t at = 0; at < file->GetSize(); at += chunk.size()) {
    uint64_t count = file->Read(chunk.data(), chunk.size(), at);
    if (std::any_of(chunk.begin(), chunk.begin() + count, [](uint8_t byte) { return byte != 0; })) {
      image->Write(at, chunk.data(), count);
    }
  }
  return image;
}

// Copies into target, from source, each chunk that chunks has.
void CopyChunks(tolvartest::SparseSource& chunks, tolvartest::SparseSource& source, tolvartest::SparseSource* target) {
  std::vector<uint8_t> bytes(tolvartest::SparseSource::kChunk);
  for (const auto& chunk : chunks.Chunks()) {
    const uint64_t at = chunk.first * tolvartest::SparseSource::kChunk;
    target->Write(at, bytes.data(), source.Read(bytes.data(), bytes.size(), at));
  }
}

// file_changes seeds from two versions of a volume: what the file exports
// read from each at 4 KiB and 16 KiB blocks.
void FileChangesImages(const std::string& dir, const std::string& olderPath, const std::string& newerPath) {
  if (!FitsStoreTargets(olderPath) || !FitsStoreTargets(newerPath)) return;
  std::shared_ptr<tolvartest::SparseSource> older = LoadImage(olderPath);
  std::shared_ptr<tolvartest::SparseSource> newer = LoadImage(newerPath);
  if (older->GetSize() != newer->GetSize()) {
    std::cerr << olderPath << " and " << newerPath << " differ in size\n";
    std::exit(1);
  }
  auto olderRecording = std::make_shared<tolvarfuzz::RecordingSource>(older);
  auto newerRecording = std::make_shared<tolvarfuzz::RecordingSource>(newer);
  CreateErrorQueue();
  for (uint8_t selector : {uint8_t{0}, uint8_t{3}}) {
    const uint64_t blockSize = (selector + 1) * tolvarfuzz::FileChangesInput::kBlockSizeUnit;
    tolvarfuzz::FileChangesHandle::Run(blockSize, 0,
                                       tolvarfuzz::FileChangesHandle::ChangedBlocks(*older, *newer, blockSize, false),
                                       olderRecording, newerRecording);
    DrainErrors();
  }
  DestroyErrorQueue();
  // Each version keeps the chunks either read, so that the older one's
  // patches on the newer one are the chunks that differ.
  std::shared_ptr<tolvartest::SparseSource> newerTouched = newerRecording->Touched(kStoreLimit);
  std::shared_ptr<tolvartest::SparseSource> olderTouched = olderRecording->Touched(kStoreLimit);
  CopyChunks(*newerTouched, *older, olderTouched.get());
  CopyChunks(*olderTouched, *newer, newerTouched.get());
  const std::string name = dir + "/" + BaseName(newerPath);
  Write(name + "-4k", tolvarfuzz::FileChangesInput::Encode(0, 0, *olderTouched, *newerTouched));
  Write(name + "-16k-inverted-missing",
        tolvarfuzz::FileChangesInput::Encode(
            3, tolvarfuzz::FileChangesInput::kInvertChanges | tolvarfuzz::FileChangesInput::kMissingPath, *olderTouched,
            *newerTouched));
}

// Partition tables: an MBR whose extended partition holds two logical
// partitions, one of them with an NTFS boot sector, and a GPT disk with two
// entries, checksums right.
void PartitionTables(const std::string& dir) {
  constexpr uint64_t kSector = 512;
  auto signature = [](std::vector<uint8_t>& disk, uint64_t sector) {
    disk[sector * kSector + 510] = 0x55;
    disk[sector * kSector + 511] = 0xAA;
  };
  auto entry = [&](std::vector<uint8_t>& disk, uint64_t sector, int slot, uint8_t type, uint32_t first,
                   uint32_t count) {
    uint8_t* bytes = disk.data() + sector * kSector + 446 + slot * 16;
    bytes[4] = type;
    ntfsparsercore::io::StoreLe32(bytes + 8, first);
    ntfsparsercore::io::StoreLe32(bytes + 12, count);
    signature(disk, sector);
  };
  std::vector<uint8_t> mbr(64 * kSector);
  entry(mbr, 0, 0, 0x07, 2, 8);
  entry(mbr, 0, 1, 0x05, 16, 48);
  entry(mbr, 16, 0, 0x07, 2, 8);
  entry(mbr, 16, 1, 0x05, 16, 16);
  entry(mbr, 32, 0, 0x83, 2, 8);
  std::memcpy(mbr.data() + 18 * kSector + 3, "NTFS    ", 8);
  signature(mbr, 18);
  Write(dir + "/mbr-logical", mbr);

  std::vector<uint8_t> gpt(64 * kSector);
  entry(gpt, 0, 0, 0xEE, 1, 63);
  uint8_t* array = gpt.data() + 2 * kSector;
  for (int slot = 0; slot < 2; ++slot) {
    uint8_t* bytes = array + slot * 128;
    bytes[0] = 0xA2;  // any non-zero type
    ntfsparsercore::io::StoreLe64(bytes + 32, 40 + slot * 10);
    ntfsparsercore::io::StoreLe64(bytes + 40, 49 + slot * 10);
  }
  uint8_t* header = gpt.data() + kSector;
  std::memcpy(header, "EFI PART", 8);
  ntfsparsercore::io::StoreLe32(header + 12, 92);
  ntfsparsercore::io::StoreLe64(header + 72, 2);
  ntfsparsercore::io::StoreLe32(header + 80, 16);
  ntfsparsercore::io::StoreLe32(header + 84, 128);
  ntfsparsercore::io::StoreLe32(header + 88, ntfsparsercore::io::Crc32(array, 16 * 128));
  ntfsparsercore::io::StoreLe32(header + 16, ntfsparsercore::io::Crc32(header, 92));
  std::memcpy(gpt.data() + 40 * kSector + 3, "NTFS    ", 8);
  signature(gpt, 40);
  Write(dir + "/gpt-two", gpt);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::cerr << "usage: make_fuzz_seeds "
                 "store|store-volume|ntfs|ntfs-records|lznt1|file-changes|store-files|partition-tables DIR "
                 "[IMAGE START LENGTH]...\n"
                 "       make_fuzz_seeds store-image|store-volume-image|store-files-image DIR IMAGE\n"
                 "       make_fuzz_seeds file-changes-images DIR OLDER NEWER\n";
    return 2;
  }
  std::string kind = argv[1];
  std::string dir = argv[2];
  if (kind == "store") {
    Stores(dir);
  } else if (kind == "store-volume") {
    g_storeOptions = false;
    Stores(dir);
  } else if (kind == "ntfs-records") {
    SmallVolumes(dir);
  } else if (kind == "lznt1") {
    Units(dir);
  } else if (kind == "file-changes") {
    FileVersions(dir);
  } else if (kind == "store-files") {
    StoreFileVersions(dir);
  } else if (kind == "partition-tables") {
    PartitionTables(dir);
  } else if (kind == "store-image" && argc == 4) {
    StoreImage(dir, argv[3]);
  } else if (kind == "store-volume-image" && argc == 4) {
    g_storeOptions = false;
    StoreImage(dir, argv[3]);
  } else if (kind == "store-files-image" && argc == 4) {
    StoreFilesImage(dir, argv[3]);
  } else if (kind == "file-changes-images" && argc == 5) {
    FileChangesImages(dir, argv[3], argv[4]);
  } else if (kind == "ntfs") {
    BuiltVolumes(dir);
    for (int i = 3; i + 2 < argc; i += 3) {
      Partition(dir, argv[i], std::strtoull(argv[i + 1], nullptr, 0), std::strtoull(argv[i + 2], nullptr, 0));
    }
  } else {
    std::cerr << "unknown kind: " << kind << "\n";
    return 2;
  }
  return 0;
}
