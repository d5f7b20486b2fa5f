// qcow images through libqcow. Encrypted images are refused: there is no
// way to pass a password. An image with a backing file is refused too: its
// unallocated clusters live in the backing image, and libqcow (20221124)
// reads such chains wrong: it takes the backing file's bytes for clusters
// the image marks as zeros (qcow2 version 3), and a range that starts in a
// cluster the image does not hold and runs on into one it holds comes
// wholly from the backing file.
#include <libqcow.h>

#include "common/error_queue.h"
#include "ntfsparsercore/io/containers/container_sources.h"
#include "ntfsparsercore/io/containers/libyal_error.h"

using tolvarcommon::kErrorIo;
using tolvarcommon::ReportError;

namespace ntfsparsercore {
namespace io {

namespace {

std::string ErrorText(libqcow_error_t* error) {
  return LibyalErrorText(error, libqcow_error_sprint, libqcow_error_free);
}

class QcowImage : public ISource {
 public:
  explicit QcowImage(libqcow_file_t* file) : file_(file) {
    size64_t size = 0;
    if (libqcow_file_get_media_size(file_, &size, nullptr) == 1) size_ = size;
  }
  ~QcowImage() override {
    libqcow_file_close(file_, nullptr);
    libqcow_file_free(&file_, nullptr);
  }
  QcowImage(const QcowImage&) = delete;
  QcowImage& operator=(const QcowImage&) = delete;

  uint64_t Read(void* buffer, uint64_t size, uint64_t offset) override {
    return ReadMedium(size_, buffer, size, offset, [this](uint8_t* out, uint64_t count, uint64_t at) {
      return static_cast<int64_t>(libqcow_file_read_buffer_at_offset(file_, out, static_cast<size_t>(count),
                                                                     static_cast<off64_t>(at), nullptr));
    });
  }
  uint64_t GetSize() override { return size_; }

 private:
  libqcow_file_t* file_;
  uint64_t size_ = 0;
};

void Release(libqcow_file_t* file, bool opened) {
  if (opened) libqcow_file_close(file, nullptr);
  libqcow_file_free(&file, nullptr);
}

}  // namespace

std::unique_ptr<ISource> QcowSource::Open(const std::string& path) {
  libqcow_error_t* error = nullptr;
  libqcow_file_t* file = nullptr;
  if (libqcow_file_initialize(&file, &error) != 1) {
    ReportError(kErrorIo, "%s: %s", path.c_str(), ErrorText(error).c_str());
    return nullptr;
  }
  if (libqcow_file_open(file, path.c_str(), LIBQCOW_OPEN_READ, &error) != 1) {
    Release(file, false);
    ReportError(kErrorIo, "%s: cannot open the qcow image: %s", path.c_str(), ErrorText(error).c_str());
    return nullptr;
  }
  uint32_t encryption = LIBQCOW_ENCRYPTION_METHOD_NONE;
  if (libqcow_file_get_encryption_method(file, &encryption, nullptr) == 1 &&
      encryption != LIBQCOW_ENCRYPTION_METHOD_NONE) {
    Release(file, true);
    ReportError(kErrorIo, "%s: the qcow image is encrypted; decrypt it first (qemu-img convert)", path.c_str());
    return nullptr;
  }
  size_t backingSize = 0;
  if (libqcow_file_get_utf8_backing_filename_size(file, &backingSize, nullptr) == 1 && backingSize > 1) {
    Release(file, true);
    ReportError(kErrorIo,
                "%s: the qcow image has a backing file, which libqcow does not read correctly; "
                "flatten the chain first (qemu-img convert -O raw)",
                path.c_str());
    return nullptr;
  }
  return std::make_unique<QcowImage>(file);
}

}  // namespace io
}  // namespace ntfsparsercore
