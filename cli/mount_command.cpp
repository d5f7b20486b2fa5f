#include "cli/mount_command.h"

#include "cli/volume_selection.h"

namespace tolvarcli {

CommandLine::Grammar MountCommand::Grammar() {
  return VolumeSelection::WithOptions({2, {"-f", "--page-cache"}, {"-o"}});
}

}  // namespace tolvarcli
