// tolvar changes: see Usage() in main.cpp and the README.
#ifndef TOLVAR_CLI_CHANGES_COMMAND_H_
#define TOLVAR_CLI_CHANGES_COMMAND_H_

#include "cli/command_line.h"

namespace tolvarcli {

class ChangesCommand {
 public:
  // What the subcommand accepts after its name.
  static CommandLine::Grammar Grammar();
  // Runs it on parsed arguments; returns the exit code.
  static int Run(const CommandLine& arguments);
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_CHANGES_COMMAND_H_
