#include "core/bit_map.h"

#include <algorithm>
#include <cstring>

#include "ntfsparsercore/io/little_endian.h"

namespace tolvarcore {

BitMap::BitMap(uint64_t byteCount) : byteCount_(std::max<uint64_t>(byteCount, 1)), bytes_(new uint8_t[byteCount_]()) {}

bool BitMap::Test(uint64_t index) const {
  if (index / 8 >= byteCount_) return false;
  return (bytes_[index / 8] >> (index % 8)) & 1;
}

void BitMap::Set(uint64_t index) {
  if (index / 8 >= byteCount_) return;
  bytes_[index / 8] |= static_cast<uint8_t>(1u << (index % 8));
}

void BitMap::Clear(uint64_t index) {
  if (index / 8 >= byteCount_) return;
  bytes_[index / 8] &= static_cast<uint8_t>(~(1u << (index % 8)));
}

uint64_t BitMap::NextSet(uint64_t index) const {
  const uint64_t bits = BitCount();
  while (index < bits) {
    uint8_t byte = static_cast<uint8_t>(bytes_[index / 8] >> (index % 8));
    if (byte != 0) {
      while ((byte & 1) == 0) {
        byte >>= 1;
        ++index;
      }
      return index;
    }
    index = (index / 8 + 1) * 8;
    // Whole clear bytes are passed eight bits at a time.
    while (index < bits && bytes_[index / 8] == 0) index += 8;
  }
  return bits;
}

// Both work eight bytes at a time, then byte by byte on the tail: maps of
// large volumes run to megabytes, and a byte loop through the member
// pointer cannot be vectorised.
void BitMap::Invert() {
  uint8_t* bytes = bytes_.get();
  const uint64_t count = byteCount_;
  uint64_t k = 0;
  for (; k + sizeof(uint64_t) <= count; k += sizeof(uint64_t)) {
    uint64_t word;
    std::memcpy(&word, bytes + k, sizeof word);
    word = ~word;
    std::memcpy(bytes + k, &word, sizeof word);
  }
  for (; k < count; ++k) bytes[k] = static_cast<uint8_t>(~bytes[k]);
}

void BitMap::AndNot(const BitMap& other) {
  uint8_t* bytes = bytes_.get();
  const uint8_t* others = other.bytes_.get();
  const uint64_t common = std::min(byteCount_, other.byteCount_);
  uint64_t k = 0;
  for (; k + sizeof(uint64_t) <= common; k += sizeof(uint64_t)) {
    uint64_t mine;
    uint64_t theirs;
    std::memcpy(&mine, bytes + k, sizeof mine);
    std::memcpy(&theirs, others + k, sizeof theirs);
    mine = theirs & ~mine;
    std::memcpy(bytes + k, &mine, sizeof mine);
  }
  for (; k < common; ++k) bytes[k] = static_cast<uint8_t>(others[k] & ~bytes[k]);
}

void BitMap::CopyOut(void* destination) const {
  std::memcpy(destination, bytes_.get(), static_cast<std::size_t>(byteCount_));
}

bool BitMap::AnySet(uint64_t first, uint64_t count) const {
  if (first >= BitCount()) return false;
  // Measured from first, so that a huge count cannot wrap the end round.
  const uint64_t end = first + std::min(count, BitCount() - first);
  for (uint64_t i = first; i < end;) {
    if (i % 8 == 0 && i + 8 <= end) {
      if (bytes_[i / 8] != 0) return true;
      i += 8;
      continue;
    }
    if (Test(i)) return true;
    ++i;
  }
  return false;
}

namespace {

// One bit per group of bits of a 64-bit word, lowest group first: the OR of
// each run of `group` bits (1, 2, 4 or 8), packed into the low 64 / group
// bits. Each step halves the distance between the bits still wanted.
template <unsigned kGroup>
uint64_t FoldWord(uint64_t x) {
  if (kGroup == 2) {
    x = (x | x >> 1) & 0x5555555555555555ull;
    x = (x | x >> 1) & 0x3333333333333333ull;
    x = (x | x >> 2) & 0x0F0F0F0F0F0F0F0Full;
    x = (x | x >> 4) & 0x00FF00FF00FF00FFull;
    x = (x | x >> 8) & 0x0000FFFF0000FFFFull;
    return (x | x >> 16) & 0xFFFFFFFFull;
  }
  if (kGroup == 4) {
    x |= x >> 1;
    x = (x | x >> 2) & 0x1111111111111111ull;
    x = (x | x >> 3) & 0x0303030303030303ull;
    x = (x | x >> 6) & 0x000F000F000F000Full;
    x = (x | x >> 12) & 0x000000FF000000FFull;
    return (x | x >> 24) & 0xFFFFull;
  }
  if (kGroup == 8) {
    x |= x >> 1;
    x |= x >> 2;
    x = (x | x >> 4) & 0x0101010101010101ull;
    x = (x | x >> 7) & 0x0003000300030003ull;
    x = (x | x >> 14) & 0x0000000F0000000Full;
    return (x | x >> 28) & 0xFFull;
  }
  return x;
}

// Eight source bytes at a time give 8 / kGroup whole target bytes; the
// bytes left over, and those whose target bytes would lie past the target's
// end, go one at a time, each into its share of a target byte.
template <unsigned kGroup>
void GroupBytes(const uint8_t* source, uint64_t sourceBytes, uint8_t* target, uint64_t targetBytes) {
  constexpr uint64_t kOutBytes = 8 / kGroup;
  uint64_t k = 0;
  for (; k + 8 <= sourceBytes && k / kGroup + kOutBytes <= targetBytes; k += 8) {
    const uint64_t word = ntfsparsercore::io::LoadLe64(source + k);
    if (word == 0) continue;
    // Maps of blocks in use are mostly whole runs of set bits.
    const uint64_t folded = word == ~0ull ? ~0ull : FoldWord<kGroup>(word);
    for (uint64_t b = 0; b < kOutBytes; ++b) target[k / kGroup + b] = static_cast<uint8_t>(folded >> (8 * b));
  }
  for (; k < sourceBytes; ++k) {
    if (source[k] == 0) continue;
    // Source byte k gives target bits k * 8 / kGroup on, which share one byte.
    const uint64_t first = k * 8 / kGroup;
    if (first / 8 >= targetBytes) break;  // this and later bits lie past the target
    target[first / 8] = static_cast<uint8_t>(target[first / 8] | FoldWord<kGroup>(source[k]) << (first % 8));
  }
}

}  // namespace

// Target bit t is the OR of source bits t * group to t * group + group - 1;
// a group of 1, 2, 4 or 8 bits never crosses a byte.
void BitMap::GroupInto(unsigned group, BitMap* target) const {
  const uint8_t* from = bytes_.get();
  uint8_t* to = target->bytes_.get();
  switch (group) {
    case 1:
      return GroupBytes<1>(from, byteCount_, to, target->byteCount_);
    case 2:
      return GroupBytes<2>(from, byteCount_, to, target->byteCount_);
    case 4:
      return GroupBytes<4>(from, byteCount_, to, target->byteCount_);
    default:
      return GroupBytes<8>(from, byteCount_, to, target->byteCount_);
  }
}

// Source bit s sets target bits s * spread to s * spread + spread - 1.
void BitMap::SpreadInto(unsigned spread, BitMap* target) const {
  for (uint64_t k = 0; k < byteCount_; ++k) {
    const unsigned byte = bytes_[k];
    if (byte == 0) continue;
    for (unsigned bit = 0; bit < 8; ++bit) {
      if ((byte >> bit & 1) == 0) continue;
      const uint64_t first = (k * 8 + bit) * spread;
      for (unsigned n = 0; n < spread; ++n) target->Set(first + n);
    }
  }
}

uint64_t BitMap::RescaledBytes(uint64_t byteCount, uint64_t sourceUnit, uint64_t targetUnit) {
  // Units of 0 would divide by zero; such a map covers nothing.
  if (sourceUnit == 0 || targetUnit == 0) return 1;
  return std::max<uint64_t>((byteCount * 8 * sourceUnit / targetUnit + 7) / 8, 1);
}

std::unique_ptr<BitMap> BitMap::Rescale(uint64_t sourceUnit, uint64_t targetUnit) const {
  auto target = std::make_unique<BitMap>(RescaledBytes(byteCount_, sourceUnit, targetUnit));
  if (sourceUnit == 0 || targetUnit == 0) return target;

  const uint64_t total = byteCount_ * 8 * sourceUnit;

  // The probes of the target block at p fall on p, p + sourceUnit, ...
  // below p + targetUnit: consecutive source bits starting at
  // p / sourceUnit, as many as targetUnit / sourceUnit rounded up.
  const uint64_t probes = (targetUnit + sourceUnit - 1) / sourceUnit;
  // A block that starts below total but ends past it still counts when its
  // bit fits in the target's last byte.
  const uint64_t lastBit = std::min((total + targetUnit - 1) / targetUnit, target->BitCount());

  if (targetUnit % sourceUnit == 0 && 8 % (targetUnit / sourceUnit) == 0) {
    GroupInto(static_cast<unsigned>(targetUnit / sourceUnit), target.get());
    return target;
  }
  if (sourceUnit % targetUnit == 0 && 8 % (sourceUnit / targetUnit) == 0) {
    SpreadInto(static_cast<unsigned>(sourceUnit / targetUnit), target.get());
    return target;
  }

  // Driven by the set source bits, so clear stretches cost a byte test per
  // eight bits. Target block t probes source bits from t * targetUnit /
  // sourceUnit on, probes of them; source bit s is therefore probed by the
  // blocks from ceil((s + 1 - probes) * sourceUnit / targetUnit) to
  // ((s + 1) * sourceUnit - 1) / targetUnit.
  for (uint64_t s = NextSet(0); s < BitCount(); s = NextSet(s)) {
    const uint64_t firstProbed = s + 1 >= probes ? s + 1 - probes : 0;
    const uint64_t first = (firstProbed * sourceUnit + targetUnit - 1) / targetUnit;
    if (first >= lastBit) break;
    const uint64_t last = std::min(((s + 1) * sourceUnit - 1) / targetUnit, lastBit - 1);
    if (first > last) {
      ++s;
      continue;
    }
    for (uint64_t t = first; t <= last; ++t) target->Set(t);
    // The blocks up to last are set: go on at the first source bit that the
    // next block probes, or the next bit, whichever is later.
    s = std::max(s + 1, (last + 1) * targetUnit / sourceUnit);
  }
  return target;
}

}  // namespace tolvarcore
