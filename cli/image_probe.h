// What an image file is, as far as naming it as a backing file needs: its
// format (qcow2 by its magic, otherwise raw) and its virtual size.
#ifndef TOLVAR_CLI_IMAGE_PROBE_H_
#define TOLVAR_CLI_IMAGE_PROBE_H_

#include <cstdint>
#include <string>

namespace tolvarcli {

struct ImageProbe {
  std::string format;        // "qcow2" or "raw"
  uint64_t virtualSize = 0;  // the disk size a reader of the image sees

  // Reads path's first bytes and size; false when it cannot be read.
  bool Probe(const std::string& path);
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_IMAGE_PROBE_H_
