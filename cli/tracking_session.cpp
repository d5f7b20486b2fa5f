#include "cli/tracking_session.h"

#include <memory>

#include "common/error_queue.h"
#include "cli/error_report.h"
#include "ntfsparsercore/io/source_factory.h"

using tolvarcommon::ScopedErrorQueueSuspension;

namespace tolvarcli {

TrackingSession::~TrackingSession() {
  FreeHandle(handle_);
  FreeHandle(initHandle_);
}

int32_t TrackingSession::Open(const std::string& volume, const std::string& from, const std::string& to,
                              uint64_t blockSize, bool newestPass) {
  const uint32_t flags = TOLVAR_OPTION_ERROR_QUEUE | (newestPass ? TOLVAR_OPTION_NEWEST_PASS : 0u);
  blockSize_ = blockSize;
  const int32_t status = Init(&handle_, volume.c_str(), from.c_str(), to.c_str(), blockSize, flags);
  if (status != TOLVAR_OK) {
    handle_ = nullptr;
    ErrorReport::PrintFailure("Init", status);
  }
  return status;
}

int32_t TrackingSession::Exclude(const std::vector<std::string>& paths) {
  std::vector<const char*> list;
  for (const std::string& path : paths) list.push_back(path.c_str());
  list.push_back(nullptr);
  TolvarHandle made = nullptr;
  const int32_t status = ExcludeFiles(handle_, &made, list.data());
  if (status != TOLVAR_OK) {
    ErrorReport::PrintFailure("ExcludeFiles", status);
    return status;
  }
  // A second exclusion replaces the handle again: the one it came from is
  // no longer needed.
  FreeHandle(initHandle_);
  initHandle_ = handle_;
  handle_ = made;
  return status;
}

int32_t TrackingSession::FileMap(const std::string& path, std::vector<uint8_t>* map) {
  uint64_t size = 0;
  int32_t status = GetFileChangesMap(handle_, path.c_str(), nullptr, &size);
  if (status != TOLVAR_SIZE_RETURNED) {
    ErrorReport::PrintFailure("GetFileChangesMap", status);
    return status == TOLVAR_OK ? TOLVAR_E_FAILED : status;
  }
  map->assign(size, 0);
  // An empty file has an empty map: there is nothing to ask for.
  if (size == 0) return TOLVAR_OK;
  status = GetFileChangesMap(handle_, path.c_str(), map->data(), &size);
  if (status != TOLVAR_OK) ErrorReport::PrintFailure("GetFileChangesMap", status);
  return status;
}

bool TrackingSession::OpenChangedBlocks(const std::string& volume, const std::string& from, const std::string& to,
                                        uint64_t blockSize, bool newestPass, const std::vector<std::string>& excluded,
                                        std::vector<uint8_t>* bitmap) {
  if (Open(volume, from, to, blockSize, newestPass) != 0) return false;
  // Excluded files' blocks leave the bitmap; the new handle walks what is left.
  if (!excluded.empty() && Exclude(excluded) != 0) return false;
  return Bitmap(bitmap) == 0;
}

int32_t TrackingSession::Bitmap(std::vector<uint8_t>* bitmap) {
  uint64_t size = 0;
  int32_t status = GetDiffBitmap(handle_, nullptr, &size);
  if (status != TOLVAR_SIZE_RETURNED) {
    ErrorReport::PrintFailure("GetDiffBitmap", status);
    return status;
  }
  bitmap->assign(size, 0);
  status = GetDiffBitmap(handle_, bitmap->data(), &size);
  if (status != TOLVAR_OK) ErrorReport::PrintFailure("GetDiffBitmap", status);
  return status;
}

int32_t TrackingSession::NextBlock(std::vector<uint8_t>* buffer, uint64_t* index, bool compare) {
  uint64_t size = buffer->size();
  return GetBlock(handle_, buffer->data(), &size, index, compare ? 1 : 0);
}

uint64_t VolumeSize(const std::string& path) {
  std::string device = path;
  if (!device.empty() && device.back() == '\\') device.pop_back();
  // The open's own message is not the caller's concern here: Init reports it.
  ScopedErrorQueueSuspension quiet;
  ntfsparsercore::io::SourceFactory factory;
  std::unique_ptr<ntfsparsercore::io::ISource> source(factory.Open(device.c_str()));
  return source ? source->GetSize() : 0;
}

uint64_t CountSetBits(const std::vector<uint8_t>& bitmap) {
  uint64_t count = 0;
  for (uint8_t byte : bitmap) {
    for (; byte != 0; byte &= static_cast<uint8_t>(byte - 1)) ++count;
  }
  return count;
}

}  // namespace tolvarcli
