#include "ntfsparsercore/io/volume_name.h"

#include <gtest/gtest.h>

#include <set>

namespace {

using ntfsparsercore::io::VolumeName;

// A file system that holds exactly these names.
VolumeName Parse(const std::string& text, std::set<std::string> files = {}) {
  return VolumeName::Parse(text, [files](const std::string& name) { return files.count(name) != 0; });
}

TEST(VolumeNameTest, APlainPathIsTheWholeImage) {
  VolumeName name = Parse("/images/disk.raw");
  EXPECT_EQ(name.pick, VolumeName::Pick::kWhole);
  EXPECT_EQ(name.path, "/images/disk.raw");
}

TEST(VolumeNameTest, ThePartitionSuffixPicksAPartition) {
  VolumeName name = Parse("/images/disk.E01@partition=2", {"/images/disk.E01"});
  EXPECT_EQ(name.pick, VolumeName::Pick::kPartition);
  EXPECT_EQ(name.path, "/images/disk.E01");
  EXPECT_EQ(name.value, 2u);
}

TEST(VolumeNameTest, TheOffsetSuffixPicksAByteOffset) {
  VolumeName name = Parse("disk@1.raw@offset=1048576");
  EXPECT_EQ(name.pick, VolumeName::Pick::kOffset);
  EXPECT_EQ(name.path, "disk@1.raw");
  EXPECT_EQ(name.value, 1048576u);
}

TEST(VolumeNameTest, AnExistingFileWhoseNameHoldsASuffixIsThatFile) {
  VolumeName name = Parse("odd.raw@partition=1", {"odd.raw@partition=1", "odd.raw"});
  EXPECT_EQ(name.pick, VolumeName::Pick::kWhole);
  EXPECT_EQ(name.path, "odd.raw@partition=1");
}

TEST(VolumeNameTest, ASuffixThatIsNotANumberIsPartOfThePath) {
  EXPECT_EQ(Parse("disk.raw@partition=two").pick, VolumeName::Pick::kWhole);
  EXPECT_EQ(Parse("disk.raw@partition=").pick, VolumeName::Pick::kWhole);
  EXPECT_EQ(Parse("disk.raw@offset=-1").pick, VolumeName::Pick::kWhole);
  EXPECT_EQ(Parse("@offset=5").pick, VolumeName::Pick::kWhole);
}

TEST(VolumeNameTest, PartitionZeroAndNumbersTooLargeArePartOfThePath) {
  EXPECT_EQ(Parse("disk.raw@partition=0").pick, VolumeName::Pick::kWhole);
  EXPECT_EQ(Parse("disk.raw@partition=4294967296").pick, VolumeName::Pick::kWhole);
  EXPECT_EQ(Parse("disk.raw@offset=9223372036854775808").pick, VolumeName::Pick::kWhole);
  EXPECT_EQ(Parse("disk.raw@offset=9223372036854775807").value, 9223372036854775807u);
}

TEST(VolumeNameTest, ToStringGivesTheNameThatParsesBack) {
  for (const char* text : {"a.raw", "a.raw@partition=5", "a.raw@offset=0"}) {
    EXPECT_EQ(Parse(text, {"a.raw"}).ToString(), text);
  }
}

}  // namespace
