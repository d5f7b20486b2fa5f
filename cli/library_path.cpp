#include "cli/library_path.h"

#include "cli/snapshot_tree.h"
#include "cli/snapshot_views.h"

namespace tolvarcli {

std::vector<std::string> LibraryPath::Convert(const std::string& volume, const std::string& snapshot,
                                              const std::vector<std::string>& paths) {
  if (paths.empty()) return paths;
  SnapshotViews views;
  if (!views.OpenOne(volume, snapshot, true)) return paths;
  SnapshotTree tree(views.Newer());
  std::vector<std::string> converted;
  for (const std::string& path : paths) {
    SnapshotTree::Found found;
    std::string error;
    converted.push_back(tree.Resolve(path, &found, &error) ? tree.LibraryPathOf(path) : path);
  }
  return converted;
}

}  // namespace tolvarcli
