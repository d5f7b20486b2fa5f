#include "cli/output_file.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

#include "cli/stdio_file.h"

namespace tolvarcli {

namespace {

constexpr std::size_t kZeroChunk = 1 << 20;

bool ExistsAndIsNotRegular(const std::string& path) {
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(path, error);
  return !error && std::filesystem::exists(status) && !std::filesystem::is_regular_file(status);
}

}  // namespace

OutputFile::OutputFile(std::string path) : path_(std::move(path)) {
  if (path_ == kStandardOutput) {
    kind_ = Kind::kStandardOutput;
  } else if (ExistsAndIsNotRegular(path_)) {
    kind_ = Kind::kInPlace;
  } else {
    kind_ = Kind::kTemporary;
    temporary_ = path_ + kTemporarySuffix;
  }
}

OutputFile::~OutputFile() {
  if (stream_ != nullptr && kind_ != Kind::kStandardOutput) std::fclose(stream_);
  if (kind_ != Kind::kTemporary || committed_ || stream_ == nullptr) return;
  std::error_code ignored;
  std::filesystem::remove(temporary_, ignored);
}

bool OutputFile::Open() {
  if (kind_ == Kind::kStandardOutput) {
    std::fflush(stdout);
    SetBinaryMode(stdout);
    stream_ = stdout;
  } else {
    // "wb" truncates a file of our own; a device or a FIFO is opened as it is.
    stream_ = std::fopen(kind_ == Kind::kTemporary ? temporary_.c_str() : path_.c_str(), "wb");
    if (stream_ == nullptr) return false;
  }
  buffer_.reset(new char[kBufferSize]);
  std::setvbuf(stream_, buffer_.get(), _IOFBF, kBufferSize);
  return true;
}

bool OutputFile::CanSeek() const {
  if (kind_ != Kind::kInPlace) return kind_ == Kind::kTemporary;
  std::error_code error;
  return std::filesystem::is_block_file(path_, error);
}

std::string OutputFile::WritingName() const {
  switch (kind_) {
    case Kind::kStandardOutput:
      return "standard output";
    case Kind::kTemporary:
      return temporary_;
    case Kind::kInPlace:
      break;
  }
  return path_;
}

bool OutputFile::MoveTo(uint64_t offset) {
  if (offset == streamPosition_) return true;
  if (!SeekFile(stream_, offset)) return false;
  streamPosition_ = offset;
  return true;
}

bool OutputFile::Write(const void* data, std::size_t size) {
  if (stream_ == nullptr) return false;
  // An empty piece (an empty table's data may be null) writes nothing.
  if (size == 0) return true;
  if (!MoveTo(position_)) return false;
  // Large pieces go around the buffer: copying them into it costs more than
  // the write they would save.
  const bool written =
      size >= kWriteThroughSize ? WriteThrough(stream_, data, size) : std::fwrite(data, 1, size, stream_) == size;
  if (!written) return false;
  position_ += size;
  streamPosition_ = position_;
  end_ = std::max(end_, position_);
  return true;
}

bool OutputFile::WriteZeros(uint64_t size) {
  if (kind_ == Kind::kTemporary) {
    position_ += size;
    end_ = std::max(end_, position_);
    return true;
  }
  static const std::vector<uint8_t> zeros(kZeroChunk, 0);
  while (size > 0) {
    const std::size_t piece = static_cast<std::size_t>(std::min<uint64_t>(size, zeros.size()));
    if (!Write(zeros.data(), piece)) return false;
    size -= piece;
  }
  return true;
}

bool OutputFile::WriteAt(uint64_t offset, const void* data, std::size_t size) {
  if (kind_ == Kind::kStandardOutput) return false;
  position_ = offset;
  return Write(data, size);
}

bool OutputFile::Commit() {
  if (stream_ == nullptr) return false;
  bool written = std::fflush(stream_) == 0 && std::ferror(stream_) == 0;
  if (kind_ == Kind::kStandardOutput) {
    stream_ = nullptr;
    committed_ = written;
    return written;
  }
  written = std::fclose(stream_) == 0 && written;
  stream_ = nullptr;
  if (kind_ == Kind::kTemporary) {
    std::error_code error;
    if (written) {
      // A hole at the end leaves the file short until it is given its length.
      if (std::filesystem::file_size(temporary_, error) < end_ && !error) {
        std::filesystem::resize_file(temporary_, end_, error);
      }
      if (!error) std::filesystem::rename(temporary_, path_, error);
    }
    if (!written || error) {
      std::filesystem::remove(temporary_, error);
      return false;
    }
  }
  committed_ = written;
  return written;
}

}  // namespace tolvarcli
