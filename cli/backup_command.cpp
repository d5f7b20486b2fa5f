// Walks the changed blocks with GetBlock and writes them into an increment
// file (format in increment_header.h) or, with --format qcow2, into a qcow2
// overlay whose backing file is BASE, an image of the older shadow copy.
#include "cli/backup_command.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <system_error>

#include "cli/error_report.h"
#include "cli/exit_code.h"
#include "cli/block_codec.h"
#include "cli/block_hash.h"
#include "cli/block_pipeline.h"
#include "cli/library_path.h"
#include "cli/image_probe.h"
#include "cli/increment_writer.h"
#include "cli/progress_meter.h"
#include "cli/qcow2_image_writer.h"
#include "cli/snapshot_reader.h"
#include "cli/store_file_ranges.h"
#include "cli/used_clusters.h"
#include "cli/zero_bytes.h"
#include "cli/tracking_session.h"
#include "cli/volume_selection.h"
#include "tolvar/tolvar.h"

namespace tolvarcli {

namespace {

constexpr uint64_t kDefaultBlockSize = 65536;

bool BitIsSet(const std::vector<uint8_t>& bitmap, uint64_t index) {
  return ((bitmap[index / 8] >> (index % 8)) & 1) != 0;
}

// A walk that ends with a failed read is complete when the block it failed
// on lies wholly past the end of the volume: nothing of the volume is lost.
// That block is the first set bit after the last one served whose block
// does not fit inside the volume. Returns false when it straddles the end.
bool FailedOnlyPastTheEnd(const std::vector<uint8_t>& bitmap, uint64_t blockSize, uint64_t volumeSize, bool served,
                          uint64_t lastServed) {
  const uint64_t bits = bitmap.size() * 8;
  for (uint64_t i = served ? lastServed + 1 : 0; i < bits; ++i) {
    if (!BitIsSet(bitmap, i)) continue;
    const uint64_t start = i * blockSize;
    if (start + blockSize <= volumeSize) continue;
    return start >= volumeSize;
  }
  return false;
}

// Where the walk's blocks go: an increment file or a qcow2 overlay. prepare
// runs on the walking thread (reads and fingerprints), add on the writer's.
struct BlockTarget {
  std::function<bool(BlockPipeline::Item* item)> prepare;    // fills in what add needs besides the block
  std::function<bool(const BlockPipeline::Item& item)> add;  // stores one block
  std::function<bool()> commit;                              // completes the file
  std::function<std::string()> writingName;                  // for messages
  bool toStandardOutput;                                     // OUT is "-"
};

// Blocks read ahead of the writer: enough to ride out an uneven write.
constexpr std::size_t kBlocksInFlight = 32;

// Walks GetBlock to its end, handing each block to target, with progress.
// The writing runs on a thread of its own while the next blocks are read.
// Returns the exit code: the walk's failure is printed with the queue.
int WalkInto(TrackingSession& session, const std::vector<uint8_t>& bitmap, uint64_t volumeSize, bool compare,
             const BlockTarget& target) {
  const uint64_t blockSize = session.BlockSize();
  ProgressMeter progress(CountSetBits(bitmap), blockSize);
  BlockPipeline pipeline(blockSize, kBlocksInFlight, target.add);
  uint64_t lastServed = 0;
  bool served = false;
  int32_t status = 0;
  for (;;) {
    BlockPipeline::Item* item = pipeline.Acquire();
    if (item == nullptr) break;  // the writer failed
    if ((status = session.NextBlock(&item->block, &item->index, compare)) != TOLVAR_OK) break;
    if (!target.prepare(item)) return kExitLibrary;
    pipeline.Submit(item);
    lastServed = item->index;
    served = true;
    progress.Advance();
  }
  if (!pipeline.Finish()) {
    std::fprintf(stderr, "tolvar: cannot write %s\n", target.writingName().c_str());
    return kExitFile;
  }
  progress.Finish();
  const bool complete =
      status == TOLVAR_END_OF_BLOCKS ||
      (status == TOLVAR_E_BLOCK && FailedOnlyPastTheEnd(bitmap, blockSize, volumeSize, served, lastServed));
  if (!complete) {
    ErrorReport::PrintFailure("GetBlock", status);
    return kExitLibrary;
  }
  ErrorReport::DrainQueue();  // a read past the end may have left a message: expected, not shown
  return kExitOk;
}

// Block index of the older shadow copy as apply will find it in BASE: the
// bytes inside the volume, zeros past its end.
bool OldBlock(SnapshotReader& older, uint64_t index, uint64_t volumeSize, std::vector<uint8_t>* block) {
  const uint64_t start = index * block->size();
  const uint64_t inside = start < volumeSize ? std::min<uint64_t>(block->size(), volumeSize - start) : 0;
  std::fill(block->begin() + static_cast<std::ptrdiff_t>(inside), block->end(), 0);
  return inside == 0 || older.ReadExactly(block->data(), inside, start);
}

// The name the overlay gives its backing file: BASE as given when absolute,
// otherwise relative to the overlay's folder, where qemu looks for it.
std::string BackingName(const std::string& base, const std::string& out) {
  const std::filesystem::path basePath(base);
  if (basePath.is_absolute()) return base;
  std::error_code error;
  const std::filesystem::path folder = std::filesystem::absolute(out, error).parent_path();
  const std::filesystem::path relative = std::filesystem::absolute(basePath, error).lexically_relative(folder);
  return error || relative.empty() ? std::filesystem::absolute(basePath).string() : relative.string();
}

// Checks --format, --base and the block size together; prints why not.
bool CheckFormat(const CommandLine& arguments, const std::string& format, uint64_t blockSize) {
  const bool qcow2 = format == "qcow2";
  if (!qcow2 && format != "tvi") {
    std::fprintf(stderr, "tolvar backup: unknown format '%s' (tvi or qcow2)\n", format.c_str());
    return false;
  }
  if (qcow2 != !arguments.Value("--base", "").empty()) {
    std::fprintf(stderr, "tolvar backup: --base BASE goes with --format qcow2, and only with it\n");
    return false;
  }
  if (arguments.Has("--compress") && (qcow2 || !BlockCodec::Available())) {
    std::fprintf(stderr, "tolvar backup: --compress %s\n",
                 qcow2 ? "goes with .tvi increments only" : "needs zstd, which this build lacks");
    return false;
  }
  if (qcow2 && !Qcow2ImageWriter::IsClusterSize(blockSize)) {
    std::fprintf(stderr, "tolvar backup: qcow2 needs a block size that is a power of two, not %llu\n",
                 static_cast<unsigned long long>(blockSize));
    return false;
  }
  return true;
}

}  // namespace

CommandLine::Grammar BackupCommand::Grammar() {
  return VolumeSelection::WithOptions(
      {4, {"--compare", "--extra-pass", "--compress"}, {"--block-size", "--exclude", "--format", "--base"}});
}

int BackupCommand::Run(const CommandLine& arguments) {
  std::string volume;
  const std::string& from = arguments.Positional(1);
  const std::string& to = arguments.Positional(2);
  const std::string& out = arguments.Positional(3);
  const std::string format = arguments.Value("--format", "tvi");
  const std::string base = arguments.Value("--base", "");
  uint64_t blockSize = 0;
  if (!arguments.BlockSize(kDefaultBlockSize, &blockSize)) return kExitUsage;
  if (!CheckFormat(arguments, format, blockSize)) return kExitUsage;
  const int resolved = VolumeSelection::Resolve(arguments.Positional(0), arguments, &volume);
  if (resolved != kExitOk) return resolved;
  ImageProbe backing;
  std::unique_ptr<Qcow2ImageWriter> overlay;
  if (format == "qcow2") {
    if (!backing.Probe(base)) {
      std::fprintf(stderr, "tolvar: cannot read %s\n", base.c_str());
      return kExitFile;
    }
    overlay = std::make_unique<Qcow2ImageWriter>(out, blockSize, BackingName(base, out), backing.format);
    if (!overlay->Fits()) {
      std::fprintf(stderr, "tolvar backup: qcow2 output needs a regular file or a block device, not %s\n", out.c_str());
      return kExitUsage;
    }
  }

  TrackingSession session;
  std::vector<uint8_t> bitmap;
  if (!session.OpenChangedBlocks(volume, from, to, blockSize, arguments.Has("--extra-pass"),
                                 LibraryPath::Convert(volume, to, arguments.Values("--exclude")), &bitmap)) {
    return kExitLibrary;
  }
  const uint64_t volumeSize = VolumeSize(volume);
  if (overlay && backing.virtualSize != volumeSize) {
    std::fprintf(stderr, "tolvar: %s is an image of %llu bytes, the volume has %llu\n", base.c_str(),
                 static_cast<unsigned long long>(backing.virtualSize), static_cast<unsigned long long>(volumeSize));
    return kExitRefused;
  }

  IncrementHeader header;
  // Version 3 (fingerprints of the blocks BASE must hold, records on cache
  // lines) wherever the hash is built in.
  header.version = BlockHash::Available() ? IncrementHeader::kVersion3 : IncrementHeader::kVersion1;
  header.flags = arguments.Has("--compress") ? IncrementHeader::kFlagCompressed : 0;
  header.volumeSize = volumeSize;
  header.blockSize = blockSize;
  header.bitmapLength = bitmap.size();
  header.from = from;
  header.to = to;
  // The older shadow copy, read for the fingerprints.
  SnapshotReader older;
  std::vector<uint8_t> oldBlock(blockSize);
  // Blocks in the store's files or in free clusters of the older snapshot
  // hold nothing an image of it is bound to keep: apply does not check them.
  StoreFileRanges olderStore;
  std::unique_ptr<UsedClusters> olderUsed;
  if (!overlay && header.Fingerprinted()) {
    if (!older.Open(volume, from)) return kExitLibrary;
    olderStore.Add(older.Source());
    olderUsed = std::make_unique<UsedClusters>();
    if (!olderUsed->Read(older.Source())) olderUsed.reset();
  }
  IncrementWriter writer(out);
  BlockTarget target;
  uint64_t stored = 0;
  bool opened = false;
  if (overlay) {
    opened = overlay->Open(volumeSize);
    target.prepare = [&](BlockPipeline::Item*) { return true; };
    target.add = [&](const BlockPipeline::Item& item) {
      ++stored;
      const std::vector<uint8_t>& block = item.block;
      // A block of zeros must read as zeros, not as BASE has it.
      return IsAllZero(block.data(), block.size()) ? overlay->PutZeros(item.index * blockSize, blockSize)
                                                   : overlay->Put(item.index * blockSize, block.data(), block.size());
    };
    target.commit = [&] { return overlay->Commit(); };
    target.writingName = [&] { return overlay->WritingName(); };
    target.toStandardOutput = false;
  } else {
    opened = writer.Begin(header, bitmap);
    // The fingerprints are taken on the walking thread, so that the writer
    // only writes.
    target.prepare = [&](BlockPipeline::Item* item) {
      if (!header.Fingerprinted()) return true;
      const uint64_t start = item->index * blockSize;
      const bool promised =
          (!olderUsed || olderUsed->AllUsed(start, blockSize)) && !olderStore.Overlaps(start, blockSize);
      item->flags = promised ? 0 : IncrementHeader::kRecordUnchecked;
      item->newHash = BlockHash::Of(item->block.data(), item->block.size());
      // apply checks only promised blocks against their old contents.
      item->oldHash = 0;
      if (!promised) return true;
      if (!OldBlock(older, item->index, volumeSize, &oldBlock)) return false;  // says why
      item->oldHash = BlockHash::Of(oldBlock.data(), oldBlock.size());
      return true;
    };
    target.add = [&](const BlockPipeline::Item& item) {
      ++stored;
      return header.Fingerprinted()
                 ? writer.AddHashedBlock(item.index, item.block, item.oldHash, item.newHash, item.flags)
                 : writer.AddBlock(item.index, item.block);
    };
    target.commit = [&] { return writer.Commit(); };
    target.writingName = [&] { return writer.WritingName(); };
    target.toStandardOutput = writer.IsStandardOutput();
  }
  if (!opened) {
    std::fprintf(stderr, "tolvar: cannot write %s\n", target.writingName().c_str());
    return kExitFile;
  }

  const int walked = WalkInto(session, bitmap, volumeSize, arguments.Has("--compare"), target);
  if (walked != kExitOk) return walked;
  if (!target.commit()) {
    std::fprintf(stderr, "tolvar: cannot write %s\n", target.writingName().c_str());
    return kExitFile;
  }
  // With the increment on standard output, the summary goes to stderr.
  std::fprintf(target.toStandardOutput ? stderr : stdout, "%llu blocks of %llu bytes written to %s\n",
               static_cast<unsigned long long>(stored), static_cast<unsigned long long>(blockSize), out.c_str());
  return kExitOk;
}

}  // namespace tolvarcli
