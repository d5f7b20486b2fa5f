#include "cli/mount_table.h"

#include <limits.h>
#include <stdlib.h>

#include <fstream>
#include <sstream>

namespace tolvarcli {

namespace {

const char kMountInfo[] = "/proc/self/mountinfo";
constexpr int kDeviceField = 2;  // fields from 0: ID, parent, device, root, mount point, ...
constexpr int kMountPointField = 4;
const char kSeparator[] = "-";  // ends the optional fields; the type follows

// Whether field holds a backslash and three octal digits at k.
bool IsOctalEscape(const std::string& field, std::size_t k) {
  if (field[k] != '\\' || k + 3 >= field.size()) return false;
  for (std::size_t digit = k + 1; digit <= k + 3; ++digit) {
    if (field[digit] < '0' || field[digit] > '7') return false;
  }
  return true;
}

// The kernel writes space, tab, newline and backslash in paths as \ooo.
std::string Unescape(const std::string& field) {
  std::string text;
  for (std::size_t k = 0; k < field.size(); ++k) {
    if (IsOctalEscape(field, k)) {
      text.push_back(static_cast<char>(std::stoi(field.substr(k + 1, 3), nullptr, 8)));
      k += 3;
    } else {
      text.push_back(field[k]);
    }
  }
  return text;
}

std::string Resolved(const std::string& path) {
  char resolved[PATH_MAX];
  return realpath(path.c_str(), resolved) != nullptr ? std::string(resolved) : path;
}

}  // namespace

MountTable MountTable::Read() {
  std::ifstream file(kMountInfo);
  std::stringstream text;
  text << file.rdbuf();
  return Parse(text.str());
}

MountTable MountTable::Parse(const std::string& text) {
  MountTable table;
  std::istringstream lines(text);
  std::string line;
  while (std::getline(lines, line)) {
    std::istringstream words(line);
    std::vector<std::string> fields;
    for (std::string word; words >> word;) fields.push_back(word);
    std::size_t separator = kMountPointField + 1;
    while (separator < fields.size() && fields[separator] != kSeparator) ++separator;
    if (separator + 1 >= fields.size()) continue;
    table.mounts_.push_back(Mount{Unescape(fields[kMountPointField]), fields[separator + 1], fields[kDeviceField]});
  }
  return table;
}

const MountTable::Mount* MountTable::Find(const std::string& path) const { return FindExactly(Resolved(path)); }

const MountTable::Mount* MountTable::FindExactly(const std::string& point) const {
  const Mount* found = nullptr;
  for (const Mount& mount : mounts_) {
    if (mount.point == point) found = &mount;
  }
  return found;
}

}  // namespace tolvarcli
