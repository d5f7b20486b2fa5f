// Recognises a container by its signature, never by its file name, except
// that a raw file named NAME.001 beside a NAME.002 is the first piece of a
// split raw image.
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "common/error_queue.h"
#include "ntfsparsercore/io/container_opener.h"
#include "ntfsparsercore/io/containers/container_sources.h"
#include "ntfsparsercore/io/split_raw_source.h"
#include "ntfsparsercore/io/system_file.h"

using tolvarcommon::kErrorIo;
using tolvarcommon::ReportError;

namespace ntfsparsercore {
namespace io {

namespace {

constexpr uint64_t kProbeSize = 512;  // the head and, for VHD, the footer
constexpr int kMostPieces = 9999;     // .001 to .9999

struct Signature {
  uint64_t offset;
  const char* bytes;
  std::size_t length;
};

bool Matches(const uint8_t* head, const Signature& signature) {
  return std::memcmp(head + signature.offset, signature.bytes, signature.length) == 0;
}

// Formats that are not disk images, or that tolvar does not read: said so plainly.
const struct {
  Signature signature;
  const char* what;
} kRefused[] = {
    {{0, "\x1f\x8b", 2}, "a gzip-compressed file, not a disk image: unpack it first"},
    {{0,
      "\xfd"
      "7zXZ\x00",
      6},
     "an xz-compressed file, not a disk image: unpack it first"},
    {{0, "BZh", 3}, "a bzip2-compressed file, not a disk image: unpack it first"},
    {{0, "\x28\xb5\x2f\xfd", 4}, "a zstd-compressed file, not a disk image: unpack it first"},
    {{0, "PK\x03\x04", 4}, "a zip archive, not a disk image: unpack it first"},
    {{0, "7z\xbc\xaf\x27\x1c", 6}, "a 7-zip archive, not a disk image: unpack it first"},
    {{64, "\x7f\x10\xda\xbe", 4}, "a VirtualBox VDI image, an unknown container: convert it (qemu-img convert -O raw)"},
    {{0, "LVF\x09\x0d\x0a\xff\x00", 8}, "an EWF logical evidence file (L01), not a disk image"},
};

const Signature kEwf = {0, "EVF\x09\x0d\x0a\xff\x00", 8};
const Signature kEwf2 = {0, "EVF2\x0d\x0a\x81\x00", 8};
const Signature kQcow = {0, "QFI\xfb", 4};
const Signature kVhdx = {0, "vhdxfile", 8};
const Signature kVhd = {0, "conectix", 8};
const Signature kVmdkSparse = {0, "KDMV", 4};
const Signature kVmdkCowd = {0, "COWD", 4};
const Signature kVmdkDescriptor = {0, "# Disk DescriptorFile", 21};

bool Exists(const std::string& path) {
  struct stat status;
  return ::stat(path.c_str(), &status) == 0;
}

std::string PieceName(const std::string& stem, int number) {
  char suffix[16];
  std::snprintf(suffix, sizeof(suffix), ".%03d", number);
  return stem + suffix;
}

// NAME.001 with NAME.002 beside it: every piece from .001 on, in order.
std::unique_ptr<ISource> OpenSplitRaw(const std::string& path, std::unique_ptr<SystemFile> first) {
  const std::string stem = path.substr(0, path.size() - 4);
  std::vector<std::unique_ptr<ISource>> pieces;
  pieces.push_back(std::move(first));
  for (int number = 2; number <= kMostPieces && Exists(PieceName(stem, number)); ++number) {
    std::unique_ptr<SystemFile> piece = SystemFile::Open(PieceName(stem, number).c_str());
    if (!piece) return nullptr;
    pieces.push_back(std::move(piece));
  }
  return std::make_unique<SplitRawSource>(std::move(pieces));
}

bool IsFirstPiece(const std::string& path) {
  return path.size() > 4 && path.compare(path.size() - 4, 4, ".001") == 0 &&
         Exists(path.substr(0, path.size() - 4) + ".002");
}

// A container whose disk cannot give its first sector is truncated or
// damaged: said here, rather than later as a disk without a volume.
std::unique_ptr<ISource> Readable(const std::string& path, std::unique_ptr<ISource> disk) {
  if (!disk) return nullptr;
  uint8_t sector[kProbeSize];
  const uint64_t want = std::min<uint64_t>(sizeof(sector), disk->GetSize());
  if (want == 0 || disk->Read(sector, want, 0) != want) {
    ReportError(kErrorIo,
                "%s: the disk inside the image cannot be read from its start: the image is truncated or damaged",
                path.c_str());
    return nullptr;
  }
  return disk;
}

}  // namespace

std::unique_ptr<ISource> ContainerOpener::Open(const std::string& path) {
  std::unique_ptr<SystemFile> file = SystemFile::Open(path.c_str());
  if (!file) return nullptr;
  uint8_t head[kProbeSize] = {};
  uint8_t foot[kProbeSize] = {};
  const uint64_t size = file->GetSize();
  file->Read(head, sizeof(head), 0);
  if (size >= kProbeSize) file->Read(foot, sizeof(foot), size - kProbeSize);

  for (const auto& refused : kRefused) {
    if (Matches(head, refused.signature)) {
      ReportError(kErrorIo, "%s: %s", path.c_str(), refused.what);
      return nullptr;
    }
  }
  if (Matches(head, kEwf) || Matches(head, kEwf2)) return Readable(path, EwfSource::Open(path));
  if (Matches(head, kQcow)) return Readable(path, QcowSource::Open(path));
  if (Matches(head, kVhdx) || Matches(head, kVhd) || Matches(foot, kVhd)) return Readable(path, VhdiSource::Open(path));
  if (Matches(head, kVmdkSparse) || Matches(head, kVmdkCowd) || Matches(head, kVmdkDescriptor)) {
    return Readable(path, VmdkSource::Open(path));
  }
  if (IsFirstPiece(path)) return OpenSplitRaw(path, std::move(file));
  return file;
}

}  // namespace io
}  // namespace ntfsparsercore
