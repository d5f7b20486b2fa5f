// Writes a full image of one shadow copy as the library reads it: every
// block of the view, all-zero blocks left as holes (raw) or unallocated
// (qcow2). With --used-only, clusters that the snapshot's own $Bitmap marks
// free are not read and read as zero in the image.
#include "cli/export_command.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "cli/chunk_read_ahead.h"
#include "cli/error_report.h"
#include "cli/exit_code.h"
#include "cli/image_writer.h"
#include "cli/progress_meter.h"
#include "cli/qcow2_image_writer.h"
#include "cli/raw_image_writer.h"
#include "cli/snapshot_reader.h"
#include "cli/used_clusters.h"
#include "cli/volume_selection.h"
#include "cli/zero_bytes.h"

namespace tolvarcli {

namespace {

// The unit of holes and of progress, and how much one read asks for.
constexpr uint64_t kBlockSize = 65536;
constexpr uint64_t kChunkSize = 16 * kBlockSize;
// Chunks read ahead of the one being written.
constexpr std::size_t kChunksAhead = 4;

std::unique_ptr<ImageWriter> MakeWriter(const std::string& format, const std::string& out) {
  if (format == "raw") return std::make_unique<RawImageWriter>(out);
  if (format == "qcow2") return std::make_unique<Qcow2ImageWriter>(out, kBlockSize);
  return nullptr;
}

// Reads one chunk into buffer: every block, or with used the blocks whose
// clusters may hold data, each run of such blocks in one read; the rest,
// and free clusters inside blocks that are read, zeroed.
bool ReadChunk(SnapshotReader& snapshot, const UsedClusters* used, uint64_t offset, uint64_t size, uint8_t* buffer) {
  if (used == nullptr) return snapshot.ReadExactly(buffer, size, offset);
  uint64_t at = 0;
  while (at < size) {
    const uint64_t block = std::min(kBlockSize, size - at);
    if (!used->MayHoldData(offset + at, block)) {
      std::memset(buffer + at, 0, block);
      at += block;
      continue;
    }
    uint64_t run = block;
    while (at + run < size && used->MayHoldData(offset + at + run, std::min(kBlockSize, size - at - run))) {
      run += std::min(kBlockSize, size - at - run);
    }
    if (!snapshot.ReadExactly(buffer + at, run, offset + at)) return false;
    for (uint64_t cluster = 0; cluster < run; cluster += used->ClusterSize()) {
      const uint64_t piece = std::min(used->ClusterSize(), run - cluster);
      if (!used->MayHoldData(offset + at + cluster, piece)) std::memset(buffer + at + cluster, 0, piece);
    }
    at += run;
  }
  return true;
}

// The length of the run of blocks from at on in chunk that are all zero
// (zeros) or all hold data (!zeros), the first one, at at, known to be so.
uint64_t RunOfBlocks(const uint8_t* chunk, uint64_t size, uint64_t at, bool zeros) {
  uint64_t run = std::min(kBlockSize, size - at);
  while (at + run < size) {
    const uint64_t block = std::min(kBlockSize, size - at - run);
    if (IsAllZero(chunk + at + run, block) != zeros) break;
    run += block;
  }
  return run;
}

// Copies the view into writer; zero blocks are not put, each run of data
// blocks of a chunk is put at once. The chunks are read ahead on a thread
// of their own.
int CopyView(SnapshotReader& snapshot, const UsedClusters* used, ImageWriter* writer, uint64_t* dataBytes) {
  const uint64_t size = snapshot.Size();
  ProgressMeter progress((size + kBlockSize - 1) / kBlockSize, kBlockSize);
  ChunkReadAhead chunks(size, kChunkSize, kChunksAhead, [&](uint64_t offset, uint64_t chunk, uint8_t* buffer) {
    return ReadChunk(snapshot, used, offset, chunk, buffer);
  });
  uint64_t offset = 0;
  uint64_t chunk = 0;
  while (const uint8_t* buffer = chunks.Next(&offset, &chunk)) {
    uint64_t at = 0;
    while (at < chunk) {
      const bool zeros = IsAllZero(buffer + at, std::min(kBlockSize, chunk - at));
      const uint64_t run = RunOfBlocks(buffer, chunk, at, zeros);
      if (!zeros && !writer->Put(offset + at, buffer + at, run)) {
        std::fprintf(stderr, "tolvar: cannot write %s\n", writer->WritingName().c_str());
        return kExitFile;
      }
      if (!zeros) *dataBytes += run;
      for (uint64_t block = 0; block < run; block += kBlockSize) progress.Advance();
      at += run;
    }
  }
  if (chunks.Failed()) return kExitLibrary;  // the read said why
  progress.Finish();
  return kExitOk;
}

}  // namespace

CommandLine::Grammar ExportCommand::Grammar() {
  return VolumeSelection::WithOptions({3, {"--used-only"}, {"--format"}});
}

int ExportCommand::Run(const CommandLine& arguments) {
  const std::string& shadowCopy = arguments.Positional(1);
  const std::string& out = arguments.Positional(2);
  const std::string format = arguments.Value("--format", "raw");
  std::unique_ptr<ImageWriter> writer = MakeWriter(format, out);
  if (!writer) {
    std::fprintf(stderr, "tolvar export: unknown format '%s' (raw or qcow2)\n", format.c_str());
    return kExitUsage;
  }
  std::string volume;
  const int resolved = VolumeSelection::Resolve(arguments.Positional(0), arguments, &volume);
  if (resolved != kExitOk) return resolved;

  if (!writer->Fits()) {
    std::fprintf(stderr, "tolvar export: %s output needs a regular file or a block device, not %s\n", format.c_str(),
                 out.c_str());
    return kExitUsage;
  }

  SnapshotReader snapshot;
  if (!snapshot.Open(volume, shadowCopy)) return kExitLibrary;
  std::unique_ptr<UsedClusters> used;
  if (arguments.Has("--used-only")) {
    used = std::make_unique<UsedClusters>();
    if (!used->Read(snapshot.Source())) {
      ErrorReport::PrintFailureText("cannot read the NTFS cluster bitmap of shadow copy " + shadowCopy);
      return kExitLibrary;
    }
  }

  if (!writer->Open(snapshot.Size())) {
    std::fprintf(stderr, "tolvar: cannot write %s\n", writer->WritingName().c_str());
    return kExitFile;
  }
  uint64_t dataBytes = 0;
  const int copied = CopyView(snapshot, used.get(), writer.get(), &dataBytes);
  if (copied != kExitOk) return copied;
  if (!writer->Commit()) {
    std::fprintf(stderr, "tolvar: cannot write %s\n", writer->WritingName().c_str());
    return kExitFile;
  }
  // With the image on standard output, the summary goes to stderr.
  std::FILE* report = writer->IsStandardOutput() ? stderr : stdout;
  std::fprintf(report, "%llu bytes of shadow copy %s exported to %s (%llu bytes of data)\n",
               static_cast<unsigned long long>(snapshot.Size()), shadowCopy.c_str(), out.c_str(),
               static_cast<unsigned long long>(dataBytes));
  if (used) {
    const uint64_t unused = used->UnusedClusters();
    std::fprintf(report, "%llu of %llu clusters free in $Bitmap, %llu bytes not read\n",
                 static_cast<unsigned long long>(unused), static_cast<unsigned long long>(used->ClusterCount()),
                 static_cast<unsigned long long>(unused * used->ClusterSize()));
  }
  return kExitOk;
}

}  // namespace tolvarcli
