#include "cli/image_probe.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "cli/big_endian.h"
#include "cli/qcow2_header.h"

namespace tolvarcli {

bool ImageProbe::Probe(const std::string& path) {
  std::error_code error;
  const uint64_t fileSize = std::filesystem::file_size(path, error);
  if (error) return false;
  std::ifstream in(path, std::ios::binary);
  uint8_t head[Qcow2Header::kSizeOffset + 8] = {};
  in.read(reinterpret_cast<char*>(head), sizeof head);
  if (!in && !in.eof()) return false;
  if (static_cast<uint64_t>(in.gcount()) == sizeof head &&
      std::memcmp(head + Qcow2Header::kMagicOffset, Qcow2Header::kMagic, sizeof Qcow2Header::kMagic) == 0) {
    format = "qcow2";
    virtualSize = LoadBe64(head + Qcow2Header::kSizeOffset);
  } else {
    format = "raw";
    virtualSize = fileSize;
  }
  return true;
}

}  // namespace tolvarcli
