#include "ntfsparsercore/index_root.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "ntfsparsercore/io/little_endian.h"
#include "ntfsparsercore/ntfs_format.h"
#include "tests/fixtures/memory_source.h"

namespace {

namespace format = ntfsparsercore::format;
using ntfsparsercore::IndexRoot;
using tolvartest::MemorySource;

std::vector<uint8_t> RootValue(uint32_t blockSize, uint32_t entriesOffset) {
  std::vector<uint8_t> value(IndexRoot::kNodeHeaderOffset + format::kNodeHeaderSize);
  ntfsparsercore::io::StoreLe32(&value[IndexRoot::kBytesPerIndexBlock], blockSize);
  ntfsparsercore::io::StoreLe32(&value[IndexRoot::kNodeHeaderOffset + format::kNodeEntriesOffset], entriesOffset);
  return value;
}

TEST(IndexRoot, FirstEntryCountsFromTheNodeHeader) {
  MemorySource value(RootValue(4096, 16));
  IndexRoot root;
  ASSERT_TRUE(IndexRoot::Read(value, &root));
  EXPECT_EQ(root.blockSize, 4096u);
  EXPECT_EQ(root.firstEntry, IndexRoot::kNodeHeaderOffset + 16);
}

TEST(IndexRoot, ShortRootHeaderIsNotRead) {
  MemorySource value(std::vector<uint8_t>(IndexRoot::kHeaderSize - 1));
  IndexRoot root;
  EXPECT_FALSE(IndexRoot::Read(value, &root));
}

TEST(IndexRoot, ShortNodeHeaderIsNotRead) {
  std::vector<uint8_t> bytes = RootValue(4096, 16);
  bytes.pop_back();
  MemorySource value(bytes);
  IndexRoot root;
  EXPECT_FALSE(IndexRoot::Read(value, &root));
}

}  // namespace
