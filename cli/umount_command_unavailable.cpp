// Builds without FUSE: see mount_command_unavailable.cpp.
#include <cstdio>

#include "cli/exit_code.h"
#include "cli/umount_command.h"

namespace tolvarcli {

int UmountCommand::Run(const CommandLine&) {
  std::fputs("tolvar umount: not available on this platform (this tolvar was built without FUSE)\n", stderr);
  return kExitMount;
}

}  // namespace tolvarcli
