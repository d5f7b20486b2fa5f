// Paths in any case, as the command takes them, turned into the form the
// library's own lookup matches (each component the file's name on disk in
// ASCII lower case), so that filemap and --exclude find files written in
// any case.
#ifndef TOLVAR_CLI_LIBRARY_PATH_H_
#define TOLVAR_CLI_LIBRARY_PATH_H_

#include <string>
#include <vector>

namespace tolvarcli {

class LibraryPath {
 public:
  // Each of paths as found in shadow copy snapshot of volume. A path that is
  // not found there, or every path when the shadow copy cannot be read, is
  // handed on as given: the export then reports it as it would. Prints
  // nothing and leaves no error queue behind.
  static std::vector<std::string> Convert(const std::string& volume, const std::string& snapshot,
                                          const std::vector<std::string>& paths);
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_LIBRARY_PATH_H_
