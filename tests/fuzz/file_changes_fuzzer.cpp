// The file exports on a fuzzed volume: GetFileChangesMap for each file
// found in the newer shadow copy, then ExcludeFiles with all of them, on a
// tracking handle whose block processor holds the two shadow copies in
// memory (see file_changes_input.h). The changed-block bitmap marks the
// blocks that differ between them, as the store would.
//
// The handle is built without Init: Init's store reading is the work of
// the store_init target, and leaving it out makes each input run many
// times faster, all of it in the exports' own code, the NTFS views they
// open, the path lookup, the version comparison and the file processors.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "api/error_queue.h"
#include "api/tracking_handle.h"
#include "ntfsparsercore/mft_record.h"
#include "ntfsparsercore/mft_table.h"
#include "ntfsparsercore/path_lookup.h"
#include "tests/fuzz/file_changes_input.h"
#include "tolvar/tolvar.h"

namespace {

using tolvarfuzz::FileChangesInput;

constexpr uint64_t kRootRecord = 5;
constexpr int kDepth = 2;                       // the root and one level of directories below it
constexpr std::size_t kEntriesFollowed = 16;    // of each directory listed
constexpr std::size_t kPathsKept = 12;          // files mapped and excluded
constexpr uint64_t kMapLimit = 64 * 1024;       // largest change map asked for, in bytes
constexpr uint64_t kBlocksWalked = 64;          // of the excluded handle
const char kMissingPath[] = "/no such file";

// With TOLVAR_FUZZ_TRACE set, what each input did goes to stderr.
bool Tracing() {
  static const bool tracing = std::getenv("TOLVAR_FUZZ_TRACE") != nullptr;
  return tracing;
}

// A block processor whose result is set directly, not computed from a store.
class ProcessorWithResult : public tolvarcore::BlockProcessor {
 public:
  using BlockProcessor::BlockProcessor;
  using BlockProcessor::SetResult;
};

// One bit per block: set where the two shadow copies differ, or, with
// kInvertChanges, everywhere else.
std::shared_ptr<tolvarcore::BitMap> ChangedBlocks(const FileChangesInput& input) {
  const uint64_t size = input.newer->GetSize();
  const uint64_t blocks = size / input.blockSize + (size % input.blockSize != 0 ? 1 : 0);
  auto changed = std::make_shared<tolvarcore::BitMap>(blocks / 8 + (blocks % 8 != 0 ? 1 : 0));
  std::vector<uint8_t> differs(static_cast<std::size_t>(blocks));
  std::vector<uint8_t> before(tolvartest::SparseSource::kChunk);
  std::vector<uint8_t> after(tolvartest::SparseSource::kChunk);
  // Every chunk the newer copy has was written into the older one too.
  for (const auto& chunk : input.older->Chunks()) {
    const uint64_t offset = chunk.first * tolvartest::SparseSource::kChunk;
    std::fill(before.begin(), before.end(), 0);
    std::fill(after.begin(), after.end(), 0);
    input.older->Read(before.data(), before.size(), offset);
    input.newer->Read(after.data(), after.size(), offset);
    if (before != after) differs[static_cast<std::size_t>(offset / input.blockSize)] = 1;
  }
  const bool invert = (input.options & FileChangesInput::kInvertChanges) != 0;
  for (uint64_t b = 0; b < blocks; ++b) {
    if ((differs[static_cast<std::size_t>(b)] != 0) != invert) changed->Set(b);
  }
  return changed;
}

// Paths of the files in the newer view's root and its directories.
void CollectPaths(const std::shared_ptr<ntfsparsercore::NtfsVolume>& volume,
                  const std::shared_ptr<ntfsparsercore::MftRecord>& directory, const std::string& path, int depth,
                  std::vector<std::string>* paths) {
  if (!directory || depth == 0) return;
  std::vector<uint64_t> entries = ntfsparsercore::ListDirectory(directory);
  if (entries.size() > kEntriesFollowed) entries.resize(kEntriesFollowed);
  for (uint64_t number : entries) {
    if (paths->size() >= kPathsKept) return;
    if (number == directory->GetRecordNumber()) continue;
    std::shared_ptr<ntfsparsercore::MftRecord> entry = volume->GetMftTable()->GetRecord(number, true);
    if (!entry) continue;
    std::string name = ntfsparsercore::GetFileName(entry);
    if (name.empty()) continue;
    std::string entryPath = path + "/" + name;
    if (entry->IsDirectory()) {
      CollectPaths(volume, entry, entryPath, depth - 1, paths);
    } else {
      paths->push_back(entryPath);
    }
  }
}

// The size query, then the map into a buffer of that size; a map longer
// than kMapLimit only meets the short-buffer check.
void MapFile(TolvarHandle handle, const std::string& path) {
  uint64_t size = 0;
  int32_t status = GetFileChangesMap(handle, path.c_str(), nullptr, &size);
  if (Tracing()) std::fprintf(stderr, "%s: size query %d, %llu bytes\n", path.c_str(), status,
                              static_cast<unsigned long long>(size));
  if (status != TOLVAR_SIZE_RETURNED) return;
  uint64_t room = std::min(size, kMapLimit);
  std::vector<unsigned char> map(static_cast<std::size_t>(room));
  status = GetFileChangesMap(handle, path.c_str(), map.data(), &room);
  if (!Tracing()) return;
  std::fprintf(stderr, "%s: map %d,", path.c_str(), status);
  for (std::size_t i = 0; i < map.size() && i < 16; ++i) std::fprintf(stderr, " %02x", map[i]);
  std::fprintf(stderr, "\n");
}

void WalkSome(TolvarHandle handle, uint64_t blockSize) {
  uint64_t size = 0;
  if (GetDiffBitmap(handle, nullptr, &size) == TOLVAR_SIZE_RETURNED) {
    std::vector<unsigned char> bitmap(static_cast<std::size_t>(size));
    GetDiffBitmap(handle, bitmap.data(), &size);
  }
  std::vector<unsigned char> block(static_cast<std::size_t>(blockSize));
  for (uint64_t i = 0; i < kBlocksWalked; ++i) {
    uint64_t room = blockSize;
    uint64_t index = 0;
    if (GetBlock(handle, block.data(), &room, &index, 1) != TOLVAR_OK) break;
  }
}

void Run(const FileChangesInput& input) {
  std::shared_ptr<tolvarcore::BitMap> changed = ChangedBlocks(input);
  auto comparison = std::make_shared<tolvarcore::BitMap>(changed->SizeInBytes());
  std::memcpy(comparison->Data(), changed->Data(), changed->SizeInBytes());
  auto processor = std::make_unique<ProcessorWithResult>(input.blockSize, 0);
  processor->SetResult(changed, comparison, input.older, input.newer);
  auto handle = std::make_unique<TrackingHandle>();
  handle->blockProcessor = std::move(processor);

  // The first call opens both NTFS views; the root is no file.
  uint64_t size = 0;
  GetFileChangesMap(handle.get(), "/", nullptr, &size);
  std::vector<std::string> paths;
  if (handle->newerVolume) {
    CollectPaths(handle->newerVolume, handle->newerVolume->GetMftTable()->GetRecord(kRootRecord, true), "", kDepth,
                 &paths);
  }
  for (const std::string& path : paths) MapFile(handle.get(), path);

  std::vector<const char*> list;
  for (const std::string& path : paths) list.push_back(path.c_str());
  if ((input.options & FileChangesInput::kMissingPath) != 0) list.push_back(kMissingPath);
  list.push_back(nullptr);
  TolvarHandle excluded = nullptr;
  int32_t status = ExcludeFiles(handle.get(), &excluded, list.data());
  if (Tracing()) std::fprintf(stderr, "ExcludeFiles of %zu paths: %d\n", list.size() - 1, status);
  if (status == TOLVAR_OK) {
    WalkSome(excluded, input.blockSize);
    if (!paths.empty()) MapFile(excluded, paths.front());
    FreeHandle(excluded);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FileChangesInput input = FileChangesInput::Decode(data, size);
  // The messages go to a queue, drained after each input as a caller would.
  CreateErrorQueue();
  Run(input);
  ErrorRecord record;
  while (PopError(&record)) {
    // Every record walk ends on the end marker's message; the rest is news.
    if (Tracing() && record.message.find("actual(4294967295)") == std::string::npos) {
      std::fprintf(stderr, "message %u: %s\n", record.code, record.message.c_str());
    }
  }
  DestroyErrorQueue();
  return 0;
}
