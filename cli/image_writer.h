// An image the command writes block by block (an exported snapshot, an
// increment as an overlay): raw or qcow2. Blocks come in ascending order;
// bytes that no block covers read as zero, or, in an image with a backing
// file, as the backing file has them.
#ifndef TOLVAR_CLI_IMAGE_WRITER_H_
#define TOLVAR_CLI_IMAGE_WRITER_H_

#include <cstddef>
#include <cstdint>
#include <string>

namespace tolvarcli {

class ImageWriter {
 public:
  virtual ~ImageWriter() = default;

  // Opens the output for an image of size bytes.
  virtual bool Open(uint64_t size) = 0;

  // Stores size bytes at offset, past every byte stored before.
  virtual bool Put(uint64_t offset, const uint8_t* data, std::size_t size) = 0;

  // Stores size zero bytes at offset, past every byte stored before, where
  // a backing file must not show through.
  virtual bool PutZeros(uint64_t offset, uint64_t size) = 0;

  // Completes the image and puts it under its name.
  virtual bool Commit() = 0;

  // The name to put in a message about a failed write.
  virtual std::string WritingName() const = 0;
  virtual bool IsStandardOutput() const = 0;
  // False when the format needs to seek and the output cannot.
  virtual bool Fits() const = 0;
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_IMAGE_WRITER_H_
