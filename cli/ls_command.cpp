// Lists a directory of one shadow copy: each name (DOS short names left
// out) and each named data stream as name:stream; with -l the kind, MFT
// record and sequence, size and modification time; with -r every directory
// below, as paths from the one listed.
#include "cli/ls_command.h"

#include <cstdio>
#include <string>
#include <vector>

#include "cli/exit_code.h"
#include "cli/file_time.h"
#include "cli/snapshot_tree.h"
#include "cli/snapshot_views.h"
#include "cli/volume_selection.h"

namespace tolvarcli {

namespace {

// The listing's options and what it met.
struct Listing {
  bool longForm = false;          // -l
  bool recursive = false;         // -r
  std::vector<uint64_t> damaged;  // records left out
};

void PrintLine(const Listing& listing, const FileRecordInfo& info, const std::string& name, uint64_t size,
               bool directory) {
  if (!listing.longForm) {
    std::printf("%s%s\n", name.c_str(), directory ? "/" : "");
    return;
  }
  std::printf("%c %llu-%u %llu %s %s%s\n", directory ? 'd' : 'r', static_cast<unsigned long long>(info.record),
              static_cast<unsigned>(info.sequence), static_cast<unsigned long long>(size),
              info.hasTimes ? FileTimeIso(info.times[FileRecordInfo::kModified]).c_str() : "-", name.c_str(),
              directory ? "/" : "");
}

void ListDirectory(SnapshotTree& tree, uint64_t directory, const std::string& prefix, int depth, Listing* listing) {
  for (const SnapshotTree::Entry& entry : tree.List(directory, &listing->damaged)) {
    const FileRecordInfo& info = *entry.info;
    const std::string name = prefix + Utf16ToUtf8(entry.name);
    PrintLine(*listing, info, name, info.Size(), info.directory);
    for (const DataStream& stream : info.streams) {
      if (!stream.name.empty()) PrintLine(*listing, info, name + ":" + Utf16ToUtf8(stream.name), stream.size, false);
    }
    // A directory met again deeper down (a damaged volume) is not entered again.
    if (listing->recursive && info.directory && info.record != SnapshotTree::kRootRecord && depth < 1024) {
      ListDirectory(tree, info.record, name + "/", depth + 1, listing);
    }
  }
}

}  // namespace

CommandLine::Grammar LsCommand::Grammar() { return VolumeSelection::WithOptions({2, {"-l", "-r"}, {}, 1}); }

int LsCommand::Run(const CommandLine& arguments) {
  const std::string& snapshot = arguments.Positional(1);
  const std::string path = arguments.PositionalCount() > 2 ? arguments.Positional(2) : "/";
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
  Listing listing;
  listing.longForm = arguments.Has("-l");
  listing.recursive = arguments.Has("-r");
  const FileRecordInfo& info = *found.info;
  if (info.directory && !found.hasStream) {
    ListDirectory(tree, info.record, "", 0, &listing);
  } else {
    PrintLine(listing, info, path, info.Size(), false);
  }
  for (uint64_t record : listing.damaged) {
    std::fprintf(stderr, "tolvar: MFT record %llu is damaged; left out of the listing\n",
                 static_cast<unsigned long long>(record));
  }
  return listing.damaged.empty() ? kExitOk : kExitDamaged;
}

}  // namespace tolvarcli
