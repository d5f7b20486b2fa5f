// One tracking handle of the library, opened with Init and freed when the
// session ends, with the calls the subcommands make on it.
#ifndef TOLVAR_CLI_TRACKING_SESSION_H_
#define TOLVAR_CLI_TRACKING_SESSION_H_

#include <cstdint>
#include <string>
#include <vector>

#include "tolvar/tolvar.h"

namespace tolvarcli {

class TrackingSession {
 public:
  TrackingSession() = default;
  TrackingSession(const TrackingSession&) = delete;
  TrackingSession& operator=(const TrackingSession&) = delete;
  ~TrackingSession();

  // Init with the error queue always on and, with newestPass, option bit 0.
  // On failure prints the queue and the status; returns Init's status.
  int32_t Open(const std::string& volume, const std::string& from, const std::string& to, uint64_t blockSize,
               bool newestPass);

  // ExcludeFiles with paths on the open handle. On success the session
  // works on the handle it made (the first one stays open until the session
  // ends, both are freed then); on failure prints the queue and the status
  // and returns it.
  int32_t Exclude(const std::vector<std::string>& paths);

  // Open, then Exclude when paths are given, then Bitmap: the changed
  // blocks that a diff or a backup works on. False after a failure, which
  // has been printed.
  bool OpenChangedBlocks(const std::string& volume, const std::string& from, const std::string& to, uint64_t blockSize,
                         bool newestPass, const std::vector<std::string>& excluded, std::vector<uint8_t>* bitmap);

  // GetFileChangesMap of path: asks for the map's length, then the map.
  // On failure prints the queue and the status and returns it.
  int32_t FileMap(const std::string& path, std::vector<uint8_t>* map);

  // The changed-block bitmap; prints and returns the failing status.
  int32_t Bitmap(std::vector<uint8_t>* bitmap);

  // GetBlock into buffer (its size is the block size); returns its status.
  int32_t NextBlock(std::vector<uint8_t>* buffer, uint64_t* index, bool compare);

  uint64_t BlockSize() const { return blockSize_; }

 private:
  TolvarHandle handle_ = nullptr;      // the handle the calls use, or null
  TolvarHandle initHandle_ = nullptr;  // Init's handle once Exclude replaced it, or null
  uint64_t blockSize_ = 0;             // as given to Init
};

// The size in bytes of the volume at path (one trailing backslash dropped,
// as Init does), read through the library's byte sources; 0 when it does
// not open.
uint64_t VolumeSize(const std::string& path);

// The number of set bits.
uint64_t CountSetBits(const std::vector<uint8_t>& bitmap);

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_TRACKING_SESSION_H_
