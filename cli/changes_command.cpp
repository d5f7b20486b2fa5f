// Lists the files and directories that changed between two shadow copies,
// found from the MFT records in the blocks that changed: as a table, JSON,
// CSV or The Sleuth Kit's body format.
#include "cli/changes_command.h"

#include <cstdio>
#include <string>
#include <vector>

#include "cli/change_finder.h"
#include "cli/exit_code.h"
#include "cli/file_time.h"
#include "cli/json_text.h"
#include "cli/snapshot_tree.h"
#include "cli/snapshot_views.h"
#include "cli/volume_selection.h"

namespace tolvarcli {

namespace {

// Field names of the four times, in FileRecordInfo::Time order.
const char* const kTimeNames[FileRecordInfo::kTimeCount] = {"created", "modified", "mft_modified", "accessed"};

uint64_t SizeOf(const std::shared_ptr<const FileRecordInfo>& info) { return info ? info->Size() : 0; }

std::string JsonTime(const std::shared_ptr<const FileRecordInfo>& info, int time) {
  if (!info || !info->hasTimes) return "null";
  return "\"" + FileTimeIso(info->times[time]) + "\"";
}

std::string JsonSize(const std::shared_ptr<const FileRecordInfo>& info) {
  return info ? std::to_string(info->Size()) : "null";
}

void PrintJson(const std::string& volume, const std::string& from, const std::string& to,
               const std::vector<FileChange>& changes) {
  std::printf("{\"volume\": %s, \"from\": %s, \"to\": %s, \"changes\": [", JsonText(volume).c_str(),
              JsonText(from).c_str(), JsonText(to).c_str());
  for (std::size_t i = 0; i < changes.size(); ++i) {
    const FileChange& c = changes[i];
    std::string line = std::string(i ? "," : "") + "\n  {\"path\": " + JsonText(c.path);
    if (c.kind == FileChange::kRenamed) line += ", \"old_path\": " + JsonText(c.oldPath);
    line += ", \"record\": " + std::to_string(c.record) + ", \"sequence\": " + std::to_string(c.sequence);
    line += ", \"change\": \"" + std::string(FileChange::KindName(c.kind)) + "\"";
    const bool directory = (c.newer ? c.newer : c.older)->directory;
    line += std::string(", \"directory\": ") + (directory ? "true" : "false");
    line += ", \"size\": " + JsonSize(c.newer) + ", \"old_size\": " + JsonSize(c.older);
    for (int t = 0; t < FileRecordInfo::kTimeCount; ++t)
      line += ", \"" + std::string(kTimeNames[t]) + "\": " + JsonTime(c.newer, t);
    for (int t = 0; t < FileRecordInfo::kTimeCount; ++t) {
      line += ", \"old_" + std::string(kTimeNames[t]) + "\": " + JsonTime(c.older, t);
    }
    std::printf("%s}", line.c_str());
  }
  std::printf("%s]}\n", changes.empty() ? "" : "\n");
}

// A CSV field, quoted when it holds a comma, quote or line break.
std::string CsvField(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string quoted = "\"";
  for (char c : text) {
    if (c == '"') quoted += '"';
    quoted += c;
  }
  return quoted + "\"";
}

std::string CsvTime(const std::shared_ptr<const FileRecordInfo>& info, int time) {
  return info && info->hasTimes ? FileTimeIso(info->times[time]) : "";
}

void PrintCsv(const std::vector<FileChange>& changes) {
  std::string header = "change,path,old_path,record,sequence,directory,size,old_size";
  for (const char* name : kTimeNames) header += std::string(",") + name;
  for (const char* name : kTimeNames) header += std::string(",old_") + name;
  std::printf("%s\n", header.c_str());
  for (const FileChange& c : changes) {
    const bool directory = (c.newer ? c.newer : c.older)->directory;
    std::string line = std::string(FileChange::KindName(c.kind)) + "," + CsvField(c.path) + "," + CsvField(c.oldPath) +
                       "," + std::to_string(c.record) + "," + std::to_string(c.sequence) + "," +
                       (directory ? "1" : "0") + "," + (c.newer ? std::to_string(SizeOf(c.newer)) : "") + "," +
                       (c.older ? std::to_string(SizeOf(c.older)) : "");
    for (int t = 0; t < FileRecordInfo::kTimeCount; ++t) line += "," + CsvTime(c.newer, t);
    for (int t = 0; t < FileRecordInfo::kTimeCount; ++t) line += "," + CsvTime(c.older, t);
    std::printf("%s\n", line.c_str());
  }
}

// The Sleuth Kit's body format (3.x): MD5|name|inode|mode|UID|GID|size|
// atime|mtime|ctime|crtime, times in whole seconds since 1970. One line per
// change, with the version it is about (the older one of a deleted file),
// the change named after the path; mactime makes the timeline.
void PrintBodyfile(const std::vector<FileChange>& changes) {
  for (const FileChange& c : changes) {
    const FileRecordInfo& info = c.newer ? *c.newer : *c.older;
    std::string name = c.path + " (" + FileChange::KindName(c.kind);
    if (c.kind == FileChange::kRenamed) name += " from " + c.oldPath;
    name += ")";
    // '|' separates the fields: a name holding one would shift them.
    for (char& ch : name) {
      if (ch == '|') ch = '_';
    }
    // A time never set (0, the year 1601) is 0 here too, which mactime leaves out.
    auto time = [&info](int t) {
      return static_cast<long long>(info.hasTimes && info.times[t] != 0 ? FileTimeUnix(info.times[t]) : 0);
    };
    std::printf("0|%s|%llu-%u|%s|0|0|%llu|%lld|%lld|%lld|%lld\n", name.c_str(),
                static_cast<unsigned long long>(c.record), static_cast<unsigned>(c.sequence),
                info.directory ? "d/drwxrwxrwx" : "r/rrwxrwxrwx", static_cast<unsigned long long>(info.Size()),
                time(FileRecordInfo::kAccessed), time(FileRecordInfo::kModified), time(FileRecordInfo::kRecordChanged),
                time(FileRecordInfo::kCreated));
  }
}

void PrintTable(const std::vector<FileChange>& changes) {
  for (const FileChange& c : changes) {
    std::string line = std::string(FileChange::KindName(c.kind)) + "\t" + std::to_string(c.record) + "-" +
                       std::to_string(c.sequence) + "\t" + (c.older ? std::to_string(SizeOf(c.older)) : "-") + "\t" +
                       (c.newer ? std::to_string(SizeOf(c.newer)) : "-") + "\t" + c.path;
    if (c.kind == FileChange::kRenamed) line += "\t(was " + c.oldPath + ")";
    std::printf("%s\n", line.c_str());
  }
}

}  // namespace

CommandLine::Grammar ChangesCommand::Grammar() {
  return VolumeSelection::WithOptions({3, {"--json", "--csv", "--bodyfile", "--content"}, {}});
}

int ChangesCommand::Run(const CommandLine& arguments) {
  const std::string& from = arguments.Positional(1);
  const std::string& to = arguments.Positional(2);
  const int formats = arguments.Has("--json") + arguments.Has("--csv") + arguments.Has("--bodyfile");
  if (formats > 1) {
    std::fprintf(stderr, "tolvar changes: --json, --csv and --bodyfile exclude each other\n");
    return kExitUsage;
  }
  std::string volume;
  const int resolved = VolumeSelection::Resolve(arguments.Positional(0), arguments, &volume);
  if (resolved != kExitOk) return resolved;
  SnapshotViews views;
  if (!views.OpenPair(volume, from, to)) return kExitLibrary;
  SnapshotTree older(views.Older());
  SnapshotTree newer(views.Newer());
  ChangeFinder finder(older, newer);
  const tolvarcore::BitMap& changed = *views.Changed();
  std::vector<uint64_t> damaged;
  std::vector<FileChange> changes =
      finder.Compare(finder.RecordsInBlocks(changed, SnapshotViews::kBlockSize), &damaged);
  if (arguments.Has("--content")) finder.AddContentChanges(changed, SnapshotViews::kBlockSize, &changes, &damaged);
  if (arguments.Has("--json")) {
    PrintJson(arguments.Positional(0), from, to, changes);
  } else if (arguments.Has("--csv")) {
    PrintCsv(changes);
  } else if (arguments.Has("--bodyfile")) {
    PrintBodyfile(changes);
  } else {
    PrintTable(changes);
  }
  for (uint64_t record : damaged) {
    std::fprintf(stderr, "tolvar: MFT record %llu is damaged; left out of the changes\n",
                 static_cast<unsigned long long>(record));
  }
  return damaged.empty() ? kExitOk : kExitDamaged;
}

}  // namespace tolvarcli
