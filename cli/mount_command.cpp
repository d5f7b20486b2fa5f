#include "cli/mount_command.h"

namespace tolvarcli {

CommandLine::Grammar MountCommand::Grammar() { return {2, {"-f"}, {"-o"}}; }

}  // namespace tolvarcli
