// Writes one file's unnamed data stream, or with PATH:stream a named one,
// as it was in one shadow copy.
#include "cli/cat_command.h"

#include <cstdio>
#include <string>

#include "cli/exit_code.h"
#include "cli/snapshot_tree.h"
#include "cli/snapshot_views.h"
#include "cli/volume_selection.h"
#include "cli/stream_copier.h"
#include "cli/terminal.h"

namespace tolvarcli {

CommandLine::Grammar CatCommand::Grammar() { return VolumeSelection::WithOptions({3, {}, {}}); }

int CatCommand::Run(const CommandLine& arguments) {
  const std::string& snapshot = arguments.Positional(1);
  const std::string& path = arguments.Positional(2);
  std::string volume;
  const int resolved = VolumeSelection::Resolve(arguments.Positional(0), arguments, &volume);
  if (resolved != kExitOk) return resolved;
  SnapshotViews views;
  if (!views.OpenOne(volume, snapshot)) return kExitLibrary;
  SnapshotTree tree(views.Newer());
  SnapshotTree::Found found;
  std::string error;
  if (!tree.Resolve(path, &found, &error)) {
    std::fprintf(stderr, "tolvar: %s\n", error.c_str());
    return kExitPath;
  }
  const DataStream* stream = nullptr;
  for (const DataStream& candidate : found.info->streams) {
    if (tree.GetUpCase().SameName(candidate.name, found.stream)) stream = &candidate;
  }
  if (found.info->directory && !found.hasStream) {
    std::fprintf(stderr, "tolvar: is a directory: %s\n", path.c_str());
    return kExitPath;
  }
  if (!stream) {
    std::fprintf(stderr, "tolvar: no such data stream in this snapshot: %s\n", path.c_str());
    return kExitPath;
  }
  SetBinary(stdout);
  StreamCopier::Result result = StreamCopier::Copy(tree.GetVolume(), *stream, stdout, &error);
  if (result == StreamCopier::kCopied && std::fflush(stdout) != 0) {
    result = StreamCopier::kWriteFailed;
    error = "cannot write the output";
  }
  if (result != StreamCopier::kCopied) {
    std::fprintf(stderr, "tolvar: %s: %s\n", path.c_str(), error.c_str());
    return result == StreamCopier::kWriteFailed ? kExitFile : kExitLibrary;
  }
  return kExitOk;
}

}  // namespace tolvarcli
