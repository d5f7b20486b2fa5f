// Answers path queries on an NTFS volume inside an image file, for the
// oracle driver: for each line "PATH<TAB>OUTFILE" on standard input it looks
// PATH up and prints one line
//   found resident compressed sparse size extents
// (extents as logical:offset:stored, comma-separated; "-" when none),
// writing the file's bytes read through NtfsFile::Read into OUTFILE.
//
// Usage: ntfs_lookup_query IMAGE VOLUME_OFFSET VOLUME_LENGTH
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "ntfsparsercore/io/source_factory.h"
#include "ntfsparsercore/io/system_file.h"
#include "ntfsparsercore/ntfs_volume.h"
#include "ntfsparsercore/path_lookup.h"
#include "tests/fixtures/offset_source.h"

namespace {

constexpr uint64_t kCacheLine = 16384;         // the line size the volume provider uses
constexpr uint64_t kMftCacheBytes = 52428800;  // the MFT page cache of the change tracker

// Reads the whole file with one Read, as a caller reading a file at once
// does; a compressed unit may count more bytes than it writes, so only the
// file's size is kept.
bool WriteContent(ntfsparsercore::io::NtfsFile* file, const std::string& outPath) {
  FILE* out = std::fopen(outPath.c_str(), "wb");
  if (!out) return false;
  const uint64_t size = file->GetSize();
  if (size == 0) return std::fclose(out) == 0;
  std::vector<uint8_t> buffer(static_cast<std::size_t>(size));
  const uint64_t got = std::min(size, file->Read(buffer.data(), size, 0));
  std::fwrite(buffer.data(), 1, static_cast<std::size_t>(got), out);
  std::fclose(out);
  return true;
}

std::string ExtentText(ntfsparsercore::io::NtfsFile* file) {
  std::string text;
  for (const auto& e : file->GetExtents()) {
    if (!text.empty()) text += ",";
    text += std::to_string(e.logicalSize) + ":" + std::to_string(e.volumeOffset) + ":" + std::to_string(e.storedSize);
  }
  return text.empty() ? "-" : text;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::cerr << "usage: ntfs_lookup_query IMAGE VOLUME_OFFSET VOLUME_LENGTH\n";
    return 2;
  }
  // The whole disk as it is: the test applies the partition's offset itself.
  std::unique_ptr<ntfsparsercore::io::ISource> raw = ntfsparsercore::io::SystemFile::Open(argv[1]);
  if (!raw) {
    std::cerr << "cannot open " << argv[1] << "\n";
    return 2;
  }
  std::shared_ptr<ntfsparsercore::io::ISource> image(
      ntfsparsercore::io::SourceFactory().CreateCacheProxy(std::move(raw), kCacheLine));
  auto window = std::make_shared<tolvartest::OffsetSource>(image, std::strtoull(argv[2], nullptr, 10),
                                                           std::strtoull(argv[3], nullptr, 10));
  std::shared_ptr<ntfsparsercore::NtfsVolume> volume(ntfsparsercore::NtfsVolume::Create(window, kMftCacheBytes));
  if (!volume) {
    std::cerr << "not an NTFS volume\n";
    return 2;
  }
  std::string line;
  while (std::getline(std::cin, line)) {
    const std::size_t tab = line.find('\t');
    const std::string path = line.substr(0, tab);
    const std::string outPath = tab == std::string::npos ? std::string() : line.substr(tab + 1);
    std::unique_ptr<ntfsparsercore::io::NtfsFile> file(ntfsparsercore::FindFile(volume, path));
    if (!file) {
      std::cout << "0\n";
    } else {
      std::cout << "1 " << file->IsResident() << " " << file->IsCompressed() << " " << file->IsSparse() << " "
                << file->GetSize() << " " << ExtentText(file.get()) << "\n";
      if (!outPath.empty()) WriteContent(file.get(), outPath);
    }
    std::cout.flush();
  }
  return 0;
}
