// The qcow2 structures the command writes: the refcounts count every
// cluster of the file, their own included, whatever its size; the L1 table
// points at the L2 tables in the order they are stored; the header names
// its backing file inside the first cluster.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "cli/big_endian.h"
#include "cli/qcow2_cluster_map.h"
#include "cli/qcow2_header.h"
#include "cli/qcow2_refcounts.h"

namespace tolvarcli {
namespace {

constexpr uint64_t kCluster = 4096;

TEST(Qcow2LayoutTest, RefcountsCountEveryClusterTheirOwnIncluded) {
  const uint64_t perBlock = kCluster / Qcow2Refcounts::kCountSize;
  for (uint64_t firstFree : {uint64_t{1}, perBlock - 2, perBlock - 1, perBlock, 5 * perBlock + 3, 600 * perBlock}) {
    const Qcow2Refcounts refcounts(kCluster, firstFree);
    const std::vector<uint8_t> bytes = refcounts.Encode();
    const uint64_t blocks = bytes.size() / kCluster - refcounts.TableClusters();
    ASSERT_GE(blocks * perBlock, refcounts.TotalClusters()) << firstFree;
    ASSERT_EQ(refcounts.TotalClusters(), firstFree + refcounts.TableClusters() + blocks);
    const uint8_t* counts = bytes.data() + refcounts.TableClusters() * kCluster;
    for (uint64_t cluster = 0; cluster < blocks * perBlock; ++cluster) {
      const unsigned count = counts[cluster * 2] << 8 | counts[cluster * 2 + 1];
      ASSERT_EQ(count, cluster < refcounts.TotalClusters() ? 1u : 0u) << firstFree << " " << cluster;
    }
    for (uint64_t block = 0; block < blocks; ++block) {
      EXPECT_EQ(LoadBe64(bytes.data() + block * 8), (firstFree + refcounts.TableClusters() + block) * kCluster);
    }
  }
}

TEST(Qcow2LayoutTest, TheL1TablePointsAtStoredL2TablesInOrder) {
  const uint64_t perTable = kCluster / Qcow2ClusterMap::kEntrySize;
  Qcow2ClusterMap map(kCluster, 3 * perTable * kCluster);
  map.MapData(2 * perTable + 5, 7 * kCluster);
  map.MapZeros(1);
  ASSERT_EQ(map.L1Size(), 3u);
  ASSERT_EQ(map.L2TableCount(), 2u);
  const std::vector<uint8_t> l1 = map.EncodeL1Table(100 * kCluster);
  EXPECT_EQ(LoadBe64(l1.data()), 100 * kCluster | Qcow2ClusterMap::kCopiedFlag);
  EXPECT_EQ(LoadBe64(l1.data() + 8), 0u);
  EXPECT_EQ(LoadBe64(l1.data() + 16), 101 * kCluster | Qcow2ClusterMap::kCopiedFlag);
  const std::vector<uint8_t> l2 = map.EncodeL2Tables();
  ASSERT_EQ(l2.size(), 2 * kCluster);
  EXPECT_EQ(LoadBe64(l2.data() + 8), Qcow2ClusterMap::kZeroFlag);
  EXPECT_EQ(LoadBe64(l2.data() + kCluster + 5 * 8), 7 * kCluster | Qcow2ClusterMap::kCopiedFlag);
}

TEST(Qcow2LayoutTest, TheHeaderNamesItsBackingFileInsideTheFirstCluster) {
  Qcow2Header header;
  header.clusterBits = 12;
  header.size = 1 << 20;
  header.backingFile = "base.raw";
  header.backingFormat = "raw";
  std::vector<uint8_t> cluster;
  ASSERT_TRUE(header.Encode(&cluster));
  ASSERT_EQ(cluster.size(), kCluster);
  EXPECT_EQ(std::memcmp(cluster.data(), "QFI\xfb", 4), 0);
  EXPECT_EQ(LoadBe32(cluster.data() + Qcow2Header::kVersionOffset), 3u);
  EXPECT_EQ(LoadBe32(cluster.data() + Qcow2Header::kHeaderLengthOffset), Qcow2Header::kLength);
  EXPECT_EQ(LoadBe32(cluster.data() + Qcow2Header::kLength), Qcow2Header::kExtensionBackingFormat);
  const uint64_t nameAt = LoadBe64(cluster.data() + Qcow2Header::kBackingFileOffsetOffset);
  EXPECT_EQ(LoadBe32(cluster.data() + Qcow2Header::kBackingFileSizeOffset), 8u);
  EXPECT_EQ(std::memcmp(cluster.data() + nameAt, "base.raw", 8), 0);

  header.backingFile.assign(kCluster, 'x');
  EXPECT_FALSE(header.Encode(&cluster));
}

}  // namespace
}  // namespace tolvarcli
