// Random damage to records, mapping pairs, compressed units and index
// blocks: every read stays inside the caller's buffer and every walk ends.
// Run under the sanitizer build, these also catch reads out of bounds.
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <vector>

#include "ntfsparsercore/attribute.h"
#include "ntfsparsercore/attributes/readers/i_reader.h"
#include "ntfsparsercore/attributes/readers/lznt1_decoder.h"
#include "ntfsparsercore/attributes/readers/readers_factory.h"
#include "ntfsparsercore/index_block_map.h"
#include "ntfsparsercore/usn_controller.h"
#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/memory_source.h"
#include "tests/fixtures/memory_volume.h"
#include "tests/fixtures/ntfs_builder.h"

namespace {

using ntfsparsercore::Attribute;
using ntfsparsercore::AttributeRecord;
using ntfsparsercore::IndexBlockMap;
using ntfsparsercore::UsnController;
using ntfsparsercore::attributes::readers::Lznt1Decoder;
using ntfsparsercore::attributes::readers::ReadersFactory;
using tolvartest::AttributeFields;
using tolvartest::Bytes;
using tolvartest::MemorySource;
using tolvartest::MemoryVolume;

constexpr uint8_t kCanary = 0xC5;
constexpr std::size_t kCanarySize = 64;

Bytes RandomBytes(std::mt19937& random, std::size_t size) {
  Bytes bytes(size);
  for (auto& b : bytes) b = static_cast<uint8_t>(random());
  return bytes;
}

// A buffer of size bytes followed by canary bytes that must survive.
struct GuardedBuffer {
  explicit GuardedBuffer(std::size_t size) : size(size), bytes(size + kCanarySize, kCanary) {}
  bool Intact() const {
    for (std::size_t i = size; i < bytes.size(); ++i) {
      if (bytes[i] != kCanary) return false;
    }
    return true;
  }
  std::size_t size;
  Bytes bytes;
};

class DamagedInputTest : public tolvartest::QueueTest {
 protected:
  std::mt19937 random_{20261122};
};

TEST_F(DamagedInputTest, FixedUpReadsOfRandomRecordsStayInTheBuffer) {
  const uint32_t sectorSizes[] = {0, 2, 7, 512, 1024, 4096};
  for (int round = 0; round < 300; ++round) {
    Bytes record = RandomBytes(random_, 1 + random_() % 4096);
    if (record.size() >= 4 && random_() % 2) tolvartest::PutLe32(&record, 0, UsnController::kFileMagic);
    MemoryVolume volume(Bytes(), sectorSizes[random_() % 6], 4096);
    auto source = std::make_shared<MemorySource>(record);
    UsnController usn(&volume, source, random_() % 64, UsnController::kFileMagic);
    for (int read = 0; read < 8; ++read) {
      GuardedBuffer buffer(random_() % 5000);
      const uint64_t got = usn.Read(buffer.bytes.data(), buffer.size, random_() % 4200);
      ASSERT_LE(got, buffer.size);
      ASSERT_TRUE(buffer.Intact()) << "round " << round;
    }
  }
}

TEST_F(DamagedInputTest, ExpansionOfRandomCompressedUnitsStaysInTheOutput) {
  for (int round = 0; round < 2000; ++round) {
    Bytes stored = RandomBytes(random_, random_() % 600);
    // Make most streams start with a plausible compressed chunk header.
    if (stored.size() >= 2 && random_() % 4) stored[1] = static_cast<uint8_t>(0xB0 | (stored[1] & 0x0F));
    const std::size_t capacity = 1 + random_() % 9000;
    GuardedBuffer out(capacity);
    const uint64_t produced = Lznt1Decoder::ExpandUnit(stored.data(), stored.size(), out.bytes.data(), capacity,
                                                       (random_() % 64) * 512, random_() % 3 ? 512 : 0);
    ASSERT_LE(produced, capacity);
    ASSERT_TRUE(out.Intact()) << "round " << round;
  }
}

TEST_F(DamagedInputTest, ReadersOfRandomAttributesStayInTheBufferAndEnd) {
  MemoryVolume volume(RandomBytes(random_, 256 * 1024), 512, 512);
  ReadersFactory factory(&volume);
  for (int round = 0; round < 1500; ++round) {
    AttributeFields fields;
    fields.type = random_() % 2 ? 0x80 : 0x20;
    fields.nonResident = random_() % 4 != 0;
    fields.flags = static_cast<uint16_t>(random_() % 2 ? 0x0001 : random_());
    fields.compressionUnit = static_cast<uint16_t>(random_() % 7);
    fields.dataSize = random_() % (1 << 20);
    fields.value = RandomBytes(random_, random_() % 300);
    fields.mappingPairs = RandomBytes(random_, random_() % 48);
    Bytes bytes = tolvartest::AttributeBytes(fields);
    if (random_() % 3 == 0) {
      // Damage a few header bytes too, keeping the type within range.
      for (int i = 0; i < 4; ++i) bytes[8 + random_() % (bytes.size() - 8)] = static_cast<uint8_t>(random_());
    }
    auto record = std::make_shared<AttributeRecord>(std::make_shared<MemorySource>(bytes), 0);
    Attribute attribute(nullptr, {record});
    auto reader = factory.Create(attribute);
    // The extent list of a compressed value has one entry per unit of its
    // size, so it is asked for only while a damaged size stays moderate.
    if (reader->GetSize() < (uint64_t{1} << 30)) reader->GetExtents();
    for (int read = 0; read < 4; ++read) {
      const std::size_t size = random_() % 70000;
      GuardedBuffer buffer(size);
      const uint64_t offset = random_() % 2 ? random_() % 70000 : random_() % (1 << 20);
      reader->Read(buffer.bytes.data(), size, offset);
      ASSERT_TRUE(buffer.Intact()) << "round " << round;
    }
  }
}

TEST_F(DamagedInputTest, WalksOfRandomIndexBlocksEnd) {
  for (int round = 0; round < 200; ++round) {
    MemoryVolume volume(Bytes(), 512, 4096);
    std::vector<Bytes> blocks;
    const std::size_t count = 1 + random_() % 6;
    for (std::size_t b = 0; b < count; ++b) {
      std::vector<Bytes> entries;
      const std::size_t entryCount = random_() % 8;
      for (std::size_t e = 0; e < entryCount; ++e) {
        entries.push_back(tolvartest::IndexEntryBytes(random_() % 100, random_() % 4, random_() % count));
      }
      Bytes block = tolvartest::IndexBlockBytes(4096, 512, b, entries);
      for (int i = 0; i < 6; ++i) block[24 + random_() % 200] = static_cast<uint8_t>(random_());
      volume.Put((2 + b) * 4096, block);
    }
    AttributeFields fields;
    fields.type = 0xA0;
    fields.nonResident = true;
    fields.dataSize = count * 4096;
    fields.mappingPairs = tolvartest::MappingPairs({{count, 2, 1, 1}});
    auto record =
        std::make_shared<AttributeRecord>(std::make_shared<MemorySource>(tolvartest::AttributeBytes(fields)), 0);
    auto factory = std::make_shared<ReadersFactory>(&volume);
    IndexBlockMap map(&volume, {std::make_shared<Attribute>(factory, Attribute::RecordList{record})}, 4096);
    for (uint64_t vcn = 0; vcn < count; ++vcn) {
      std::vector<uint64_t> numbers;
      map.Walk(map.Find(vcn), &numbers);
    }
  }
}

}  // namespace
