#include "cli/umount_command.h"

namespace tolvarcli {

CommandLine::Grammar UmountCommand::Grammar() { return {1, {}, {}}; }

}  // namespace tolvarcli
