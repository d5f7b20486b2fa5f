#include <windows.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "ntfsparsercore/io/little_endian.h"
#include "ntfsparsercore/io/system_file.h"
#include "ntfsparsercore/io/system_file_api_win32.h"
#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/memory_source.h"

using tolvarcommon::ErrorRecord;

namespace {

using ntfsparsercore::io::SystemFile;
using tolvartest::DrainErrors;
using tolvartest::Record;

HANDLE FakeHandle(std::intptr_t value) { return reinterpret_cast<HANDLE>(value); }

// A real file with known bytes, removed at the end of the test.
class TempFile {
 public:
  explicit TempFile(const std::vector<uint8_t>& bytes) {
    char directory[MAX_PATH];
    char name[MAX_PATH];
    GetTempPathA(MAX_PATH, directory);
    GetTempFileNameA(directory, "tlv", 0, name);
    path_ = name;
    FILE* file = std::fopen(name, "wb");
    if (file != nullptr) {
      std::fwrite(bytes.data(), 1, bytes.size(), file);
      std::fclose(file);
    }
  }
  ~TempFile() { DeleteFileA(path_.c_str()); }
  const char* Path() const { return path_.c_str(); }

 private:
  std::string path_;
};

// Kernel calls whose reads never finish in time; it records what was asked.
class HangingDevice : public SystemFile::Api {
 public:
  HANDLE CreateEventA(LPSECURITY_ATTRIBUTES, BOOL manualReset, BOOL initialState, LPCSTR) override {
    manualResetEvents += manualReset ? 1 : 0;
    initiallySignalled += initialState ? 1 : 0;
    return FakeHandle(0x500);
  }
  BOOL ReadFile(HANDLE, LPVOID, DWORD size, LPDWORD count, LPOVERLAPPED overlapped) override {
    readSizes.push_back(size);
    offsets.push_back(overlapped->Offset | (static_cast<uint64_t>(overlapped->OffsetHigh) << 32));
    *count = partialCount;
    return FALSE;
  }
  DWORD WaitForSingleObject(HANDLE, DWORD milliseconds) override {
    waits.push_back(milliseconds);
    return WAIT_TIMEOUT;
  }
  BOOL GetOverlappedResult(HANDLE, LPOVERLAPPED, LPDWORD, BOOL) override {
    ++overlappedResults;
    return FALSE;
  }
  BOOL CancelIo(HANDLE) override {
    ++cancels;
    return TRUE;
  }
  BOOL ResetEvent(HANDLE) override {
    ++resets;
    return TRUE;
  }
  BOOL CloseHandle(HANDLE handle) override {
    closed.push_back(reinterpret_cast<std::intptr_t>(handle));
    return TRUE;
  }
  BOOL GetFileSizeEx(HANDLE, PLARGE_INTEGER size) override {
    if (!fileSizeKnown) return FALSE;
    size->QuadPart = 12345;
    return TRUE;
  }
  BOOL DeviceIoControl(HANDLE, DWORD code, LPVOID in, DWORD inSize, LPVOID out, DWORD outSize, LPDWORD returned,
                       LPOVERLAPPED) override {
    ioctlCode = code;
    ioctlInput = in;
    ioctlInputSize = inSize;
    ioctlOutputSize = outSize;
    if (!partitionKnown) return FALSE;
    ntfsparsercore::io::StoreLe64(static_cast<uint8_t*>(out) + 16, 68716331008ull);
    *returned = 144;
    return TRUE;
  }

  DWORD partialCount = 0;
  bool fileSizeKnown = true;
  bool partitionKnown = true;
  int manualResetEvents = 0;
  int initiallySignalled = 0;
  std::vector<DWORD> readSizes;
  std::vector<uint64_t> offsets;
  std::vector<DWORD> waits;
  int overlappedResults = 0;
  int cancels = 0;
  int resets = 0;
  std::vector<std::intptr_t> closed;
  DWORD ioctlCode = 0;
  LPVOID ioctlInput = reinterpret_cast<LPVOID>(1);
  DWORD ioctlInputSize = 1;
  DWORD ioctlOutputSize = 0;
};

class SystemFileWin32 : public tolvartest::QueueTest {};

TEST_F(SystemFileWin32, ReadsARealFileAtAnyOffset) {
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

TEST_F(SystemFileWin32, OpenOfAMissingFileReportsTheLastError) {
  EXPECT_EQ(SystemFile::Open("C:\\nonexistent-tolvar\\volume.img"), nullptr);
  EXPECT_EQ(DrainErrors(),
            (std::vector<ErrorRecord>{Record(1, "Open file(C:\\nonexistent-tolvar\\volume.img) failed - 3.")}));
}

TEST_F(SystemFileWin32, ReadThatKeepsTimingOutIsAttemptedTenTimesWithDoublingWaits) {
  HangingDevice device;
  device.partialCount = 7;
  SystemFile file(0x100, device);
  std::vector<uint8_t> buffer(512);
  EXPECT_EQ(file.Read(buffer.data(), 512, 0x123456789ull), 7u);
  EXPECT_EQ(device.waits, (std::vector<DWORD>{40, 80, 160, 320, 640, 1280, 2560, 5120, 10240, 20480}));
  EXPECT_EQ(device.cancels, 10);
  EXPECT_EQ(device.overlappedResults, 0);
  EXPECT_EQ(device.resets, 10);
  EXPECT_EQ(device.readSizes, std::vector<DWORD>(10, 512));
  EXPECT_EQ(device.offsets, std::vector<uint64_t>(10, 0x123456789ull));
  EXPECT_EQ(device.manualResetEvents, 10);
  EXPECT_EQ(device.initiallySignalled, 0);
  EXPECT_EQ(device.closed, std::vector<std::intptr_t>(10, 0x500));  // each attempt's event
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(SystemFileWin32, EventThatCannotBeCreatedMakesTheAttemptDeliverNothing) {
  struct NoEvents : HangingDevice {
    HANDLE CreateEventA(LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCSTR) override {
      ++events;
      return INVALID_HANDLE_VALUE;
    }
    int events = 0;
  } device;
  SystemFile file(0x100, device);
  uint8_t buffer[16];
  EXPECT_EQ(file.Read(buffer, 16, 0), 0u);
  EXPECT_EQ(device.events, 10);
  EXPECT_TRUE(device.readSizes.empty());
}

TEST_F(SystemFileWin32, NullEventIsNotTakenForAFailure) {
  struct NullEvent : HangingDevice {
    HANDLE CreateEventA(LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCSTR) override { return nullptr; }
  } device;
  SystemFile file(0x100, device);
  uint8_t buffer[16];
  file.Read(buffer, 16, 0);
  EXPECT_EQ(device.readSizes.size(), 10u);
}

TEST_F(SystemFileWin32, FinishedReadTakesTheOverlappedCount) {
  struct Finishing : HangingDevice {
    DWORD WaitForSingleObject(HANDLE, DWORD milliseconds) override {
      waits.push_back(milliseconds);
      return WAIT_OBJECT_0;
    }
    BOOL GetOverlappedResult(HANDLE, LPOVERLAPPED, LPDWORD count, BOOL wait) override {
      ++overlappedResults;
      waited = wait;
      *count = overlappedResults == 1 ? 3 : 16;  // the first attempt comes back short
      return TRUE;
    }
    BOOL waited = TRUE;
  } device;
  SystemFile file(0x100, device);
  uint8_t buffer[16];
  EXPECT_EQ(file.Read(buffer, 16, 0), 16u);
  EXPECT_EQ(device.waits, (std::vector<DWORD>{40, 80}));
  EXPECT_EQ(device.cancels, 0);
  EXPECT_EQ(device.waited, FALSE);
}

TEST_F(SystemFileWin32, FailedOverlappedResultCountsZero) {
  struct Failing : HangingDevice {
    DWORD WaitForSingleObject(HANDLE, DWORD) override { return WAIT_OBJECT_0; }
  } device;
  device.partialCount = 9;
  SystemFile file(0x100, device);
  uint8_t buffer[16];
  EXPECT_EQ(file.Read(buffer, 16, 0), 0u);
  EXPECT_EQ(device.overlappedResults, 10);
}

TEST_F(SystemFileWin32, InvalidHandleReportsAndReadsNothing) {
  HangingDevice device;
  SystemFile file(reinterpret_cast<std::intptr_t>(INVALID_HANDLE_VALUE), device);
  uint8_t buffer[8];
  EXPECT_EQ(file.Read(buffer, 8, 0), 0u);
  EXPECT_TRUE(device.readSizes.empty());
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(2, "Invalid handle")}));
}

TEST_F(SystemFileWin32, GetSizeOfAVolumeDeviceReturnsThePartitionLength) {
  HangingDevice device;
  device.fileSizeKnown = false;
  SystemFile file(0x100, device);
  EXPECT_EQ(file.GetSize(), 68716331008ull);
  EXPECT_EQ(device.ioctlCode, 0x00070048u);
  EXPECT_EQ(device.ioctlInput, nullptr);
  EXPECT_EQ(device.ioctlInputSize, 0u);
  EXPECT_EQ(device.ioctlOutputSize, 144u);
}

TEST_F(SystemFileWin32, GetSizeIsZeroWhenBothQueriesFail) {
  HangingDevice device;
  device.fileSizeKnown = false;
  device.partitionKnown = false;
  SystemFile file(0x100, device);
  EXPECT_EQ(file.GetSize(), 0u);
}

TEST_F(SystemFileWin32, GetSizeOfAFileUsesTheFileSize) {
  HangingDevice device;
  SystemFile file(0x100, device);
  EXPECT_EQ(file.GetSize(), 12345u);
  EXPECT_EQ(device.ioctlCode, 0u);
}

TEST_F(SystemFileWin32, DestructorClosesTheHandle) {
  HangingDevice device;
  { SystemFile file(0x100, device); }
  { SystemFile invalid(reinterpret_cast<std::intptr_t>(INVALID_HANDLE_VALUE), device); }
  EXPECT_EQ(device.closed, std::vector<std::intptr_t>{0x100});
}

}  // namespace
