// SystemFile over a Win32 handle opened for overlapped reads: each attempt
// waits a bounded time for the read and cancels it when the time is up.
#include <windows.h>

#include <cstring>

#include "common/error_queue.h"
#include "ntfsparsercore/io/little_endian.h"
#include "ntfsparsercore/io/system_file.h"
#include "ntfsparsercore/io/system_file_api_win32.h"

using tolvarcommon::kErrorIo;
using tolvarcommon::ReportError;

namespace ntfsparsercore {
namespace io {

namespace {

constexpr DWORD kGenericRead = 0x80000000;
constexpr DWORD kShareReadWrite = FILE_SHARE_READ | FILE_SHARE_WRITE;
constexpr DWORD kOpenExisting = 3;
constexpr DWORD kFlagOverlapped = 0x40000000;

// IOCTL_DISK_GET_PARTITION_INFO_EX answers with one PARTITION_INFORMATION_EX
// of 144 bytes whose PartitionLength is the 64-bit value at byte 16.
constexpr DWORD kGetPartitionInfoEx = 0x00070048;
constexpr DWORD kPartitionInfoSize = 144;
constexpr std::size_t kPartitionLengthOffset = 16;

HANDLE AsHandle(std::intptr_t handle) { return reinterpret_cast<HANDLE>(handle); }

}  // namespace

SystemFile::Api& SystemFile::Api::Default() {
  static Api api;
  return api;
}

HANDLE SystemFile::Api::CreateFileA(LPCSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                                    DWORD disposition, DWORD flags, HANDLE templateFile) {
  return ::CreateFileA(name, access, share, security, disposition, flags, templateFile);
}
DWORD SystemFile::Api::GetLastError() { return ::GetLastError(); }
HANDLE SystemFile::Api::CreateEventA(LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL initialState, LPCSTR name) {
  return ::CreateEventA(security, manualReset, initialState, name);
}
BOOL SystemFile::Api::ReadFile(HANDLE file, LPVOID buffer, DWORD size, LPDWORD count, LPOVERLAPPED overlapped) {
  return ::ReadFile(file, buffer, size, count, overlapped);
}
DWORD SystemFile::Api::WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
  return ::WaitForSingleObject(handle, milliseconds);
}
BOOL SystemFile::Api::GetOverlappedResult(HANDLE file, LPOVERLAPPED overlapped, LPDWORD count, BOOL wait) {
  return ::GetOverlappedResult(file, overlapped, count, wait);
}
BOOL SystemFile::Api::CancelIo(HANDLE file) { return ::CancelIo(file); }
BOOL SystemFile::Api::ResetEvent(HANDLE event) { return ::ResetEvent(event); }
BOOL SystemFile::Api::CloseHandle(HANDLE handle) { return ::CloseHandle(handle); }
BOOL SystemFile::Api::GetFileSizeEx(HANDLE file, PLARGE_INTEGER size) { return ::GetFileSizeEx(file, size); }
BOOL SystemFile::Api::DeviceIoControl(HANDLE device, DWORD code, LPVOID in, DWORD inSize, LPVOID out, DWORD outSize,
                                      LPDWORD returned, LPOVERLAPPED overlapped) {
  return ::DeviceIoControl(device, code, in, inSize, out, outSize, returned, overlapped);
}

std::unique_ptr<SystemFile> SystemFile::Open(const char* path) { return Open(path, Api::Default()); }

std::unique_ptr<SystemFile> SystemFile::Open(const char* path, Api& api) {
  HANDLE handle =
      api.CreateFileA(path, kGenericRead, kShareReadWrite, nullptr, kOpenExisting, kFlagOverlapped, nullptr);
  if (handle == INVALID_HANDLE_VALUE) {
    ReportError(kErrorIo, "Open file(%s) failed - %d.", path, static_cast<int>(api.GetLastError()));
    return nullptr;
  }
  return std::make_unique<SystemFile>(reinterpret_cast<std::intptr_t>(handle), api);
}

SystemFile::SystemFile(std::intptr_t handle, Api& api) : handle_(handle), api_(&api) {}

SystemFile::~SystemFile() {
  if (HandleIsValid()) api_->CloseHandle(AsHandle(handle_));
}

bool SystemFile::HandleIsValid() const { return AsHandle(handle_) != INVALID_HANDLE_VALUE; }

// One overlapped attempt. Only INVALID_HANDLE_VALUE counts as a failed
// event creation; a wait that runs out cancels the read and keeps whatever
// count the call had written.
uint64_t SystemFile::ReadOnce(void* buffer, uint64_t size, uint64_t offset, uint32_t waitMs) {
  HANDLE file = AsHandle(handle_);
  OVERLAPPED overlapped;
  std::memset(&overlapped, 0, sizeof overlapped);
  HANDLE event = api_->CreateEventA(nullptr, TRUE, FALSE, nullptr);
  if (event == INVALID_HANDLE_VALUE) return 0;

  overlapped.Offset = static_cast<DWORD>(offset);
  overlapped.OffsetHigh = static_cast<DWORD>(offset >> 32);
  overlapped.hEvent = event;
  DWORD count = 0;
  api_->ReadFile(file, buffer, static_cast<DWORD>(size), &count, &overlapped);
  if (api_->WaitForSingleObject(event, waitMs) != WAIT_OBJECT_0) {
    api_->CancelIo(file);
  } else if (!api_->GetOverlappedResult(file, &overlapped, &count, FALSE)) {
    count = 0;
  }
  api_->ResetEvent(event);
  api_->CloseHandle(event);
  return count;
}

// The file's size, or for a volume or disk device (where GetFileSizeEx
// fails) the length of its partition.
uint64_t SystemFile::GetSize() {
  HANDLE file = AsHandle(handle_);
  LARGE_INTEGER size;
  if (api_->GetFileSizeEx(file, &size)) return static_cast<uint64_t>(size.QuadPart);
  uint8_t info[kPartitionInfoSize] = {};
  DWORD returned = 0;
  if (!api_->DeviceIoControl(file, kGetPartitionInfoEx, nullptr, 0, info, kPartitionInfoSize, &returned, nullptr)) {
    return 0;
  }
  return LoadLe64(info + kPartitionLengthOffset);
}

}  // namespace io
}  // namespace ntfsparsercore
