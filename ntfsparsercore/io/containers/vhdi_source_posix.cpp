// VHD and VHDX images through libvhdi. A differencing image's parent is
// looked for in the image's own directory, by the file name the image
// records (its directory part, often a Windows path, is not used); the
// parent may be differencing too.
#include <libvhdi.h>

#include <vector>

#include "common/error_queue.h"
#include "ntfsparsercore/io/containers/container_sources.h"
#include "ntfsparsercore/io/containers/libyal_error.h"

using tolvarcommon::kErrorIo;
using tolvarcommon::ReportError;

namespace ntfsparsercore {
namespace io {

namespace {

constexpr int kDeepestChain = 16;  // bounds a chain of parents that names itself

std::string ErrorText(libvhdi_error_t* error) {
  return LibyalErrorText(error, libvhdi_error_sprint, libvhdi_error_free);
}

void Release(libvhdi_file_t* file) {
  libvhdi_file_close(file, nullptr);
  libvhdi_file_free(&file, nullptr);
}

// The chain from the image to its last parent; the image reads through them all.
class VhdiImage : public ISource {
 public:
  explicit VhdiImage(std::vector<libvhdi_file_t*> chain) : chain_(std::move(chain)) {
    size64_t size = 0;
    if (libvhdi_file_get_media_size(chain_.front(), &size, nullptr) == 1) size_ = size;
  }
  ~VhdiImage() override {
    for (libvhdi_file_t* file : chain_) Release(file);
  }
  VhdiImage(const VhdiImage&) = delete;
  VhdiImage& operator=(const VhdiImage&) = delete;

  uint64_t Read(void* buffer, uint64_t size, uint64_t offset) override {
    return ReadMedium(size_, buffer, size, offset, [this](uint8_t* out, uint64_t count, uint64_t at) {
      return static_cast<int64_t>(libvhdi_file_read_buffer_at_offset(chain_.front(), out, static_cast<size_t>(count),
                                                                     static_cast<off64_t>(at), nullptr));
    });
  }
  uint64_t GetSize() override { return size_; }

 private:
  std::vector<libvhdi_file_t*> chain_;  // the image first, then each parent
  uint64_t size_ = 0;
};

libvhdi_file_t* OpenFile(const std::string& path) {
  libvhdi_error_t* error = nullptr;
  libvhdi_file_t* file = nullptr;
  if (libvhdi_file_initialize(&file, &error) != 1) {
    ReportError(kErrorIo, "%s: %s", path.c_str(), ErrorText(error).c_str());
    return nullptr;
  }
  if (libvhdi_file_open(file, path.c_str(), LIBVHDI_OPEN_READ, &error) != 1) {
    libvhdi_file_free(&file, nullptr);
    ReportError(kErrorIo, "%s: cannot open the VHD/VHDX image: %s", path.c_str(), ErrorText(error).c_str());
    return nullptr;
  }
  return file;
}

// The parent's path: the recorded name's last component, in child's directory.
std::string ParentPath(libvhdi_file_t* file, const std::string& child) {
  size_t size = 0;
  if (libvhdi_file_get_utf8_parent_filename_size(file, &size, nullptr) != 1 || size <= 1) return "";
  std::vector<uint8_t> name(size);
  if (libvhdi_file_get_utf8_parent_filename(file, name.data(), size, nullptr) != 1) return "";
  std::string recorded(reinterpret_cast<const char*>(name.data()));
  const std::size_t cut = recorded.find_last_of("\\/");
  if (cut != std::string::npos) recorded = recorded.substr(cut + 1);
  const std::size_t slash = child.rfind('/');
  return (slash == std::string::npos ? std::string() : child.substr(0, slash + 1)) + recorded;
}

bool IsDifferencing(libvhdi_file_t* file) {
  uint32_t type = 0;
  return libvhdi_file_get_disk_type(file, &type, nullptr) == 1 && type == LIBVHDI_DISK_TYPE_DIFFERENTIAL;
}

}  // namespace

std::unique_ptr<ISource> VhdiSource::Open(const std::string& path) {
  std::vector<libvhdi_file_t*> chain;
  auto fail = [&chain]() {
    for (libvhdi_file_t* file : chain) Release(file);
    return std::unique_ptr<ISource>();
  };
  std::string current = path;
  libvhdi_file_t* file = OpenFile(current);
  if (file == nullptr) return nullptr;
  chain.push_back(file);
  while (IsDifferencing(file)) {
    if (chain.size() == kDeepestChain) {
      ReportError(kErrorIo, "%s: the chain of differencing parents is longer than %d", path.c_str(), kDeepestChain);
      return fail();
    }
    const std::string parentPath = ParentPath(file, current);
    libvhdi_file_t* parent = parentPath.empty() ? nullptr : OpenFile(parentPath);
    if (parent == nullptr) {
      ReportError(kErrorIo, "%s: the parent of the differencing image %s cannot be opened%s%s", path.c_str(),
                  current.c_str(), parentPath.empty() ? "" : ": looked for ", parentPath.c_str());
      return fail();
    }
    chain.push_back(parent);
    libvhdi_error_t* error = nullptr;
    if (libvhdi_file_set_parent_file(file, parent, &error) != 1) {
      ReportError(kErrorIo, "%s: %s is not the parent of %s: %s", path.c_str(), parentPath.c_str(), current.c_str(),
                  ErrorText(error).c_str());
      return fail();
    }
    file = parent;
    current = parentPath;
  }
  return std::make_unique<VhdiImage>(std::move(chain));
}

}  // namespace io
}  // namespace ntfsparsercore
