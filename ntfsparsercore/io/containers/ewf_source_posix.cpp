// EWF images through libewf: the segment files are found by libewf's own
// naming rules (E01, E02, ... EAA; Ex01, Ex02, ...; S01, ...).
#include <libewf.h>

#include <vector>

#include "common/error_queue.h"
#include "ntfsparsercore/io/containers/container_sources.h"
#include "ntfsparsercore/io/containers/libyal_error.h"

using tolvarcommon::kErrorIo;
using tolvarcommon::ReportError;

namespace ntfsparsercore {
namespace io {

namespace {

std::string ErrorText(libewf_error_t* error) { return LibyalErrorText(error, libewf_error_sprint, libewf_error_free); }

class EwfImage : public ISource {
 public:
  explicit EwfImage(libewf_handle_t* handle) : handle_(handle) {
    size64_t size = 0;
    if (libewf_handle_get_media_size(handle_, &size, nullptr) == 1) size_ = size;
  }
  ~EwfImage() override {
    libewf_handle_close(handle_, nullptr);
    libewf_handle_free(&handle_, nullptr);
  }
  EwfImage(const EwfImage&) = delete;
  EwfImage& operator=(const EwfImage&) = delete;

  uint64_t Read(void* buffer, uint64_t size, uint64_t offset) override {
    return ReadMedium(size_, buffer, size, offset, [this](uint8_t* out, uint64_t count, uint64_t at) {
      return static_cast<int64_t>(
          libewf_handle_read_random(handle_, out, static_cast<size_t>(count), static_cast<off64_t>(at), nullptr));
    });
  }
  uint64_t GetSize() override { return size_; }

 private:
  libewf_handle_t* handle_;
  uint64_t size_ = 0;
};

}  // namespace

std::unique_ptr<ISource> EwfSource::Open(const std::string& path) {
  libewf_error_t* error = nullptr;
  char** segments = nullptr;
  int count = 0;
  if (libewf_glob(path.c_str(), path.size(), LIBEWF_FORMAT_UNKNOWN, &segments, &count, &error) != 1) {
    ReportError(kErrorIo, "%s: cannot find the EWF segment files: %s", path.c_str(), ErrorText(error).c_str());
    return nullptr;
  }
  libewf_handle_t* handle = nullptr;
  if (libewf_handle_initialize(&handle, &error) != 1) {
    libewf_glob_free(segments, count, nullptr);
    ReportError(kErrorIo, "%s: %s", path.c_str(), ErrorText(error).c_str());
    return nullptr;
  }
  const int opened = libewf_handle_open(handle, segments, count, LIBEWF_OPEN_READ, &error);
  libewf_glob_free(segments, count, nullptr);
  if (opened != 1) {
    libewf_handle_free(&handle, nullptr);
    ReportError(kErrorIo, "%s: cannot open the EWF image (%d segment file%s found): %s", path.c_str(), count,
                count == 1 ? "" : "s", ErrorText(error).c_str());
    return nullptr;
  }
  if (libewf_handle_segment_files_corrupted(handle, nullptr) == 1) {
    libewf_handle_close(handle, nullptr);
    libewf_handle_free(&handle, nullptr);
    ReportError(kErrorIo, "%s: the EWF segment files are damaged or incomplete", path.c_str());
    return nullptr;
  }
  return std::make_unique<EwfImage>(handle);
}

}  // namespace io
}  // namespace ntfsparsercore
