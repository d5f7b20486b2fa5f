#include <windows.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "core/volume_enumerator.h"
#include "core/volume_enumerator_api_win32.h"

namespace {

using tolvarcore::VolumeEnumerator;

// Three volumes, as FindFirstVolumeA and FindNextVolumeA name them.
class FakeVolumes : public VolumeEnumerator::Api {
 public:
  HANDLE FindFirstVolumeA(LPSTR name, DWORD length) override {
    lengths.push_back(length);
    if (!started) return INVALID_HANDLE_VALUE;
    next = 0;
    return Give(name) ? reinterpret_cast<HANDLE>(0x77) : INVALID_HANDLE_VALUE;
  }
  BOOL FindNextVolumeA(HANDLE find, LPSTR name, DWORD length) override {
    lengths.push_back(length);
    EXPECT_EQ(find, reinterpret_cast<HANDLE>(0x77));
    return Give(name);
  }
  BOOL FindVolumeClose(HANDLE find) override {
    closed.push_back(find);
    return TRUE;
  }

  bool started = true;
  std::vector<DWORD> lengths;
  std::vector<HANDLE> closed;

 private:
  bool Give(LPSTR name) {
    static const char* const kNames[] = {"\\\\?\\Volume{1}\\", "\\\\?\\Volume{2}\\", "\\\\?\\Volume{3}\\"};
    if (next >= 3) return false;
    std::strcpy(name, kNames[next++]);
    return true;
  }
  int next = 0;
};

TEST(VolumeEnumeratorWin32, VisitsEveryVolumeWithA256CharacterBufferThenCloses) {
  FakeVolumes api;
  std::vector<std::string> seen;
  EXPECT_TRUE(VolumeEnumerator(api).ForEach([&](const std::string& path) {
    seen.push_back(path);
    return false;
  }));
  EXPECT_EQ(seen, (std::vector<std::string>{"\\\\?\\Volume{1}\\", "\\\\?\\Volume{2}\\", "\\\\?\\Volume{3}\\"}));
  EXPECT_EQ(api.lengths, std::vector<DWORD>(4, 256));
  EXPECT_EQ(api.closed, std::vector<HANDLE>{reinterpret_cast<HANDLE>(0x77)});
}

TEST(VolumeEnumeratorWin32, StopsAtTheVisitorsWordAndStillCloses) {
  FakeVolumes api;
  int visits = 0;
  VolumeEnumerator(api).ForEach([&](const std::string&) { return ++visits == 2; });
  EXPECT_EQ(visits, 2);
  EXPECT_EQ(api.closed.size(), 1u);
}

TEST(VolumeEnumeratorWin32, FailedStartVisitsNothingAndClosesNothing) {
  FakeVolumes api;
  api.started = false;
  int visits = 0;
  EXPECT_FALSE(VolumeEnumerator(api).ForEach([&](const std::string&) { return ++visits, false; }));
  EXPECT_EQ(visits, 0);
  EXPECT_TRUE(api.closed.empty());
}

}  // namespace
