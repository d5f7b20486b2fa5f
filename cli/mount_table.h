// The mounts of this process's mount namespace, as /proc/self/mountinfo
// lists them. Built only with FUSE (Linux).
#ifndef TOLVAR_CLI_MOUNT_TABLE_H_
#define TOLVAR_CLI_MOUNT_TABLE_H_

#include <string>
#include <vector>

namespace tolvarcli {

class MountTable {
 public:
  struct Mount {
    std::string point;   // where it is mounted, an absolute path
    std::string type;    // the file system type, e.g. "fuse.tolvar"
    std::string device;  // the file system's device number as "MAJOR:MINOR"
  };

  // The current table; empty when it cannot be read.
  static MountTable Read();
  // Parses the text of a mountinfo file.
  static MountTable Parse(const std::string& text);

  // The last mount (the one in force) on the directory at path, which is
  // resolved first, or null.
  const Mount* Find(const std::string& path) const;
  // The last mount on point, an absolute path taken as it is (nothing on
  // it is looked at: the mount may not answer yet), or null.
  const Mount* FindExactly(const std::string& point) const;

  const std::vector<Mount>& Mounts() const { return mounts_; }

 private:
  std::vector<Mount> mounts_;  // in the table's order
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_MOUNT_TABLE_H_
