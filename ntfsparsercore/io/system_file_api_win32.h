// The Win32 calls that a SystemFile makes, as a seam for tests.
#ifndef TOLVAR_NTFSPARSERCORE_IO_SYSTEM_FILE_API_WIN32_H_
#define TOLVAR_NTFSPARSERCORE_IO_SYSTEM_FILE_API_WIN32_H_

#include <windows.h>

#include "ntfsparsercore/io/system_file.h"

namespace ntfsparsercore {
namespace io {

class SystemFile::Api {
 public:
  // The real calls of kernel32.
  static Api& Default();

  virtual ~Api() = default;
  virtual HANDLE CreateFileA(LPCSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD disposition,
                             DWORD flags, HANDLE templateFile);
  virtual DWORD GetLastError();
  virtual HANDLE CreateEventA(LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL initialState, LPCSTR name);
  virtual BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD size, LPDWORD count, LPOVERLAPPED overlapped);
  virtual DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);
  virtual BOOL GetOverlappedResult(HANDLE file, LPOVERLAPPED overlapped, LPDWORD count, BOOL wait);
  virtual BOOL CancelIo(HANDLE file);
  virtual BOOL ResetEvent(HANDLE event);
  virtual BOOL CloseHandle(HANDLE handle);
  virtual BOOL GetFileSizeEx(HANDLE file, PLARGE_INTEGER size);
  virtual BOOL DeviceIoControl(HANDLE device, DWORD code, LPVOID in, DWORD inSize, LPVOID out, DWORD outSize,
                               LPDWORD returned, LPOVERLAPPED overlapped);
};

}  // namespace io
}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_IO_SYSTEM_FILE_API_WIN32_H_
