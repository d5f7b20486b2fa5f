// Compares an image with one shadow copy block by block and prints the
// ranges of blocks that differ. Two kinds of difference are listed apart
// and do not fail the check. Blocks whose differing bytes all lie in the
// shadow-copy store's own files: those files keep growing after the
// snapshot, so no image made from it (and no backup chain) holds them as a
// later read does. Blocks whose differing bytes all lie in clusters that
// the snapshot's own $Bitmap marks free (or in store files): the store
// keeps no copy of free clusters and the newest shadow copy reads some of
// them as zeros, so an image restored by backups may hold older bytes there.
#include "cli/verify_command.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "cli/block_ranges.h"
#include "cli/error_report.h"
#include "cli/exit_code.h"
#include "cli/progress_meter.h"
#include "cli/snapshot_reader.h"
#include "cli/store_file_ranges.h"
#include "cli/used_clusters.h"
#include "cli/volume_selection.h"
#include "ntfsparsercore/io/source_factory.h"

namespace tolvarcli {

namespace {

constexpr uint64_t kDefaultBlockSize = 65536;
constexpr uint64_t kBlocksPerRead = 16;

void AddBlock(BlockRanges* ranges, uint64_t block) {
  if (!ranges->empty() && ranges->back().second + 1 == block) {
    ranges->back().second = block;
  } else {
    ranges->emplace_back(block, block);
  }
}

uint64_t BlockCount(const BlockRanges& ranges) {
  uint64_t count = 0;
  for (const auto& range : ranges) count += range.second - range.first + 1;
  return count;
}

// Where the bytes that differ in one block lie.
enum class Difference { kAnywhere, kInStoreFiles, kInFreeClusters };

Difference Classify(const uint8_t* a, const uint8_t* b, uint64_t size, uint64_t offset, const StoreFileRanges& store,
                    const UsedClusters* used) {
  bool free = false;
  for (uint64_t i = 0; i < size; ++i) {
    if (a[i] == b[i] || store.Covers(offset + i)) continue;
    if (used == nullptr || used->MayHoldData(offset + i, 1)) return Difference::kAnywhere;
    free = true;
  }
  return free ? Difference::kInFreeClusters : Difference::kInStoreFiles;
}

struct Comparison {
  BlockRanges differing;               // blocks that differ elsewhere: the check fails
  BlockRanges storeOnly;               // blocks that differ only inside the store's files
  BlockRanges freeOnly;                // blocks that differ only in free clusters (and store files)
  uint64_t blocks = 0;                 // blocks compared
  const UsedClusters* used = nullptr;  // the snapshot's $Bitmap, when it has one
};

// Reads both side by side and sorts each differing block into one list.
int Compare(SnapshotReader& snapshot, ntfsparsercore::io::ISource& image, const std::string& imagePath,
            uint64_t blockSize, const StoreFileRanges& store, Comparison* result) {
  const uint64_t size = snapshot.Size();
  const uint64_t chunkSize = blockSize * kBlocksPerRead;
  std::vector<uint8_t> expected(chunkSize);
  std::vector<uint8_t> got(chunkSize);
  ProgressMeter progress((size + blockSize - 1) / blockSize, blockSize);
  for (uint64_t offset = 0; offset < size; offset += chunkSize) {
    const uint64_t chunk = std::min(chunkSize, size - offset);
    if (!snapshot.ReadExactly(expected.data(), chunk, offset)) return kExitLibrary;
    if (image.Read(got.data(), chunk, offset) != chunk) {
      std::fprintf(stderr, "tolvar: cannot read %s at byte %llu\n", imagePath.c_str(),
                   static_cast<unsigned long long>(offset));
      return kExitFile;
    }
    for (uint64_t at = 0; at < chunk; at += blockSize) {
      const uint64_t length = std::min(blockSize, chunk - at);
      const uint64_t block = (offset + at) / blockSize;
      progress.Advance();
      ++result->blocks;
      if (std::memcmp(expected.data() + at, got.data() + at, length) == 0) continue;
      switch (Classify(expected.data() + at, got.data() + at, length, offset + at, store, result->used)) {
        case Difference::kAnywhere:
          AddBlock(&result->differing, block);
          break;
        case Difference::kInStoreFiles:
          AddBlock(&result->storeOnly, block);
          break;
        case Difference::kInFreeClusters:
          AddBlock(&result->freeOnly, block);
          break;
      }
    }
  }
  progress.Finish();
  return kExitOk;
}

}  // namespace

CommandLine::Grammar VerifyCommand::Grammar() { return VolumeSelection::WithOptions({3, {}, {"--block-size"}}); }

int VerifyCommand::Run(const CommandLine& arguments) {
  const std::string& shadowCopy = arguments.Positional(1);
  const std::string& imagePath = arguments.Positional(2);
  uint64_t blockSize = 0;
  if (!arguments.BlockSize(kDefaultBlockSize, &blockSize)) return kExitUsage;
  std::string volume;
  const int resolved = VolumeSelection::Resolve(arguments.Positional(0), arguments, &volume);
  if (resolved != kExitOk) return resolved;

  SnapshotReader snapshot;
  if (!snapshot.Open(volume, shadowCopy)) return kExitLibrary;
  std::shared_ptr<ntfsparsercore::io::ISource> image = ntfsparsercore::io::SourceFactory().Open(imagePath.c_str());
  if (!image) {
    ErrorReport::PrintFailureText("cannot read " + imagePath);
    return kExitFile;
  }
  if (image->GetSize() != snapshot.Size()) {
    std::fprintf(stderr, "tolvar: %s is %llu bytes, shadow copy %s is %llu bytes\n", imagePath.c_str(),
                 static_cast<unsigned long long>(image->GetSize()), shadowCopy.c_str(),
                 static_cast<unsigned long long>(snapshot.Size()));
    return kExitDiffers;
  }
  // The store's files as the shadow copy and as the image place them.
  StoreFileRanges store;
  store.Add(snapshot.Source());
  store.Add(image);

  UsedClusters used;
  Comparison comparison;
  if (used.Read(snapshot.Source())) comparison.used = &used;
  const int compared = Compare(snapshot, *image, imagePath, blockSize, store, &comparison);
  if (compared != kExitOk) return compared;
  std::printf("block size          %llu bytes\n", static_cast<unsigned long long>(blockSize));
  std::printf("blocks compared     %llu\n", static_cast<unsigned long long>(comparison.blocks));
  std::printf("differing blocks    %llu\n", static_cast<unsigned long long>(BlockCount(comparison.differing)));
  std::printf("differing ranges    %s\n", RangeText(comparison.differing).c_str());
  std::printf("store-file blocks   %llu (differ only inside the shadow-copy store's files: expected)\n",
              static_cast<unsigned long long>(BlockCount(comparison.storeOnly)));
  std::printf("store-file ranges   %s\n", RangeText(comparison.storeOnly).c_str());
  std::printf("free-cluster blocks %llu (differ only in clusters free in the snapshot's $Bitmap: expected)\n",
              static_cast<unsigned long long>(BlockCount(comparison.freeOnly)));
  std::printf("free-cluster ranges %s\n", RangeText(comparison.freeOnly).c_str());
  return comparison.differing.empty() ? kExitOk : kExitDiffers;
}

}  // namespace tolvarcli
