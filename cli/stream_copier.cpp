#include "cli/stream_copier.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "cli/run_source.h"
#include "ntfsparsercore/attributes/readers/lznt1_decoder.h"
#include "ntfsparsercore/io/little_endian.h"

namespace tolvarcli {

namespace {

using ntfsparsercore::attributes::readers::Lznt1Decoder;

// LZNT1 chunk headers carry 3 in bits 12 to 14.
constexpr uint16_t kChunkSignatureMask = 0x7000;
constexpr uint16_t kChunkSignature = 0x3000;
// The largest compression unit: 16 clusters of 2 MiB (a damaged exponent
// asks for more).
constexpr uint64_t kMaxUnitSize = uint64_t{1} << 25;
constexpr unsigned kShiftWidth = 64;

// Writes data[0, n) of the value at position, zeroing what lies at or past
// the initialized size.
bool WritePiece(std::vector<uint8_t>& data, uint64_t n, uint64_t position, uint64_t initialized, std::FILE* out) {
  if (position + n > initialized) {
    const uint64_t from = position >= initialized ? 0 : initialized - position;
    std::memset(data.data() + from, 0, static_cast<std::size_t>(n - from));
  }
  return std::fwrite(data.data(), 1, static_cast<std::size_t>(n), out) == n;
}

// One compression unit: where each of its clusters lies (0 when not stored).
struct Unit {
  std::vector<uint64_t> clusters;  // volume offsets, one per cluster of the unit the runs reach
  uint64_t stored = 0;             // clusters with a volume offset
};

// The clusters of the unit starting at cluster vcn, from the runs.
Unit UnitAt(const ntfsparsercore::RunList& runs, uint64_t clusterSize, uint64_t vcn, uint64_t clustersPerUnit) {
  Unit unit;
  uint64_t runStart = 0;  // first cluster of the run, in the value
  for (const ntfsparsercore::Run& run : runs) {
    const uint64_t count = run.length / clusterSize;
    const uint64_t from = std::max(runStart, vcn);
    const uint64_t to = std::min(runStart + count, vcn + clustersPerUnit);
    for (uint64_t c = from; c < to; ++c) {
      const uint64_t offset = run.volumeOffset == 0 ? 0 : run.volumeOffset + (c - runStart) * clusterSize;
      unit.clusters.push_back(offset);
      if (offset != 0) ++unit.stored;
    }
    runStart += count;
    if (runStart >= vcn + clustersPerUnit) break;
  }
  return unit;
}

// Expands a unit of which only some clusters are stored: those clusters'
// bytes, in order, are one LZNT1 stream. False when they cannot be read or
// do not start an LZNT1 chunk, or expand to fewer than needed bytes.
bool ExpandUnit(ntfsparsercore::NtfsVolume& volume, const Unit& unit, uint64_t unitSize, uint64_t needed,
                std::vector<uint8_t>* out) {
  const uint64_t clusterSize = volume.GetClusterSize();
  std::vector<uint8_t> stored(static_cast<std::size_t>(unit.stored * clusterSize));
  uint64_t at = 0;
  for (uint64_t offset : unit.clusters) {
    if (offset == 0) break;  // the stored clusters lead the unit
    if (volume.Read(stored.data() + at, clusterSize, offset) != clusterSize) return false;
    at += clusterSize;
  }
  if (at < 2 || (ntfsparsercore::io::LoadLe16(stored.data()) & kChunkSignatureMask) != kChunkSignature) return false;
  std::fill(out->begin(), out->end(), 0);
  // The stored bytes start cluster-aligned, so 0 places the cluster ends as the volume does.
  return Lznt1Decoder::ExpandUnit(stored.data(), at, out->data(), unitSize, 0, clusterSize) >= needed;
}

// Reads a unit stored whole (or the tail of one that is not compressed).
bool ReadWhole(ntfsparsercore::NtfsVolume& volume, const Unit& unit, uint64_t needed, std::vector<uint8_t>* out) {
  const uint64_t clusterSize = volume.GetClusterSize();
  std::fill(out->begin(), out->end(), 0);
  for (std::size_t c = 0; c < unit.clusters.size() && c * clusterSize < needed; ++c) {
    const uint64_t n = std::min(clusterSize, needed - c * clusterSize);
    if (unit.clusters[c] != 0 && volume.Read(out->data() + c * clusterSize, n, unit.clusters[c]) != n) return false;
  }
  return true;
}

StreamCopier::Result Fail(std::string* error, const std::string& text, StreamCopier::Result result) {
  *error = text;
  return result;
}

// A compressed value, unit by unit: a unit with every cluster stored is
// plain, one with none is zeros, one with fewer stored than the unit is
// LZNT1 (the stored clusters need not lie in one run). The last unit, which
// the runs may end inside, is LZNT1 when its bytes are.
StreamCopier::Result CopyCompressed(ntfsparsercore::NtfsVolume& volume, const DataStream& stream, std::FILE* out,
                                    std::string* error) {
  const uint64_t clusterSize = volume.GetClusterSize();
  const unsigned exponent = stream.compressionUnit;
  if (clusterSize == 0 || exponent >= kShiftWidth || clusterSize > (kMaxUnitSize >> exponent)) {
    return Fail(error, "the compression unit is not one NTFS uses", StreamCopier::kReadFailed);
  }
  const uint64_t clustersPerUnit = uint64_t{1} << exponent;
  const uint64_t unitSize = clusterSize << exponent;
  std::vector<uint8_t> data(static_cast<std::size_t>(unitSize));
  for (uint64_t position = 0; position < stream.size; position += unitSize) {
    const uint64_t needed = std::min(unitSize, stream.size - position);
    const Unit unit = UnitAt(stream.runs, clusterSize, position / clusterSize, clustersPerUnit);
    const bool full = unit.stored == clustersPerUnit;
    bool read = false;
    if (unit.stored == 0) {
      std::fill(data.begin(), data.end(), 0);
      read = true;
    } else if (full) {
      read = ReadWhole(volume, unit, needed, &data);
    } else {
      const bool runsEndInside = unit.clusters.size() < clustersPerUnit;
      read = ExpandUnit(volume, unit, unitSize, needed, &data) ||
             (runsEndInside && ReadWhole(volume, unit, needed, &data));
    }
    if (!read)
      return Fail(error, "cannot read the data at byte " + std::to_string(position), StreamCopier::kReadFailed);
    if (!WritePiece(data, needed, position, stream.initializedSize, out)) {
      return Fail(error, "cannot write the output", StreamCopier::kWriteFailed);
    }
  }
  return StreamCopier::kCopied;
}

// A plain value, through its runs; unallocated runs and the part the runs
// do not reach read as zeros.
StreamCopier::Result CopyPlain(ntfsparsercore::NtfsVolume& volume, const DataStream& stream, std::FILE* out,
                               std::string* error) {
  RunSource source(&volume, stream.runs, stream.size);
  std::vector<uint8_t> data(static_cast<std::size_t>(StreamCopier::kChunkSize));
  uint64_t reach = 0;
  for (const ntfsparsercore::Run& run : stream.runs) reach += run.length;
  for (uint64_t position = 0; position < stream.size;) {
    const uint64_t n = std::min(StreamCopier::kChunkSize, stream.size - position);
    std::fill(data.begin(), data.end(), 0);
    const uint64_t available = position < reach ? std::min(n, reach - position) : 0;
    if (available != 0 && source.Read(data.data(), available, position) != available) {
      return Fail(error, "cannot read the data at byte " + std::to_string(position), StreamCopier::kReadFailed);
    }
    if (!WritePiece(data, n, position, stream.initializedSize, out)) {
      return Fail(error, "cannot write the output", StreamCopier::kWriteFailed);
    }
    position += n;
  }
  return StreamCopier::kCopied;
}

}  // namespace

StreamCopier::Result StreamCopier::Copy(ntfsparsercore::NtfsVolume& volume, const DataStream& stream, std::FILE* out,
                                        std::string* error) {
  if (stream.resident) {
    if (stream.residentValue.size() < stream.size) {
      return Fail(error, "the resident value is shorter than its size", kReadFailed);
    }
    // An empty value has no bytes to write (and its data may be null).
    if (stream.residentValue.empty()) return kCopied;
    if (std::fwrite(stream.residentValue.data(), 1, stream.residentValue.size(), out) != stream.residentValue.size()) {
      return Fail(error, "cannot write the output", kWriteFailed);
    }
    return kCopied;
  }
  if (stream.compressed) return CopyCompressed(volume, stream, out, error);
  return CopyPlain(volume, stream, out, error);
}

}  // namespace tolvarcli
