#include "cli/diff_command.h"

#include <algorithm>
#include <cstdio>

#include "cli/exit_code.h"
#include "cli/library_path.h"
#include "cli/json_text.h"
#include "cli/output_file.h"
#include "cli/tracking_session.h"
#include "cli/volume_selection.h"

namespace tolvarcli {

namespace {

constexpr uint64_t kDefaultBlockSize = 65536;

// Bytes of the volume covered by the set bits: a block that runs past the
// volume's end counts only up to it.
uint64_t ChangedBytes(const std::vector<uint8_t>& bitmap, uint64_t blockSize, uint64_t volumeSize) {
  uint64_t bytes = 0;
  for (uint64_t byte = 0; byte < bitmap.size(); ++byte) {
    for (uint64_t bit = 0; bit < 8; ++bit) {
      if (((bitmap[byte] >> bit) & 1) == 0) continue;
      const uint64_t start = (byte * 8 + bit) * blockSize;
      if (start < volumeSize) bytes += std::min(blockSize, volumeSize - start);
    }
  }
  return bytes;
}

}  // namespace

CommandLine::Grammar DiffCommand::Grammar() {
  return VolumeSelection::WithOptions({3, {"--extra-pass", "--json"}, {"--block-size", "--bitmap-out", "--exclude"}});
}

int DiffCommand::Run(const CommandLine& arguments) {
  std::string volume;
  const std::string& from = arguments.Positional(1);
  const std::string& to = arguments.Positional(2);
  uint64_t blockSize = 0;
  if (!arguments.BlockSize(kDefaultBlockSize, &blockSize)) return kExitUsage;
  const int resolved = VolumeSelection::Resolve(arguments.Positional(0), arguments, &volume);
  if (resolved != kExitOk) return resolved;
  TrackingSession session;
  std::vector<uint8_t> bitmap;
  if (!session.OpenChangedBlocks(volume, from, to, blockSize, arguments.Has("--extra-pass"),
                                 LibraryPath::Convert(volume, to, arguments.Values("--exclude")), &bitmap)) {
    return kExitLibrary;
  }

  const std::string bitmapOut = arguments.Value("--bitmap-out", "");
  if (!bitmapOut.empty()) {
    OutputFile out(bitmapOut);
    if (!out.Open() || !out.Write(bitmap.data(), bitmap.size()) || !out.Commit()) {
      std::fprintf(stderr, "tolvar: cannot write %s\n", out.WritingName().c_str());
      return kExitFile;
    }
  }

  const uint64_t volumeSize = VolumeSize(volume);
  const uint64_t blocks = CountSetBits(bitmap);
  const uint64_t bytes = ChangedBytes(bitmap, blockSize, volumeSize);
  if (arguments.Has("--json")) {
    std::printf(
        "{\"volume\": %s, \"from\": %s, \"to\": %s, \"volume_size\": %llu, \"block_size\": %llu, "
        "\"bitmap_bytes\": %llu, \"changed_blocks\": %llu, \"changed_bytes\": %llu}\n",
        JsonText(volume).c_str(), JsonText(from).c_str(), JsonText(to).c_str(),
        static_cast<unsigned long long>(volumeSize), static_cast<unsigned long long>(blockSize),
        static_cast<unsigned long long>(bitmap.size()), static_cast<unsigned long long>(blocks),
        static_cast<unsigned long long>(bytes));
  } else {
    std::printf("volume size     %llu bytes\nblock size      %llu bytes\nchanged blocks  %llu\nchanged bytes   %llu\n",
                static_cast<unsigned long long>(volumeSize), static_cast<unsigned long long>(blockSize),
                static_cast<unsigned long long>(blocks), static_cast<unsigned long long>(bytes));
  }
  return kExitOk;
}

}  // namespace tolvarcli
