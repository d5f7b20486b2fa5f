// VMDK images through libvmdk: the descriptor (a monolithic sparse file
// carries its own) names the extent files, which are opened from the
// descriptor's directory. Images with a parent (snapshots) are refused.
#include <libvmdk.h>

#include "common/error_queue.h"
#include "ntfsparsercore/io/containers/container_sources.h"
#include "ntfsparsercore/io/containers/libyal_error.h"

using tolvarcommon::kErrorIo;
using tolvarcommon::ReportError;

namespace ntfsparsercore {
namespace io {

namespace {

std::string ErrorText(libvmdk_error_t* error) {
  return LibyalErrorText(error, libvmdk_error_sprint, libvmdk_error_free);
}

void Release(libvmdk_handle_t* handle, bool opened) {
  if (opened) libvmdk_handle_close(handle, nullptr);
  libvmdk_handle_free(&handle, nullptr);
}

class VmdkImage : public ISource {
 public:
  explicit VmdkImage(libvmdk_handle_t* handle) : handle_(handle) {
    size64_t size = 0;
    if (libvmdk_handle_get_media_size(handle_, &size, nullptr) == 1) size_ = size;
  }
  ~VmdkImage() override { Release(handle_, true); }
  VmdkImage(const VmdkImage&) = delete;
  VmdkImage& operator=(const VmdkImage&) = delete;

  uint64_t Read(void* buffer, uint64_t size, uint64_t offset) override {
    return ReadMedium(size_, buffer, size, offset, [this](uint8_t* out, uint64_t count, uint64_t at) {
      return static_cast<int64_t>(libvmdk_handle_read_buffer_at_offset(handle_, out, static_cast<size_t>(count),
                                                                       static_cast<off64_t>(at), nullptr));
    });
  }
  uint64_t GetSize() override { return size_; }

 private:
  libvmdk_handle_t* handle_;
  uint64_t size_ = 0;
};

}  // namespace

std::unique_ptr<ISource> VmdkSource::Open(const std::string& path) {
  libvmdk_error_t* error = nullptr;
  libvmdk_handle_t* handle = nullptr;
  if (libvmdk_handle_initialize(&handle, &error) != 1) {
    ReportError(kErrorIo, "%s: %s", path.c_str(), ErrorText(error).c_str());
    return nullptr;
  }
  if (libvmdk_handle_open(handle, path.c_str(), LIBVMDK_OPEN_READ, &error) != 1) {
    Release(handle, false);
    ReportError(kErrorIo, "%s: cannot open the VMDK image: %s", path.c_str(), ErrorText(error).c_str());
    return nullptr;
  }
  size_t parentSize = 0;
  if (libvmdk_handle_get_utf8_parent_filename_size(handle, &parentSize, nullptr) == 1 && parentSize > 1) {
    Release(handle, true);
    ReportError(kErrorIo, "%s: the VMDK image has a parent; flatten it first (qemu-img convert)", path.c_str());
    return nullptr;
  }
  if (libvmdk_handle_open_extent_data_files(handle, &error) != 1) {
    Release(handle, true);
    ReportError(kErrorIo, "%s: cannot open the VMDK extent files: %s", path.c_str(), ErrorText(error).c_str());
    return nullptr;
  }
  return std::make_unique<VmdkImage>(handle);
}

}  // namespace io
}  // namespace ntfsparsercore
