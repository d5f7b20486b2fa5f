#include "cli/stream_copier.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "api/error_recorder.h"
#include "ntfsparsercore/attributes/readers/i_reader.h"
#include "ntfsparsercore/attributes/readers/lznt1_decoder.h"
#include "ntfsparsercore/io/little_endian.h"

namespace tolvarcli {

namespace {

// Writes data[0, n) of the value at position, zeroing what lies at or past
// the initialized size.
bool WritePiece(std::vector<uint8_t>& data, uint64_t n, uint64_t position, uint64_t initialized, std::FILE* out) {
  if (position + n > initialized) {
    const uint64_t from = position >= initialized ? 0 : initialized - position;
    std::memset(data.data() + from, 0, static_cast<std::size_t>(n - from));
  }
  return std::fwrite(data.data(), 1, static_cast<std::size_t>(n), out) == n;
}

// LZNT1 chunk headers carry 3 in bits 12 to 14.
constexpr uint16_t kChunkSignatureMask = 0x7000;
constexpr uint16_t kChunkSignature = 0x3000;

// The last piece of a compressed value that holds fewer clusters than a
// unit and has no unallocated run after it: the parser's reader takes it as
// stored whole, but a writer that allocates only the clusters it needs
// (ntfs-3g) leaves a compressed unit there. When its bytes start an LZNT1
// chunk and expand to at least n bytes, the expansion goes into data.
bool ExpandShortTail(ntfsparsercore::NtfsVolume& volume, const ntfsparsercore::attributes::readers::Extent& extent,
                     uint64_t unit, uint64_t n, std::vector<uint8_t>* data) {
  const uint64_t clusterSize = volume.GetClusterSize();
  if (clusterSize == 0 || extent.volumeOffset == 0 || extent.logicalSize >= unit) return false;
  const uint64_t stored = (extent.storedSize + clusterSize - 1) / clusterSize * clusterSize;
  std::vector<uint8_t> bytes(static_cast<std::size_t>(stored));
  if (volume.Read(bytes.data(), stored, extent.volumeOffset) != stored || stored < 2) return false;
  if ((ntfsparsercore::io::LoadLe16(bytes.data()) & kChunkSignatureMask) != kChunkSignature) return false;
  std::vector<uint8_t> expanded(static_cast<std::size_t>(unit), 0);
  const uint64_t produced = ntfsparsercore::attributes::readers::Lznt1Decoder::ExpandUnit(
      bytes.data(), stored, expanded.data(), unit, extent.volumeOffset, clusterSize);
  if (produced < n) return false;
  std::copy(expanded.begin(), expanded.begin() + static_cast<std::ptrdiff_t>(n), data->begin());
  return true;
}

}  // namespace

StreamCopier::Result StreamCopier::Copy(ntfsparsercore::NtfsVolume& volume, const DataStream& stream, std::FILE* out,
                        std::string* error) {
  if (stream.resident) {
    if (stream.residentValue.size() < stream.size) {
      *error = "the resident value is shorter than its size";
      return kReadFailed;
    }
    if (std::fwrite(stream.residentValue.data(), 1, stream.residentValue.size(), out) != stream.residentValue.size()) {
      *error = "cannot write the output";
      return kWriteFailed;
    }
    return kCopied;
  }
  ErrorRecorder recorder;  // the parser's messages are not the command's to show
  auto reader = stream.attribute ? stream.attribute->CreateReader() : nullptr;
  if (!reader) {
    *error = "the data stream cannot be read";
    return kReadFailed;
  }
  // A compressed value is read one compression unit at a time from a unit's
  // start; a plain one in chunks that never cross the end of a run.
  const uint64_t unit = volume.GetClusterSize() << stream.attribute->GetCompressionUnit();
  const uint64_t chunk = stream.compressed ? unit : kChunkSize;
  std::vector<uint8_t> data(static_cast<std::size_t>(std::max<uint64_t>(chunk, 1)));
  uint64_t position = 0;
  const auto extents = reader->GetExtents();
  for (std::size_t e = 0; e < extents.size(); ++e) {
    const auto& extent = extents[e];
    const bool shortTail = stream.compressed && e + 1 == extents.size() && extent.storedSize == extent.logicalSize;
    for (uint64_t done = 0; done < extent.logicalSize && position < stream.size;) {
      const uint64_t n = std::min({chunk, extent.logicalSize - done, stream.size - position});
      std::fill(data.begin(), data.end(), 0);
      if (!(shortTail && ExpandShortTail(volume, extent, unit, n, &data)) && reader->Read(data.data(), n, position) < n) {
        *error = "cannot read the data at byte " + std::to_string(position);
        return kReadFailed;
      }
      if (!WritePiece(data, n, position, stream.initializedSize, out)) {
        *error = "cannot write the output";
        return kWriteFailed;
      }
      done += n;
      position += n;
    }
  }
  // Runs that end before the size leave the rest unallocated: zeros.
  std::fill(data.begin(), data.end(), 0);
  while (position < stream.size) {
    const uint64_t n = std::min<uint64_t>(data.size(), stream.size - position);
    if (std::fwrite(data.data(), 1, static_cast<std::size_t>(n), out) != n) {
      *error = "cannot write the output";
      return kWriteFailed;
    }
    position += n;
  }
  return kCopied;
}

}  // namespace tolvarcli
