// A raw image: the volume's bytes as they are. In a file of our own,
// bytes no block covers are holes (the file is sparse); on standard
// output, a FIFO or a device they are written as zeros.
#ifndef TOLVAR_CLI_RAW_IMAGE_WRITER_H_
#define TOLVAR_CLI_RAW_IMAGE_WRITER_H_

#include <string>
#include <utility>

#include "cli/image_writer.h"
#include "cli/output_file.h"

namespace tolvarcli {

class RawImageWriter : public ImageWriter {
 public:
  explicit RawImageWriter(std::string path) : out_(std::move(path)) {}

  bool Open(uint64_t size) override;
  bool Put(uint64_t offset, const uint8_t* data, std::size_t size) override;
  bool PutZeros(uint64_t offset, uint64_t size) override;
  bool Commit() override;
  std::string WritingName() const override { return out_.WritingName(); }
  bool IsStandardOutput() const override { return out_.IsStandardOutput(); }
  bool Fits() const override { return true; }

 private:
  bool SkipTo(uint64_t offset);

  OutputFile out_;     // the target
  uint64_t size_ = 0;  // bytes of the image
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_RAW_IMAGE_WRITER_H_
