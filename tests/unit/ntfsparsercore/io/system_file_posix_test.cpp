#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "ntfsparsercore/io/system_file.h"
#include "ntfsparsercore/io/system_file_api_posix.h"
#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/memory_source.h"

using tolvarcommon::ErrorRecord;

namespace {

using ntfsparsercore::io::SystemFile;
using tolvartest::DrainErrors;
using tolvartest::Record;

// A real file with known bytes, removed at the end of the test.
class TempFile {
 public:
  explicit TempFile(const std::vector<uint8_t>& bytes) {
    char name[] = "/tmp/tolvar-system-file-XXXXXX";
    int fd = mkstemp(name);
    path_ = name;
    if (fd >= 0) {
      EXPECT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
      close(fd);
    }
  }
  ~TempFile() { unlink(path_.c_str()); }
  const char* Path() const { return path_.c_str(); }

 private:
  std::string path_;
};

// Calls of a block device whose reads fail.
class FakeApi : public SystemFile::Api {
 public:
  int Open(const char*) override { return 42; }
  ssize_t Pread(int, void*, std::size_t, off_t) override {
    ++preads;
    return -1;
  }
  int Fstat(int, struct stat* status) override {
    if (fstatFails) return -1;
    std::memset(status, 0, sizeof *status);
    status->st_mode = S_IFBLK | 0600;
    return 0;
  }
  int BlockDeviceSize(int, uint64_t* size) override {
    if (ioctlFails) return -1;
    *size = deviceSize;
    return 0;
  }
  int Close(int fd) override {
    closed.push_back(fd);
    return 0;
  }

  int preads = 0;
  bool fstatFails = false;
  bool ioctlFails = false;
  uint64_t deviceSize = 68716331008ull;
  std::vector<int> closed;
};

class SystemFilePosix : public tolvartest::QueueTest {};

TEST_F(SystemFilePosix, ReadsARealFileAtAnyOffset) {
  const auto bytes = tolvartest::PatternBytes(100000);
  TempFile file(bytes);
  std::unique_ptr<SystemFile> source(SystemFile::Open(file.Path()));
  ASSERT_NE(source, nullptr);
  EXPECT_EQ(source->GetSize(), 100000u);
  std::vector<uint8_t> buffer(5000);
  ASSERT_EQ(source->Read(buffer.data(), 5000, 12345), 5000u);
  EXPECT_EQ(buffer, std::vector<uint8_t>(bytes.begin() + 12345, bytes.begin() + 17345));
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(SystemFilePosix, ReadPastTheEndReturnsWhatExists) {
  TempFile file(tolvartest::PatternBytes(1000));
  std::unique_ptr<SystemFile> source(SystemFile::Open(file.Path()));
  ASSERT_NE(source, nullptr);
  std::vector<uint8_t> buffer(100);
  EXPECT_EQ(source->Read(buffer.data(), 100, 950), 50u);
  EXPECT_EQ(source->Read(buffer.data(), 100, 5000), 0u);
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(SystemFilePosix, OpenOfAMissingFileReportsErrno) {
  EXPECT_EQ(SystemFile::Open("/nonexistent/volume"), nullptr);
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(1, "Open file(/nonexistent/volume) failed - 2.")}));
}

TEST_F(SystemFilePosix, OpenOfADirectoryForReadingSucceedsButReadsNothing) {
  std::unique_ptr<SystemFile> source(SystemFile::Open("/tmp"));
  ASSERT_NE(source, nullptr);
  uint8_t byte;
  EXPECT_EQ(source->Read(&byte, 1, 0), 0u);
}

TEST_F(SystemFilePosix, ShortReadIsRepeatedWholeTenTimesAndReturnsTheLastCount) {
  // Every attempt gets 10 bytes at the start offset, then nothing at the
  // offset that follows them.
  struct TenBytesPerAttempt : FakeApi {
    std::vector<off_t> offsets;
    ssize_t Pread(int, void* buffer, std::size_t size, off_t offset) override {
      offsets.push_back(offset);
      if (offset != 4096) return 0;
      std::memset(buffer, 0x11, 10);
      return size < 10 ? static_cast<ssize_t>(size) : 10;
    }
  } api;
  SystemFile file(7, api);
  std::vector<uint8_t> buffer(64);
  EXPECT_EQ(file.Read(buffer.data(), 64, 4096), 10u);
  std::vector<off_t> expected;
  for (int attempt = 0; attempt < 10; ++attempt) {
    expected.push_back(4096);
    expected.push_back(4106);
  }
  EXPECT_EQ(api.offsets, expected);
}

TEST_F(SystemFilePosix, FullReadOnTheSecondAttemptStops) {
  struct SecondTimeLucky : FakeApi {
    ssize_t Pread(int, void* buffer, std::size_t size, off_t) override {
      ++preads;
      if (preads == 1) return -1;
      std::memset(buffer, 0x5A, size);
      return static_cast<ssize_t>(size);
    }
  } api;
  SystemFile file(3, api);
  std::vector<uint8_t> buffer(32);
  EXPECT_EQ(file.Read(buffer.data(), 32, 4096), 32u);
  EXPECT_EQ(api.preads, 2);
  EXPECT_EQ(buffer[31], 0x5A);
}

TEST_F(SystemFilePosix, InvalidHandleReportsAndReadsNothing) {
  FakeApi api;
  SystemFile file(-1, api);
  uint8_t buffer[8];
  EXPECT_EQ(file.Read(buffer, 8, 0), 0u);
  EXPECT_EQ(api.preads, 0);
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(2, "Invalid handle")}));
}

TEST_F(SystemFilePosix, GetSizeOfABlockDeviceAsksTheDevice) {
  FakeApi api;
  SystemFile file(5, api);
  EXPECT_EQ(file.GetSize(), 68716331008ull);
  api.ioctlFails = true;
  EXPECT_EQ(file.GetSize(), 0u);
  api.fstatFails = true;
  EXPECT_EQ(file.GetSize(), 0u);
}

TEST_F(SystemFilePosix, DestructorClosesTheDescriptorOnce) {
  FakeApi api;
  { SystemFile file(9, api); }
  { SystemFile invalid(-1, api); }
  EXPECT_EQ(api.closed, std::vector<int>{9});
}

TEST_F(SystemFilePosix, OpenThroughTheSeamKeepsTheDescriptor) {
  FakeApi api;
  std::unique_ptr<SystemFile> file(SystemFile::Open("anything", api));
  ASSERT_NE(file, nullptr);
  file.reset();
  EXPECT_EQ(api.closed, std::vector<int>{42});
}

}  // namespace
