// The tolvar command: lists shadow copies, counts the blocks that changed
// between two of them, backs those blocks up into an increment file and
// applies an increment to an image of the older shadow copy, maps which
// blocks of one file changed, mounts the shadow copies as files, and
// shows the files of shadow copies: which changed between two, a
// directory's listing, a file's contents.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "cli/apply_command.h"
#include "cli/backup_command.h"
#include "cli/cat_command.h"
#include "cli/changes_command.h"
#include "cli/diff_command.h"
#include "cli/exit_code.h"
#include "cli/export_command.h"
#include "cli/filemap_command.h"
#include "cli/list_command.h"
#include "cli/ls_command.h"
#include "cli/verify_command.h"
#include "cli/mount_command.h"
#include "cli/umount_command.h"

namespace {

const char kUsage[] =
    "usage:\n"
    "  tolvar list VOLUME [--json]\n"
    "  tolvar diff VOLUME FROM TO [--block-size N] [--extra-pass] [--exclude PATH]...\n"
    "              [--bitmap-out FILE] [--json]\n"
    "  tolvar backup VOLUME FROM TO OUT [--block-size N] [--compare] [--extra-pass]\n"
    "              [--exclude PATH]... [--compress | --format qcow2 --base BASE]\n"
    "  tolvar apply BASE INCREMENT [--output NEW]\n"
    "  tolvar export VOLUME SNAPSHOT OUT [--format raw|qcow2] [--used-only]\n"
    "  tolvar filemap VOLUME FROM TO PATH [--block-size N] [--json]\n"
    "  tolvar verify VOLUME SNAPSHOT IMAGE [--block-size N]\n"
    "  tolvar mount VOLUME MOUNTPOINT [-f] [--page-cache] [-o FUSE_OPTIONS]\n"
    "  tolvar umount MOUNTPOINT\n"
    "  tolvar changes VOLUME FROM TO [--json|--csv|--bodyfile] [--content]\n"
    "  tolvar ls VOLUME SNAPSHOT [PATH] [-l] [-r]\n"
    "  tolvar cat VOLUME SNAPSHOT PATH[:STREAM]\n"
    "  tolvar --help | --version\n"
    "FROM, TO and SNAPSHOT are shadow copy IDs as 'tolvar list' prints them; N is a multiple\n"
    "of 4096 from 4096 to 131072 (default 65536), in bytes or with a K suffix.\n"
    "OUT of '-' is standard output; an existing device or FIFO is written in place.\n"
    "PATH is a path inside the volume from its root, in any case, e.g.\n"
    "/Documents/Report.txt (for cat, PATH:STREAM names a data stream).\n"
    "VOLUME is a volume or a whole disk; every command that takes one also takes\n"
    "--partition N (from 1, as fdisk numbers them) or --offset BYTES, and on Linux\n"
    "the names VOLUME@partition=N and VOLUME@offset=BYTES. A whole disk without\n"
    "either is narrowed to its one NTFS partition with shadow copies.\n"
    "exit codes: 0 done, 1 usage, 2 the library failed, 3 a file could not be\n"
    "read or written, 4 apply refused the increment (BASE untouched) or backup\n"
    "refused BASE, 5 verify found blocks that differ, 6 the image or the volume\n"
    "in it cannot be used (one line says why), 7 the mount could not be made or\n"
    "ended, 8 the path is not in that shadow copy (or cat was given a\n"
    "directory), 9 done, but damaged MFT records were left out (named on stderr)\n";

// One subcommand: its name, what it accepts and what runs it.
struct Subcommand {
  const char* name;                              // the first argument
  tolvarcli::CommandLine::Grammar (*grammar)();  // its arguments
  int (*run)(const tolvarcli::CommandLine&);     // runs it
};

const Subcommand kSubcommands[] = {
    {"list", tolvarcli::ListCommand::Grammar, tolvarcli::ListCommand::Run},
    {"diff", tolvarcli::DiffCommand::Grammar, tolvarcli::DiffCommand::Run},
    {"backup", tolvarcli::BackupCommand::Grammar, tolvarcli::BackupCommand::Run},
    {"apply", tolvarcli::ApplyCommand::Grammar, tolvarcli::ApplyCommand::Run},
    {"export", tolvarcli::ExportCommand::Grammar, tolvarcli::ExportCommand::Run},
    {"filemap", tolvarcli::FilemapCommand::Grammar, tolvarcli::FilemapCommand::Run},
    {"verify", tolvarcli::VerifyCommand::Grammar, tolvarcli::VerifyCommand::Run},
    {"mount", tolvarcli::MountCommand::Grammar, tolvarcli::MountCommand::Run},
    {"umount", tolvarcli::UmountCommand::Grammar, tolvarcli::UmountCommand::Run},
    {"changes", tolvarcli::ChangesCommand::Grammar, tolvarcli::ChangesCommand::Run},
    {"ls", tolvarcli::LsCommand::Grammar, tolvarcli::LsCommand::Run},
    {"cat", tolvarcli::CatCommand::Grammar, tolvarcli::CatCommand::Run},
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fputs(kUsage, stderr);
    return tolvarcli::kExitUsage;
  }
  const std::string name = argv[1];
  if (name == "--help" || name == "-h" || name == "help") {
    std::fputs(kUsage, stdout);
    return tolvarcli::kExitOk;
  }
  if (name == "--version") {
    std::printf("tolvar %s\n", TOLVAR_VERSION);
    return tolvarcli::kExitOk;
  }
  for (const Subcommand& subcommand : kSubcommands) {
    if (name != subcommand.name) continue;
    tolvarcli::CommandLine arguments;
    std::string error;
    if (!arguments.Parse(std::vector<std::string>(argv + 2, argv + argc), subcommand.grammar(), &error)) {
      std::fprintf(stderr, "tolvar %s: %s\n%s", subcommand.name, error.c_str(), kUsage);
      return tolvarcli::kExitUsage;
    }
    return subcommand.run(arguments);
  }
  std::fprintf(stderr, "tolvar: unknown command '%s'\n%s", name.c_str(), kUsage);
  return tolvarcli::kExitUsage;
}
