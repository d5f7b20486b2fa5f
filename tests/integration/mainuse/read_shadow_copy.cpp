// Reads blocks of one shadow copy as the library rebuilds it from the store:
//   read_shadow_copy VOLUME INDEX SIZE < offsets > bytes
// INDEX counts the catalog's snapshots in creation order from 0; for each
// offset on standard input, SIZE bytes are written to standard output
// (zeros past what the read delivered). Exits 1 when the shadow copy
// cannot be opened.
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "core/volume_provider.h"
#include "core/vss/records/catalog.h"
#include "core/vss/snapshot_sequence.h"
#include "ntfsparsercore/io/source_factory.h"

int main(int argc, char** argv) {
  if (argc != 4) {
    std::cerr << "usage: read_shadow_copy VOLUME INDEX SIZE < offsets > bytes\n";
    return 2;
  }
  const std::size_t index = std::strtoull(argv[2], nullptr, 10);
  const std::size_t size = std::strtoull(argv[3], nullptr, 10);
  tolvarcore::VolumeProvider provider(std::make_shared<ntfsparsercore::io::SourceFactory>());
  auto volume = provider.OpenVolume(argv[1]);
  auto storage = volume ? provider.FindStorage(volume) : nullptr;
  if (!storage) return 1;
  tolvarcore::vss::records::Catalog catalog(storage->OpenRecord(storage->GetCatalogOffset()));
  auto snapshots = tolvarcore::vss::BuildSnapshotList(catalog);
  if (index >= snapshots.size()) return 1;
  std::unique_ptr<ntfsparsercore::io::ISource> view(
      provider.OpenShadowCopy(*std::next(snapshots.begin(), static_cast<long>(index)), storage));
  if (!view) return 1;
  std::vector<char> buffer(size);
  unsigned long long offset = 0;
  while (std::cin >> offset) {
    std::fill(buffer.begin(), buffer.end(), 0);
    view->Read(buffer.data(), size, offset);
    std::fwrite(buffer.data(), 1, size, stdout);
  }
  return 0;
}
