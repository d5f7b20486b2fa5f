// Linux: the disk inside a disk-image container, each read through the
// Debian library made for its format and built in only when that library
// was found (a build without it names the missing library instead). Each
// Open returns null with one line on the error queue (code 1) saying why
// when the image cannot be opened.
#ifndef TOLVAR_NTFSPARSERCORE_IO_CONTAINERS_CONTAINER_SOURCES_H_
#define TOLVAR_NTFSPARSERCORE_IO_CONTAINERS_CONTAINER_SOURCES_H_

#include <memory>
#include <string>

#include "ntfsparsercore/io/i_source.h"

namespace ntfsparsercore {
namespace io {

// EnCase images (E01, Ex01, S01) with all their segments, through libewf.
struct EwfSource {
  static std::unique_ptr<ISource> Open(const std::string& path);
};

// qcow version 1, 2 and 3, through libqcow.
struct QcowSource {
  static std::unique_ptr<ISource> Open(const std::string& path);
};

// VHD and VHDX, fixed, dynamic and differencing (the parent found beside
// the image by the name the image records), through libvhdi.
struct VhdiSource {
  static std::unique_ptr<ISource> Open(const std::string& path);
};

// VMDK, flat and sparse, monolithic and split (the extents named by the
// descriptor, beside it), through libvmdk.
struct VmdkSource {
  static std::unique_ptr<ISource> Open(const std::string& path);
};

}  // namespace io
}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_IO_CONTAINERS_CONTAINER_SOURCES_H_
