// Builds without FUSE (Windows, or Linux without libfuse3): the command
// exists and says why it cannot run.
#include <cstdio>

#include "cli/exit_code.h"
#include "cli/mount_command.h"

namespace tolvarcli {

int MountCommand::Run(const CommandLine&) {
  std::fputs("tolvar mount: not available on this platform (this tolvar was built without FUSE)\n", stderr);
  return kExitMount;
}

}  // namespace tolvarcli
