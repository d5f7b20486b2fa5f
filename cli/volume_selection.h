// Turns a command's VOLUME argument and its --partition / --offset options
// into the volume name that Init takes (ntfsparsercore/io/volume_name.h),
// the one place where every subcommand that reads a volume does so. A
// whole disk named without either option is narrowed to its one NTFS
// partition that holds a shadow-copy store.
#ifndef TOLVAR_CLI_VOLUME_SELECTION_H_
#define TOLVAR_CLI_VOLUME_SELECTION_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "cli/command_line.h"
#include "ntfsparsercore/io/i_source.h"
#include "ntfsparsercore/io/partition_table.h"

namespace tolvarcli {

class VolumeSelection {
 public:
  // grammar plus --partition N and --offset BYTES.
  static CommandLine::Grammar WithOptions(CommandLine::Grammar grammar);

  // The name of the volume to work on, in *name. On failure prints one line
  // per problem on stderr and returns the exit code (kExitUsage for bad
  // options, kExitVolume when the image or the volume in it cannot be
  // opened or holds no shadow-copy store); kExitOk on success.
  static int Resolve(const std::string& volume, const CommandLine& arguments, std::string* name);

  // Whether the volume source holds a shadow-copy store (its volume header
  // names a store volume). Reads quietly: nothing reaches the error queue.
  static bool HoldsStore(const std::shared_ptr<ntfsparsercore::io::ISource>& volume);

  // The option's number, when given. False (after saying so) when it is
  // given but is not a number; *given tells whether it was there.
  static bool NumberOption(const CommandLine& arguments, const std::string& option, uint64_t* value, bool* given);

 private:
  static int AutoSelect(const std::string& volume, std::string* name);
  static int Check(const std::string& name);
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_VOLUME_SELECTION_H_
