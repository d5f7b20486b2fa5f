// What the file exports' fuzz targets do with a tracking handle: open its
// NTFS views, find the files of the newer view's root and its directories
// (NTFS's own files left out), ask GetFileChangesMap for each (the size,
// then the map), ExcludeFiles for all of them, and walk a few blocks of the
// handle that makes.
#ifndef TOLVAR_TESTS_FUZZ_FILE_EXPORTS_WORKLOAD_H_
#define TOLVAR_TESTS_FUZZ_FILE_EXPORTS_WORKLOAD_H_

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "api/tracking_handle.h"
#include "ntfsparsercore/mft_record.h"
#include "ntfsparsercore/mft_table.h"
#include "ntfsparsercore/path_lookup.h"
#include "tolvar/tolvar.h"

namespace tolvarfuzz {

class FileExportsWorkload {
 public:
  static constexpr uint64_t kRootRecord = 5;
  static constexpr int kDepth = 2;                     // the root and one level of directories below it
  static constexpr std::size_t kEntriesFollowed = 16;  // of each directory listed, NTFS's own files not counted
  static constexpr std::size_t kEntriesRead = 32;      // of each directory listed, at most
  static constexpr std::size_t kPathsKept = 12;        // files mapped and excluded
  static constexpr uint64_t kMapLimit = 64 * 1024;     // largest change map asked for, in bytes
  static constexpr uint64_t kBlocksWalked = 64;        // of the excluded handle
  static constexpr char kMetadataNamePrefix = '$';     // names of NTFS's own files

  // With TOLVAR_FUZZ_TRACE set, what each input did goes to stderr.
  static bool Tracing() {
    static const bool tracing = std::getenv("TOLVAR_FUZZ_TRACE") != nullptr;
    return tracing;
  }

  // The work on handle, whose block size is blockSize; with missingPath,
  // ExcludeFiles also gets a path that does not exist.
  static void Run(TrackingHandle* handle, uint64_t blockSize, bool missingPath) {
    // The first call opens both NTFS views; the root is no file.
    uint64_t size = 0;
    GetFileChangesMap(handle, "/", nullptr, &size);
    std::vector<std::string> paths;
    if (handle->newerVolume) {
      CollectPaths(handle->newerVolume, handle->newerVolume->GetMftTable()->GetRecord(kRootRecord, true), "", kDepth,
                   &paths);
    }
    for (const std::string& path : paths) MapFile(handle, path);

    std::vector<const char*> list;
    for (const std::string& path : paths) list.push_back(path.c_str());
    if (missingPath) list.push_back("/no such file");
    list.push_back(nullptr);
    TolvarHandle excluded = nullptr;
    int32_t status = ExcludeFiles(handle, &excluded, list.data());
    if (Tracing()) std::fprintf(stderr, "ExcludeFiles of %zu paths: %d\n", list.size() - 1, status);
    if (status == TOLVAR_OK) {
      WalkSome(excluded, blockSize);
      if (!paths.empty()) MapFile(excluded, paths.front());
      FreeHandle(excluded);
    }
  }

 private:
  // Paths of the files in the directory and, depth levels down, below it.
  static void CollectPaths(const std::shared_ptr<ntfsparsercore::NtfsVolume>& volume,
                           const std::shared_ptr<ntfsparsercore::MftRecord>& directory, const std::string& path,
                           int depth, std::vector<std::string>* paths) {
    if (!directory || depth == 0) return;
    std::vector<uint64_t> entries = ntfsparsercore::ListDirectory(directory);
    if (entries.size() > kEntriesRead) entries.resize(kEntriesRead);
    std::size_t followed = 0;
    for (uint64_t number : entries) {
      if (paths->size() >= kPathsKept) return;
      if (number == directory->GetRecordNumber()) continue;
      std::shared_ptr<ntfsparsercore::MftRecord> entry = volume->GetMftTable()->GetRecord(number, true);
      if (!entry) continue;
      std::string name = ntfsparsercore::GetFileName(entry);
      if (name.empty()) continue;
      // NTFS's own files ($MFT, $Bitmap, $Extend...) come first in a real
      // volume's root and would take every place: the user's files are the
      // ones worth mapping.
      if (name.front() == kMetadataNamePrefix) continue;
      if (followed++ == kEntriesFollowed) return;
      std::string entryPath = path + "/" + Lower(name);
      if (entry->IsDirectory()) {
        CollectPaths(volume, entry, entryPath, depth - 1, paths);
      } else {
        paths->push_back(entryPath);
      }
    }
  }

  // The path lookup compares each lower-cased file name with the path's
  // component as given: paths go in lower case, so that names with capitals
  // ("System Volume Information") are found too.
  static std::string Lower(std::string name) {
    for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return name;
  }

  // The size query, then the map into a buffer of that size; a map longer
  // than kMapLimit only meets the short-buffer check.
  static void MapFile(TolvarHandle handle, const std::string& path) {
    uint64_t size = 0;
    int32_t status = GetFileChangesMap(handle, path.c_str(), nullptr, &size);
    if (Tracing()) {
      std::fprintf(stderr, "%s: size query %d, %llu bytes\n", path.c_str(), status,
                   static_cast<unsigned long long>(size));
    }
    if (status != TOLVAR_SIZE_RETURNED) return;
    uint64_t room = std::min(size, kMapLimit);
    std::vector<unsigned char> map(static_cast<std::size_t>(room));
    status = GetFileChangesMap(handle, path.c_str(), map.data(), &room);
    if (!Tracing()) return;
    std::fprintf(stderr, "%s: map %d,", path.c_str(), status);
    for (std::size_t i = 0; i < map.size() && i < 16; ++i) std::fprintf(stderr, " %02x", map[i]);
    std::fprintf(stderr, "\n");
  }

  // The bitmap, then the first blocks of the walk, compared with the older copy.
  static void WalkSome(TolvarHandle handle, uint64_t blockSize) {
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
};

}  // namespace tolvarfuzz

#endif  // TOLVAR_TESTS_FUZZ_FILE_EXPORTS_WORKLOAD_H_
