// The exit codes of the tolvar command.
#ifndef TOLVAR_CLI_EXIT_CODE_H_
#define TOLVAR_CLI_EXIT_CODE_H_

namespace tolvarcli {

enum ExitCode : int {
  kExitOk = 0,       // the command did what it was asked
  kExitUsage = 1,    // bad command line
  kExitLibrary = 2,  // the library refused (a status other than success); its messages were printed
  kExitFile = 3,     // a file of the command's own could not be read or written
  kExitRefused = 4,  // apply: the increment is damaged or does not fit BASE; BASE untouched
  kExitDiffers = 5,  // verify: the image differs from the shadow copy outside the store's files
  kExitVolume = 6,   // the image, or the volume named in it, cannot be opened or holds no shadow-copy store
  kExitMount = 7,    // mount, umount: FUSE or the mount point is not usable, or the mount failed
  kExitPath = 8,     // ls, cat: the path is not in that shadow copy, or cat was given a directory
  kExitDamaged = 9,  // ls, changes: done, but damaged MFT records were left out (named on stderr)
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_EXIT_CODE_H_
