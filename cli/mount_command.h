// tolvar mount: see Usage() in main.cpp and the README. Built with FUSE
// (mount_command_fuse.cpp) where libfuse3 was found, elsewhere a command
// that says it is not available (mount_command_unavailable.cpp).
#ifndef TOLVAR_CLI_MOUNT_COMMAND_H_
#define TOLVAR_CLI_MOUNT_COMMAND_H_

#include "cli/command_line.h"

namespace tolvarcli {

class MountCommand {
 public:
  // What the subcommand accepts after its name.
  static CommandLine::Grammar Grammar();
  // Runs it on parsed arguments; returns the exit code.
  static int Run(const CommandLine& arguments);
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_MOUNT_COMMAND_H_
