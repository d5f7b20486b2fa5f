// tolvar umount: ends a mount made by tolvar mount. As root the mount is
// taken down directly; otherwise fusermount3 does it, as for any FUSE
// mount of the user's. The serving process ends when its mount is gone.
#include <errno.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "cli/exit_code.h"
#include "cli/mount_table.h"
#include "cli/umount_command.h"

extern char** environ;

namespace tolvarcli {

namespace {

const char kTolvarMountType[] = "fuse.tolvar";
const char kFusermount[] = "fusermount3";

int Fail(const std::string& text) {
  std::fprintf(stderr, "tolvar umount: %s\n", text.c_str());
  return kExitMount;
}

// fusermount3 -u -- path; true when it succeeded (it says why not itself).
bool RunFusermount(const std::string& path) {
  std::string words[] = {kFusermount, "-u", "--", path};
  char* argv[] = {&words[0][0], &words[1][0], &words[2][0], &words[3][0], nullptr};
  pid_t child = 0;
  if (posix_spawnp(&child, kFusermount, nullptr, nullptr, argv, environ) != 0) return false;
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace

int UmountCommand::Run(const CommandLine& arguments) {
  const std::string& mountPoint = arguments.Positional(0);
  const MountTable table = MountTable::Read();
  const MountTable::Mount* mount = table.Find(mountPoint);
  if (mount == nullptr) return Fail("nothing is mounted on " + mountPoint);
  if (mount->type != kTolvarMountType) return Fail(mountPoint + " is not a tolvar mount (" + mount->type + ")");
  if (geteuid() == 0) {
    if (umount2(mount->point.c_str(), 0) != 0) {
      const int error = errno;
      if (error == EBUSY) return Fail(mountPoint + " is busy: a file on it is still open");
      return Fail("cannot unmount " + mountPoint + ": " + std::strerror(error));
    }
    return kExitOk;
  }
  if (!RunFusermount(mount->point)) return Fail("fusermount3 could not unmount " + mountPoint);
  return kExitOk;
}

}  // namespace tolvarcli
