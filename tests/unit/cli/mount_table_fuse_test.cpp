#include "cli/mount_table.h"

#include <gtest/gtest.h>

namespace tolvarcli {
namespace {

const char kMountInfo[] =
    "22 1 8:1 / / rw,relatime shared:1 - ext4 /dev/sda1 rw\n"
    "40 22 0:35 / /mnt/with\\040space rw,nosuid shared:20 master:3 - fuse.tolvar tolvar ro,user_id=0\n"
    "41 22 0:36 / /tmp rw - tmpfs tmpfs rw\n"
    "garbage\n";

TEST(MountTableTest, EachLineGivesItsMountPointUnescapedAndTheTypeAfterTheSeparator) {
  const MountTable table = MountTable::Parse(kMountInfo);
  ASSERT_EQ(table.Mounts().size(), 3u);
  EXPECT_EQ(table.Mounts()[0].point, "/");
  EXPECT_EQ(table.Mounts()[0].type, "ext4");
  EXPECT_EQ(table.Mounts()[1].point, "/mnt/with space");
  EXPECT_EQ(table.Mounts()[1].type, "fuse.tolvar");
  EXPECT_EQ(table.Mounts()[2].type, "tmpfs");
}

TEST(MountTableTest, EachMountCarriesItsDeviceNumber) {
  const MountTable table = MountTable::Parse(kMountInfo);
  ASSERT_EQ(table.Mounts().size(), 3u);
  EXPECT_EQ(table.Mounts()[0].device, "8:1");
  EXPECT_EQ(table.Mounts()[1].device, "0:35");
}

TEST(MountTableTest, FindExactlyTakesThePathAsItIs) {
  const MountTable table = MountTable::Parse("2 1 0:2 / /tmp rw - tmpfs b rw\n3 2 0:3 / /tmp rw - fuse.tolvar c ro\n");
  const MountTable::Mount* mount = table.FindExactly("/tmp");
  ASSERT_NE(mount, nullptr);
  EXPECT_EQ(mount->device, "0:3");
  EXPECT_EQ(table.FindExactly("/tmp/../tmp"), nullptr);
}

TEST(MountTableTest, FindResolvesThePathAndTakesTheLastMountThere) {
  const MountTable table = MountTable::Parse(
      "1 0 0:1 / / rw - ext4 a rw\n2 1 0:2 / /tmp rw - tmpfs b rw\n3 2 0:3 / /tmp rw - fuse.tolvar c ro\n");
  const MountTable::Mount* mount = table.Find("/tmp/../tmp");
  ASSERT_NE(mount, nullptr);
  EXPECT_EQ(mount->type, "fuse.tolvar");
  EXPECT_EQ(table.Find("/usr"), nullptr);
}

}  // namespace
}  // namespace tolvarcli
