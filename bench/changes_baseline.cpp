// The baseline of bench/changes_bench.py: the changes between two shadow
// copies found by comparing every record of both MFTs (--full), or, for a
// check, from the records in changed blocks as `tolvar changes` finds them
// (--changed). Opens the shadow copies as the command does and prints
//   {"records": N, "records_in_changed_blocks": M, "changes": [{"record":
//    R, "change": "KIND", "path": "P"}, ...]}
//
//   changes_baseline VOLUME FROM TO --full|--changed
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "cli/change_finder.h"
#include "cli/json_text.h"
#include "cli/snapshot_tree.h"
#include "cli/snapshot_views.h"

using tolvarcli::ChangeFinder;
using tolvarcli::FileChange;
using tolvarcli::JsonText;
using tolvarcli::SnapshotTree;
using tolvarcli::SnapshotViews;

int main(int argc, char** argv) {
  if (argc != 5 || (std::strcmp(argv[4], "--full") != 0 && std::strcmp(argv[4], "--changed") != 0)) {
    std::fprintf(stderr, "usage: changes_baseline VOLUME FROM TO --full|--changed\n");
    return 1;
  }
  SnapshotViews views;
  if (!views.OpenPair(argv[1], argv[2], argv[3])) return 2;
  SnapshotTree older(views.Older());
  SnapshotTree newer(views.Newer());
  ChangeFinder finder(older, newer);
  const std::vector<uint64_t> inChangedBlocks = finder.RecordsInBlocks(*views.Changed(), SnapshotViews::kBlockSize);
  const std::vector<uint64_t> all = finder.AllRecords();
  const bool full = std::strcmp(argv[4], "--full") == 0;
  std::vector<uint64_t> damaged;
  const std::vector<FileChange> changes = finder.Compare(full ? all : inChangedBlocks, &damaged);
  std::printf("{\"records\": %zu, \"records_in_changed_blocks\": %zu, \"damaged\": %zu, \"changes\": [", all.size(),
              inChangedBlocks.size(), damaged.size());
  for (std::size_t i = 0; i < changes.size(); ++i) {
    std::printf("%s\n  {\"record\": %llu, \"change\": \"%s\", \"path\": %s}", i ? "," : "",
                static_cast<unsigned long long>(changes[i].record), FileChange::KindName(changes[i].kind),
                JsonText(changes[i].path).c_str());
  }
  std::printf("]}\n");
  return 0;
}
