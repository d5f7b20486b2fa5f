// Writes an increment's blocks into BASE, an image of the older shadow
// copy. Nothing is written unless the whole increment checks out and fits
// BASE.
#include "cli/apply_command.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "cli/exit_code.h"
#include "cli/increment_reader.h"

namespace tolvarcli {

CommandLine::Grammar ApplyCommand::Grammar() { return {2, {}, {}}; }

int ApplyCommand::Run(const CommandLine& arguments) {
  const std::string& base = arguments.Positional(0);
  const std::string& increment = arguments.Positional(1);

  IncrementReader reader(increment);
  if (!reader.Verify()) {
    std::fprintf(stderr, "tolvar: %s: %s; %s left untouched\n", increment.c_str(), reader.Error().c_str(),
                 base.c_str());
    return reader.ReadFailed() ? kExitFile : kExitRefused;
  }
  std::error_code error;
  const uint64_t baseSize = std::filesystem::file_size(base, error);
  if (error) {
    std::fprintf(stderr, "tolvar: cannot read %s\n", base.c_str());
    return kExitFile;
  }
  if (baseSize != reader.Header().volumeSize) {
    std::fprintf(stderr, "tolvar: %s is %llu bytes, the increment is for a volume of %llu bytes; %s left untouched\n",
                 base.c_str(), static_cast<unsigned long long>(baseSize),
                 static_cast<unsigned long long>(reader.Header().volumeSize), base.c_str());
    return kExitRefused;
  }

  std::fstream out(base, std::ios::binary | std::ios::in | std::ios::out);
  if (!out) {
    std::fprintf(stderr, "tolvar: cannot open %s for writing\n", base.c_str());
    return kExitFile;
  }
  const uint64_t blockSize = reader.Header().blockSize;
  const bool read = reader.ForEachBlock([&](uint64_t index, const std::vector<uint8_t>& block) {
    out.seekp(static_cast<std::streamoff>(index * blockSize));
    out.write(reinterpret_cast<const char*>(block.data()), static_cast<std::streamsize>(block.size()));
    return static_cast<bool>(out);
  });
  out.close();
  if (!read || out.fail()) {
    std::fprintf(stderr, "tolvar: writing %s failed part way; it is damaged\n", base.c_str());
    return kExitFile;
  }
  std::printf("%llu blocks of %llu bytes applied to %s\n", static_cast<unsigned long long>(reader.BlockCount()),
              static_cast<unsigned long long>(blockSize), base.c_str());
  return kExitOk;
}

}  // namespace tolvarcli
