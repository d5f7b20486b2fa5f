// The temporary file into which the Init targets write each input's
// volume, because Init opens volumes by path. One file per process, made
// on first use and removed at exit.
#ifndef TOLVAR_TESTS_FUZZ_VOLUME_FILE_H_
#define TOLVAR_TESTS_FUZZ_VOLUME_FILE_H_

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "tests/fixtures/sparse_source.h"

namespace tolvarfuzz {

class VolumeFile {
 public:
  static const std::string& Path() {
    static std::string path;
    if (path.empty()) {
      const char* dir = std::getenv("TMPDIR");
      std::string pattern = std::string(dir != nullptr ? dir : "/tmp") + "/tolvar-fuzz-XXXXXX";
      std::vector<char> name(pattern.begin(), pattern.end());
      name.push_back('\0');
      int fd = mkstemp(name.data());
      if (fd < 0) std::abort();
      close(fd);
      path = name.data();
      std::atexit([] { unlink(path.c_str()); });
    }
    return path;
  }

  // Replaces the file's contents with the source's bytes.
  static void Write(tolvartest::SparseSource& source) {
    int fd = open(Path().c_str(), O_WRONLY | O_TRUNC);
    if (fd < 0) std::abort();
    for (const auto& chunk : source.Chunks()) {
      off_t at = static_cast<off_t>(chunk.first * tolvartest::SparseSource::kChunk);
      if (pwrite(fd, chunk.second.data(), chunk.second.size(), at) != static_cast<ssize_t>(chunk.second.size())) {
        std::abort();
      }
    }
    if (ftruncate(fd, static_cast<off_t>(source.GetSize())) != 0) std::abort();
    close(fd);
  }
};

}  // namespace tolvarfuzz

#endif  // TOLVAR_TESTS_FUZZ_VOLUME_FILE_H_
