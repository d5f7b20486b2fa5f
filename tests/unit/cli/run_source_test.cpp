#include "cli/run_source.h"

#include <gtest/gtest.h>

#include "tests/fixtures/memory_volume.h"

namespace tolvarcli {
namespace {

constexpr uint64_t kCluster = 512;

// A volume whose byte i is i mod 251.
std::unique_ptr<tolvartest::MemoryVolume> PatternVolume() {
  std::vector<uint8_t> bytes(64 * kCluster);
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i % 251);
  return std::make_unique<tolvartest::MemoryVolume>(bytes, 512, kCluster);
}

TEST(RunSourceTest, AReadCrossingRunsContinuesInTheNextRun) {
  auto volume = PatternVolume();
  // Clusters 10-11, then 3, then two unallocated, then 40.
  RunSource source(
      volume.get(),
      {{10 * kCluster, 2 * kCluster}, {3 * kCluster, kCluster}, {0, 2 * kCluster}, {40 * kCluster, kCluster}},
      6 * kCluster - 100);
  std::vector<uint8_t> out(1024, 0xAA);
  // From 100 bytes before the end of the first run into the second.
  ASSERT_EQ(source.Read(out.data(), 300, 2 * kCluster - 100), 300u);
  EXPECT_EQ(out[0], static_cast<uint8_t>((12 * kCluster - 100) % 251));
  EXPECT_EQ(out[100], static_cast<uint8_t>((3 * kCluster) % 251));
  // The unallocated runs read as zeros.
  ASSERT_EQ(source.Read(out.data(), kCluster, 3 * kCluster), kCluster);
  EXPECT_EQ(out[0], 0);
  EXPECT_EQ(out[kCluster - 1], 0);
}

TEST(RunSourceTest, ReadsStopAtTheSize) {
  auto volume = PatternVolume();
  RunSource source(volume.get(), {{10 * kCluster, 2 * kCluster}}, kCluster + 10);
  std::vector<uint8_t> out(2 * kCluster);
  EXPECT_EQ(source.Read(out.data(), 2 * kCluster, 0), kCluster + 10);
  EXPECT_EQ(source.Read(out.data(), 10, kCluster + 10), 0u);
  EXPECT_EQ(source.GetSize(), kCluster + 10);
}

TEST(RunSourceTest, ReadsStopWhereTheRunsEnd) {
  auto volume = PatternVolume();
  RunSource source(volume.get(), {{10 * kCluster, kCluster}}, 4 * kCluster);
  std::vector<uint8_t> out(2 * kCluster);
  EXPECT_EQ(source.Read(out.data(), 2 * kCluster, 0), kCluster);
}

}  // namespace
}  // namespace tolvarcli
