// A read-only byte source over one partition of a disk image file, for the
// seed generator.
#ifndef TOLVAR_TESTS_FUZZ_PARTITION_FILE_SOURCE_H_
#define TOLVAR_TESTS_FUZZ_PARTITION_FILE_SOURCE_H_

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <string>

#include "ntfsparsercore/io/i_source.h"

namespace tolvarfuzz {

class PartitionFileSource : public ntfsparsercore::io::ISource {
 public:
  PartitionFileSource(const std::string& path, uint64_t start, uint64_t length)
      : fd_(open(path.c_str(), O_RDONLY)), start_(start), length_(length) {}
  ~PartitionFileSource() override {
    if (fd_ >= 0) close(fd_);
  }
  PartitionFileSource(const PartitionFileSource&) = delete;
  PartitionFileSource& operator=(const PartitionFileSource&) = delete;

  bool IsOpen() const { return fd_ >= 0; }

  uint64_t Read(void* buffer, uint64_t size, uint64_t offset) override {
    if (fd_ < 0 || offset >= length_) return 0;
    uint64_t count = std::min(size, length_ - offset);
    ssize_t got = pread(fd_, buffer, count, static_cast<off_t>(start_ + offset));
    return got < 0 ? 0 : static_cast<uint64_t>(got);
  }
  uint64_t GetSize() override { return length_; }

 private:
  int fd_;           // the image file, or -1
  uint64_t start_;   // the partition's first byte in the image
  uint64_t length_;  // the partition's length
};

}  // namespace tolvarfuzz

#endif  // TOLVAR_TESTS_FUZZ_PARTITION_FILE_SOURCE_H_
