// Prints the change map of one file between two shadow copies as ranges of
// the file's block numbers.
#include "cli/filemap_command.h"

#include <cstdio>
#include <string>
#include <vector>

#include "cli/block_ranges.h"
#include "cli/exit_code.h"
#include "cli/json_text.h"
#include "cli/library_path.h"
#include "cli/tracking_session.h"
#include "cli/volume_selection.h"

namespace tolvarcli {

namespace {

constexpr uint64_t kDefaultBlockSize = 65536;

}  // namespace

CommandLine::Grammar FilemapCommand::Grammar() {
  return VolumeSelection::WithOptions({4, {"--json"}, {"--block-size"}});
}

int FilemapCommand::Run(const CommandLine& arguments) {
  std::string volume;
  const std::string& from = arguments.Positional(1);
  const std::string& to = arguments.Positional(2);
  const std::string& path = arguments.Positional(3);
  uint64_t blockSize = 0;
  if (!arguments.BlockSize(kDefaultBlockSize, &blockSize)) return kExitUsage;
  const int resolved = VolumeSelection::Resolve(arguments.Positional(0), arguments, &volume);
  if (resolved != kExitOk) return resolved;
  // Found in any case before the handle is opened: the lookup reads the
  // newer shadow copy on its own.
  const std::string libraryPath = LibraryPath::Convert(volume, to, {path}).front();
  TrackingSession session;
  if (session.Open(volume, from, to, blockSize, false) != 0) return kExitLibrary;
  std::vector<uint8_t> map;
  if (session.FileMap(libraryPath, &map) != 0) return kExitLibrary;

  // The map holds one bit per block of the file, rounded up to whole bytes:
  // its bit count is the file's block count to within seven.
  const uint64_t mapBlocks = map.size() * 8;
  const uint64_t changed = CountSetBits(map);
  const auto runs = SetRuns(map);
  if (arguments.Has("--json")) {
    std::string list;
    for (const auto& run : runs) {
      if (!list.empty()) list += ", ";
      list += "[" + std::to_string(run.first) + ", " + std::to_string(run.second) + "]";
    }
    std::printf(
        "{\"volume\": %s, \"from\": %s, \"to\": %s, \"path\": %s, \"block_size\": %llu, "
        "\"map_bytes\": %llu, \"map_blocks\": %llu, \"changed_blocks\": %llu, \"ranges\": [%s]}\n",
        JsonText(volume).c_str(), JsonText(from).c_str(), JsonText(to).c_str(), JsonText(path).c_str(),
        static_cast<unsigned long long>(blockSize), static_cast<unsigned long long>(map.size()),
        static_cast<unsigned long long>(mapBlocks), static_cast<unsigned long long>(changed), list.c_str());
  } else {
    std::printf(
        "block size      %llu bytes\nmap blocks      %llu (%llu bytes)\nchanged blocks  %llu\n"
        "changed ranges  %s\n",
        static_cast<unsigned long long>(blockSize), static_cast<unsigned long long>(mapBlocks),
        static_cast<unsigned long long>(map.size()), static_cast<unsigned long long>(changed), RangeText(runs).c_str());
  }
  return kExitOk;
}

}  // namespace tolvarcli
