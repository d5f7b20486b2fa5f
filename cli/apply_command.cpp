// Writes an increment's blocks into BASE, an image of the older shadow
// copy, or with --output into a new image made of BASE and the blocks.
// Nothing is written unless the whole increment checks out and fits BASE,
// and, for a version 2 or 3 increment, every block it replaces holds either the
// older shadow copy's contents or already the newer's (what an apply that
// was interrupted leaves): running it again then completes it.
#include "cli/apply_command.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <vector>

#include "cli/block_hash.h"
#include "cli/exit_code.h"
#include "cli/increment_reader.h"
#include "cli/output_file.h"
#include "cli/progress_meter.h"
#include "cli/zero_bytes.h"

namespace tolvarcli {

namespace {

bool ReadBlock(std::ifstream& in, uint64_t offset, std::vector<uint8_t>* block) {
  in.seekg(static_cast<std::streamoff>(offset));
  in.read(reinterpret_cast<char*>(block->data()), static_cast<std::streamsize>(block->size()));
  return static_cast<std::size_t>(in.gcount()) == block->size();
}

// Versions 2 and 3: the first record whose block in BASE hashes to neither its
// old nor its new contents, as a message; empty when every one fits.
// Returns false when BASE cannot be read.
bool FindMismatch(const std::string& base, const IncrementReader& reader, std::string* mismatch) {
  std::ifstream in(base, std::ios::binary);
  if (!in) return false;
  std::vector<uint8_t> block(reader.Header().blockSize);
  for (const IncrementReader::Record& record : reader.Records()) {
    if ((record.flags & IncrementHeader::kRecordUnchecked) != 0) continue;
    if (!ReadBlock(in, record.index * block.size(), &block)) return false;
    const uint64_t hash = BlockHash::Of(block.data(), block.size());
    if (hash == record.oldHash || hash == record.newHash) continue;
    *mismatch = "block " + std::to_string(record.index) + " of " + base +
                " holds neither the older nor the newer shadow copy's contents: it is not an image of shadow copy " +
                reader.Header().from;
    return true;
  }
  return true;
}

int ApplyInPlace(const std::string& base, IncrementReader& reader) {
  std::fstream out(base, std::ios::binary | std::ios::in | std::ios::out);
  if (!out) {
    std::fprintf(stderr, "tolvar: cannot open %s for writing\n", base.c_str());
    return kExitFile;
  }
  const uint64_t blockSize = reader.Header().blockSize;
  ProgressMeter progress(reader.BlockCount(), blockSize);
  const bool read = reader.ForEachBlock([&](uint64_t index, const std::vector<uint8_t>& block) {
    out.seekp(static_cast<std::streamoff>(index * blockSize));
    out.write(reinterpret_cast<const char*>(block.data()), static_cast<std::streamsize>(block.size()));
    progress.Advance();
    return static_cast<bool>(out);
  });
  out.close();
  progress.Finish();
  if (!read || out.fail()) {
    std::fprintf(stderr, "tolvar: writing %s failed part way; run the apply again to complete it\n", base.c_str());
    return kExitFile;
  }
  return kExitOk;
}

// BASE's blocks with the increment's in their place, in order, into NEW.
int ApplyInto(const std::string& base, const std::string& target, IncrementReader& reader, uint64_t baseSize) {
  std::ifstream in(base, std::ios::binary);
  OutputFile out(target);
  if (!in || !out.Open()) {
    std::fprintf(stderr, "tolvar: cannot %s\n", (in ? "write " + out.WritingName() : "read " + base).c_str());
    return kExitFile;
  }
  const uint64_t blockSize = reader.Header().blockSize;
  ProgressMeter progress(reader.BlockCount(), blockSize);
  std::vector<uint8_t> copy(blockSize);
  uint64_t next = 0;  // the first byte of BASE not yet copied
  const auto copyUpTo = [&](uint64_t end) {
    while (next < end) {
      const uint64_t length = std::min(blockSize, end - next);
      copy.resize(length);
      if (!ReadBlock(in, next, &copy)) return false;
      if (!(IsAllZero(copy.data(), length) ? out.WriteZeros(length) : out.Write(copy.data(), length))) return false;
      next += length;
    }
    return true;
  };
  const bool written = reader.ForEachBlock([&](uint64_t index, const std::vector<uint8_t>& block) {
    progress.Advance();
    if (!copyUpTo(index * blockSize)) return false;
    next += blockSize;
    return IsAllZero(block.data(), block.size()) ? out.WriteZeros(block.size()) : out.Write(block.data(), block.size());
  });
  progress.Finish();
  if (!written || !copyUpTo(baseSize) || !out.Commit()) {
    std::fprintf(stderr, "tolvar: cannot write %s\n", out.WritingName().c_str());
    return kExitFile;
  }
  return kExitOk;
}

}  // namespace

CommandLine::Grammar ApplyCommand::Grammar() { return {2, {}, {"--output"}}; }

int ApplyCommand::Run(const CommandLine& arguments) {
  const std::string& base = arguments.Positional(0);
  const std::string& increment = arguments.Positional(1);
  const std::string output = arguments.Value("--output", "");

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
  if (reader.Header().Fingerprinted()) {
    std::string mismatch;
    if (!FindMismatch(base, reader, &mismatch)) {
      std::fprintf(stderr, "tolvar: cannot read %s\n", base.c_str());
      return kExitFile;
    }
    if (!mismatch.empty()) {
      std::fprintf(stderr, "tolvar: %s; %s left untouched\n", mismatch.c_str(), base.c_str());
      return kExitRefused;
    }
  }

  const int applied = output.empty() ? ApplyInPlace(base, reader) : ApplyInto(base, output, reader, baseSize);
  if (applied != kExitOk) return applied;
  const std::string& target = output.empty() ? base : output;
  std::fprintf(target == OutputFile::kStandardOutput ? stderr : stdout, "%llu blocks of %llu bytes applied to %s\n",
               static_cast<unsigned long long>(reader.BlockCount()),
               static_cast<unsigned long long>(reader.Header().blockSize), target.c_str());
  return kExitOk;
}

}  // namespace tolvarcli
