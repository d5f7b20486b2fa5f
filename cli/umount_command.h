// tolvar umount: see Usage() in main.cpp and the README. Ends a mount made
// by tolvar mount (umount_command_fuse.cpp), or says it is not available
// (umount_command_unavailable.cpp).
#ifndef TOLVAR_CLI_UMOUNT_COMMAND_H_
#define TOLVAR_CLI_UMOUNT_COMMAND_H_

#include "cli/command_line.h"

namespace tolvarcli {

class UmountCommand {
 public:
  // What the subcommand accepts after its name.
  static CommandLine::Grammar Grammar();
  // Runs it on parsed arguments; returns the exit code.
  static int Run(const CommandLine& arguments);
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_UMOUNT_COMMAND_H_
