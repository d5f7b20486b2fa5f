// The exports of the main use: Init, FreeHandle, GetDiffBitmap, GetBlock.
// They check arguments and map worker results to status codes; the work is
// done by the block processor and the volume provider.
#include <memory>
#include <string>
#include <utility>

#include "api/tracking_handle.h"
#include "api/worker_status.h"
#include "common/error_queue.h"
#include "core/vss/service/vss_context.h"
#include "tolvar/tolvar.h"

using tolvarcommon::CreateErrorQueue;
using tolvarcommon::kErrorIo;
using tolvarcommon::ReportError;

namespace {

using tolvarcore::WorkerResult;

// Opens the volume and its storage and computes the changed blocks.
WorkerResult OpenHandle(TrackingHandle& handle, const std::string& volumePath, const std::string& from,
                        const std::string& to) {
  auto volume = handle.volumeProvider->OpenVolume(volumePath);
  if (!volume) {
    ReportError(kErrorIo, "Can't open volume %s", volumePath.c_str());
    return WorkerResult::kBadArgument;
  }
  auto storage = handle.volumeProvider->FindStorage(volume);
  if (!storage) {
    ReportError(kErrorIo, "Can't open storage");
    return WorkerResult::kBadArgument;
  }
  auto context = std::make_unique<tolvarcore::vss::service::VssContext>(storage);
  auto identifiers = std::make_unique<std::pair<std::string, std::string>>(from, to);
  return handle.blockProcessor->Compute(*context, *handle.volumeProvider, volume, storage, *identifiers);
}

}  // namespace

extern "C" int32_t Init(TolvarHandle* handle_out, const char* volume, const char* fromSnapshotId,
                        const char* toSnapshotId, uint64_t blockSize, uint32_t flags) {
  if (flags & TOLVAR_OPTION_ERROR_QUEUE) CreateErrorQueue();
  if (handle_out == nullptr) return TOLVAR_E_FAILED;
  // The strings are copied below; null ones cannot be.
  if (volume == nullptr || fromSnapshotId == nullptr || toSnapshotId == nullptr) return TOLVAR_E_FAILED;

  auto handle = std::make_unique<TrackingHandle>();
  auto factory = std::make_shared<ntfsparsercore::io::SourceFactory>();
  handle->volumeProvider = std::make_unique<tolvarcore::VolumeProvider>(factory);
  factory.reset();
  handle->blockProcessor = std::make_unique<tolvarcore::BlockProcessor>(blockSize, flags);

  const WorkerResult result = OpenHandle(*handle, volume, fromSnapshotId, toSnapshotId);
  if (result != WorkerResult::kOk) return tolvarapi::HandleStatus(result);
  *handle_out = handle.release();
  return TOLVAR_OK;
}

extern "C" void FreeHandle(TolvarHandle handle) { delete static_cast<TrackingHandle*>(handle); }

extern "C" int32_t GetDiffBitmap(TolvarHandle handle, unsigned char* buffer, uint64_t* size) {
  if (handle == nullptr || size == nullptr) return TOLVAR_E_FAILED;
  const tolvarcore::BlockProcessor& processor = *static_cast<TrackingHandle*>(handle)->blockProcessor;
  const uint64_t length = processor.GetBitmap() ? processor.GetBitmap()->SizeInBytes() : 0;
  if (buffer == nullptr) {
    *size = length;
    return TOLVAR_SIZE_RETURNED;
  }
  if (*size < length) return TOLVAR_E_FAILED;
  processor.CopyBitmap(buffer);
  *size = length;
  return TOLVAR_OK;
}

extern "C" int32_t GetBlock(TolvarHandle handle, unsigned char* buffer, uint64_t* size, uint64_t* blockIndex_out,
                            uint8_t compare) {
  if (handle == nullptr || buffer == nullptr || size == nullptr) return TOLVAR_E_FAILED;
  uint64_t index = 0;
  const WorkerResult result =
      static_cast<TrackingHandle*>(handle)->blockProcessor->NextBlock(buffer, size, compare != 0, &index);
  if (result == WorkerResult::kOk && blockIndex_out != nullptr) *blockIndex_out = index;
  return tolvarapi::BlockStatus(result);
}
