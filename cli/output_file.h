// A file the command writes. OUT is one of three kinds:
//   "-": standard output, written in order;
//   an existing path that is not a regular file (a device, a FIFO): written
//   in place, never replaced;
//   anything else: written as OUT.partial beside it and renamed to OUT only
//   by Commit, so that a failed command leaves nothing under OUT's name.
#ifndef TOLVAR_CLI_OUTPUT_FILE_H_
#define TOLVAR_CLI_OUTPUT_FILE_H_

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

namespace tolvarcli {

class OutputFile {
 public:
  // The name that means standard output.
  // Pieces from this size on are written around the stdio buffer.
  static constexpr std::size_t kWriteThroughSize = 64 << 10;
  static constexpr const char* kStandardOutput = "-";
  static constexpr const char* kTemporarySuffix = ".partial";

  explicit OutputFile(std::string path);
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  // Closes and, unless Commit succeeded, removes the temporary file.
  ~OutputFile();

  // Opens what is written: standard output, the node in place, or the
  // temporary file (created empty).
  bool Open();

  // Appends size bytes at the current position.
  bool Write(const void* data, std::size_t size);

  // Appends size zero bytes: a hole in a file of our own, written zeros in
  // anything else (a device must not keep what it held, a stream cannot
  // seek).
  bool WriteZeros(uint64_t size);

  // Writes at offset and leaves the position after the bytes written.
  // False when the output cannot seek (standard output, a FIFO).
  bool WriteAt(uint64_t offset, const void* data, std::size_t size);

  // Flushes and closes; a temporary file gets its full length (a trailing
  // hole) and is renamed to the target.
  bool Commit();

  // True for "-".
  bool IsStandardOutput() const { return kind_ == Kind::kStandardOutput; }
  // True when the output is a regular file of our own, where zeros become holes.
  bool IsOwnFile() const { return kind_ == Kind::kTemporary; }
  // True when WriteAt works: a file of our own or a block device, not
  // standard output, a FIFO or a character device.
  bool CanSeek() const;
  // The name to put in a message about a failed write.
  std::string WritingName() const;
  // The target as given.
  const std::string& Path() const { return path_; }
  uint64_t Position() const { return position_; }

 private:
  enum class Kind { kTemporary, kInPlace, kStandardOutput };
  static constexpr std::size_t kBufferSize = 1 << 20;

  bool MoveTo(uint64_t offset);

  std::string path_;                // the target as given
  std::string temporary_;           // OUT.partial for kTemporary
  Kind kind_;                       // decided when constructed
  std::FILE* stream_ = nullptr;     // open between Open and Commit
  std::unique_ptr<char[]> buffer_;  // the stream's buffer
  uint64_t position_ = 0;           // where the next byte goes
  uint64_t streamPosition_ = 0;     // where the stream's position is
  uint64_t end_ = 0;                // bytes of output, holes included
  bool committed_ = false;          // Commit succeeded
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_OUTPUT_FILE_H_
