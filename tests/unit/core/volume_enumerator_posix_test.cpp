#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/volume_enumerator.h"
#include "core/volume_enumerator_api_posix.h"

namespace {

using tolvarcore::VolumeEnumerator;

class FakeBlockDevices : public VolumeEnumerator::Api {
 public:
  bool ListBlockDevices(std::vector<std::string>* names) override {
    if (!readable) return false;
    *names = {"vdb", "loop1", "vda", "loop0"};
    return true;
  }
  bool readable = true;
};

TEST(VolumeEnumeratorPosix, VisitsDevPathsInNameOrder) {
  FakeBlockDevices api;
  std::vector<std::string> seen;
  EXPECT_TRUE(VolumeEnumerator(api).ForEach([&](const std::string& path) {
    seen.push_back(path);
    return false;
  }));
  EXPECT_EQ(seen, (std::vector<std::string>{"/dev/loop0", "/dev/loop1", "/dev/vda", "/dev/vdb"}));
}

TEST(VolumeEnumeratorPosix, StopsWhenTheVisitorSaysSo) {
  FakeBlockDevices api;
  std::vector<std::string> seen;
  VolumeEnumerator(api).ForEach([&](const std::string& path) {
    seen.push_back(path);
    return path == "/dev/loop1";
  });
  EXPECT_EQ(seen, (std::vector<std::string>{"/dev/loop0", "/dev/loop1"}));
}

TEST(VolumeEnumeratorPosix, UnreadableListFailsWithoutVisiting) {
  FakeBlockDevices api;
  api.readable = false;
  int visits = 0;
  EXPECT_FALSE(VolumeEnumerator(api).ForEach([&](const std::string&) { return ++visits, false; }));
  EXPECT_EQ(visits, 0);
}

TEST(VolumeEnumeratorPosix, RealEnumerationListsDevPaths) {
  bool allUnderDev = true;
  VolumeEnumerator().ForEach([&](const std::string& path) {
    allUnderDev = allUnderDev && path.rfind("/dev/", 0) == 0;
    return false;
  });
  EXPECT_TRUE(allUnderDev);
}

}  // namespace
