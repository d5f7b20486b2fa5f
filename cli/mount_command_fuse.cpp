// tolvar mount with libfuse3: every shadow copy of the volume as a
// read-only file (ShadowCopyFileSystem), rebuilt from the store by the same
// views the exports read, each behind a cache that FUSE's threads share.
#define FUSE_USE_VERSION 31

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <fuse.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "cli/exit_code.h"
#include "cli/mount_command.h"
#include "cli/mount_table.h"
#include "cli/shadow_copy_catalog.h"
#include "cli/shadow_copy_file_system.h"
#include "cli/volume_file_layout.h"
#include "cli/volume_selection.h"
#include "core/vss/store_stack.h"
#include "ntfsparsercore/io/shared_line_cache.h"
#include "ntfsparsercore/io/image_opener.h"
#include "ntfsparsercore/io/system_file.h"
#include "ntfsparsercore/io/window_source.h"

namespace tolvarcli {

namespace {

using ntfsparsercore::io::ISource;
using ntfsparsercore::io::SharedLineCache;

// Each file's cache: lines of 64 KiB, up to 8 MiB of them.
constexpr uint64_t kCacheLineSize = 65536;
constexpr std::size_t kCacheLines = 128;
// The largest request FUSE is asked to pass on in one piece. libfuse
// splices a reply only through a pipe that holds it plus a page for each of
// its pieces, and a pipe grows to 1 MiB at most (pipe-max-size) without
// CAP_SYS_RESOURCE: a 512 KiB reply of up to 126 pieces fits, a larger one
// is copied. Sequential reads ran as fast with 768 KiB; 1 MiB is copied.
constexpr unsigned kLargestRequest = 1u << 19;
// The files never change: the kernel may keep what it learnt.
constexpr double kAttributeSeconds = 86400;
const char kMountOptions[] = "ro,default_permissions,fsname=tolvar,subtype=tolvar";
const char kDeviceFuse[] = "/dev/fuse";
// With --page-cache: the kernel reads ahead 128 KiB in a FUSE file unless
// told otherwise, so a sequential reader's requests arrive 128 KiB at a
// time. With 4 MiB they come as large as FUSE carries (kLargestRequest) and
// several at once: about twice the throughput. Only root may set it;
// elsewhere the mount keeps the kernel's default.
constexpr unsigned kReadAheadBytes = 4u << 20;
const char* const kFusermountPaths[] = {"/usr/bin/fusermount3", "/bin/fusermount3"};

// What the mount serves, and how.
struct Mounted {
  ShadowCopyFileSystem* fileSystem;
  bool pageCache;  // --page-cache: files are read through the kernel's page cache
};

const Mounted& MountedHere() { return *static_cast<const Mounted*>(fuse_get_context()->private_data); }
ShadowCopyFileSystem& FileSystem() { return *MountedHere().fileSystem; }

void FillTimes(struct stat* status, const ShadowCopyFileSystem::Time& time) {
  status->st_atim.tv_sec = status->st_mtim.tv_sec = status->st_ctim.tv_sec = static_cast<time_t>(time.seconds);
  status->st_atim.tv_nsec = status->st_mtim.tv_nsec = status->st_ctim.tv_nsec = static_cast<long>(time.nanoseconds);
}

// Files are served with direct I/O unless --page-cache is given: a read's
// reply then goes from the image's cached pages (spliced, see ReadBuffer)
// into the reader's own buffer, with no copy of the volume kept in memory a
// second time. Sequential reads ran at about twice the speed of files read
// through the page cache (5.3 against 1.9-3.2 GB/s); what direct I/O costs
// is that the files cannot be mapped shared (MAP_SHARED fails with ENODEV).
void* Init(struct fuse_conn_info* connection, struct fuse_config* config) {
  connection->max_write = kLargestRequest;  // also how many pages one read may carry
  // Replies that name ranges of the volume's file are spliced: the kernel
  // takes the file's cached pages into the reply without a copy through us.
  if ((connection->capable & FUSE_CAP_SPLICE_WRITE) != 0) connection->want |= FUSE_CAP_SPLICE_WRITE;
  if (MountedHere().pageCache) {
    // The kernel takes the smaller of this and the read-ahead RaiseReadAhead set.
    connection->max_readahead = kReadAheadBytes;
    config->kernel_cache = 1;
  } else {
    config->direct_io = 1;
  }
  config->entry_timeout = config->attr_timeout = config->negative_timeout = kAttributeSeconds;
  return fuse_get_context()->private_data;
}

int GetAttributes(const char* path, struct stat* status, struct fuse_file_info*) {
  const ShadowCopyFileSystem& fileSystem = FileSystem();
  const ShadowCopyFileSystem::Node node = fileSystem.Lookup(path);
  std::memset(status, 0, sizeof *status);
  status->st_uid = getuid();
  status->st_gid = getgid();
  if (node.kind == ShadowCopyFileSystem::Node::kMissing) return -ENOENT;
  if (node.kind == ShadowCopyFileSystem::Node::kDirectory) {
    status->st_mode = S_IFDIR | 0555;
    status->st_nlink = 2;
    FillTimes(status, fileSystem.DirectoryTime());
    return 0;
  }
  const ShadowCopyFileSystem::File& file = fileSystem.FileAt(node.file);
  status->st_mode = S_IFREG | 0444;
  status->st_nlink = 1;
  status->st_size = static_cast<off_t>(file.size);
  status->st_blocks = static_cast<blkcnt_t>((file.size + 511) / 512);
  status->st_blksize = static_cast<blksize_t>(kCacheLineSize);
  FillTimes(status, file.time);
  return 0;
}

int ReadDirectory(const char* path, void* buffer, fuse_fill_dir_t fill, off_t, struct fuse_file_info*,
                  enum fuse_readdir_flags) {
  const ShadowCopyFileSystem& fileSystem = FileSystem();
  if (fileSystem.Lookup(path).kind != ShadowCopyFileSystem::Node::kDirectory) return -ENOTDIR;
  fill(buffer, ".", nullptr, 0, static_cast<fuse_fill_dir_flags>(0));
  fill(buffer, "..", nullptr, 0, static_cast<fuse_fill_dir_flags>(0));
  for (const std::string& name : fileSystem.List(path)) {
    fill(buffer, name.c_str(), nullptr, 0, static_cast<fuse_fill_dir_flags>(0));
  }
  return 0;
}

int Open(const char* path, struct fuse_file_info* info) {
  const ShadowCopyFileSystem::Node node = FileSystem().Lookup(path);
  if (node.kind == ShadowCopyFileSystem::Node::kMissing) return -ENOENT;
  if (node.kind == ShadowCopyFileSystem::Node::kDirectory) return -EISDIR;
  if ((info->flags & O_ACCMODE) != O_RDONLY) return -EROFS;
  info->fh = node.file;
  info->keep_cache = 1;
  return 0;
}

// A reply of count pieces, each to be filled in; FUSE frees it, and the
// memory of every piece that is not a file range, with free(). Null when
// memory runs out.
struct fuse_bufvec* NewReply(std::size_t count) {
  const std::size_t bytes = sizeof(struct fuse_bufvec) + (count > 0 ? count - 1 : 0) * sizeof(struct fuse_buf);
  auto* reply = static_cast<struct fuse_bufvec*>(calloc(1, bytes));
  if (reply != nullptr) reply->count = count;
  return reply;
}

// Frees a reply that is not sent, as FUSE frees one that is.
void FreeReply(struct fuse_bufvec* reply) {
  for (std::size_t index = 0; index < reply->count; ++index) {
    if ((reply->buf[index].flags & FUSE_BUF_IS_FD) == 0) free(reply->buf[index].mem);
  }
  free(reply);
}

// The reply of stretches of the file open as descriptor (which the kernel
// copies itself) and of zeros (zeroed memory). Null when memory runs out.
struct fuse_bufvec* SplicedReply(const std::vector<VolumeFileLayout::Stretch>& stretches, int descriptor) {
  struct fuse_bufvec* reply = NewReply(stretches.size());
  if (reply == nullptr) return nullptr;
  for (std::size_t index = 0; index < stretches.size(); ++index) {
    const VolumeFileLayout::Stretch& stretch = stretches[index];
    struct fuse_buf& piece = reply->buf[index];
    piece.size = stretch.size;
    if (stretch.zeros) {
      piece.mem = calloc(1, stretch.size);
      if (piece.mem == nullptr) {
        FreeReply(reply);
        return nullptr;
      }
      continue;
    }
    piece.flags = static_cast<enum fuse_buf_flags>(FUSE_BUF_IS_FD | FUSE_BUF_FD_SEEK);
    piece.fd = descriptor;
    piece.pos = static_cast<off_t>(stretch.at);
  }
  return reply;
}

// The reply of size bytes read through the file's source. Null, with the
// error in *status, when they cannot be read.
struct fuse_bufvec* CopiedReply(std::size_t index, size_t size, uint64_t offset, int* status) {
  struct fuse_bufvec* reply = NewReply(1);
  void* memory = malloc(std::max<size_t>(size, 1));
  *status = -ENOMEM;
  if (reply == nullptr || memory == nullptr) {
    free(reply);
    free(memory);
    return nullptr;
  }
  reply->buf[0].mem = memory;
  const int64_t got = FileSystem().Read(index, memory, size, offset);
  if (got < 0) {
    FreeReply(reply);
    *status = -EIO;
    return nullptr;
  }
  reply->buf[0].size = static_cast<size_t>(got);
  return reply;
}

// A read is answered with ranges of the volume's file where the file has a
// layout that covers it, else with bytes read through its source.
int ReadBuffer(const char*, struct fuse_bufvec** out, size_t size, off_t offset, struct fuse_file_info* info) {
  const auto index = static_cast<std::size_t>(info->fh);
  const ShadowCopyFileSystem::File& file = FileSystem().FileAt(index);
  const auto at = static_cast<uint64_t>(offset);
  const uint64_t wanted = at < file.size ? std::min<uint64_t>(size, file.size - at) : 0;
  if (file.layout && wanted > 0) {
    const std::vector<VolumeFileLayout::Stretch> stretches = file.layout->Locate(wanted, at);
    if (!stretches.empty()) {
      *out = SplicedReply(stretches, static_cast<int>(file.layout->Handle()));
      return *out != nullptr ? 0 : -ENOMEM;
    }
  }
  int status = 0;
  *out = CopiedReply(index, size, at, &status);
  return *out != nullptr ? 0 : status;
}

int Refuse() { return -EROFS; }

fuse_operations Operations() {
  fuse_operations operations;
  std::memset(&operations, 0, sizeof operations);
  operations.init = Init;
  operations.getattr = GetAttributes;
  operations.readdir = ReadDirectory;
  operations.open = Open;
  operations.read_buf = ReadBuffer;
  // The mount is read-only; these answer should the kernel ever ask.
  operations.write = [](const char*, const char*, size_t, off_t, struct fuse_file_info*) { return Refuse(); };
  operations.truncate = [](const char*, off_t, struct fuse_file_info*) { return Refuse(); };
  operations.create = [](const char*, mode_t, struct fuse_file_info*) { return Refuse(); };
  operations.unlink = [](const char*) { return Refuse(); };
  operations.mkdir = [](const char*, mode_t) { return Refuse(); };
  return operations;
}

// "tolvar mount: TEXT" on stderr; the exit code for a mount that could not be made.
int Fail(const std::string& text) {
  std::fprintf(stderr, "tolvar mount: %s\n", text.c_str());
  return kExitMount;
}

// An empty string when FUSE can be used here, else why not.
std::string FuseUnavailability() {
  if (access(kDeviceFuse, F_OK) != 0) return "FUSE is not available (no /dev/fuse)";
  if (access(kDeviceFuse, R_OK | W_OK) != 0) return "FUSE is not available (/dev/fuse cannot be opened)";
  if (geteuid() == 0) return "";
  for (const char* path : kFusermountPaths) {
    if (access(path, X_OK) == 0) return "";
  }
  return "FUSE is not available (no fusermount3)";
}

// Checks the mount point; an empty string when it is usable, else why not.
std::string MountPointProblem(const std::string& mountPoint) {
  struct stat status;
  if (stat(mountPoint.c_str(), &status) != 0) return "mount point " + mountPoint + " does not exist";
  if (!S_ISDIR(status.st_mode)) return "mount point " + mountPoint + " is not a directory";
  if (MountTable::Read().Find(mountPoint) != nullptr) {
    return "mount point " + mountPoint + " is busy: something is already mounted there";
  }
  return "";
}

// A file over source, read through a cache of its own where layout (where
// its bytes lie in the volume's file) is null or does not cover a read.
ShadowCopyFileSystem::File CachedFile(std::shared_ptr<ISource> source, std::shared_ptr<const VolumeFileLayout> layout,
                                      uint64_t size, ShadowCopyFileSystem::Time time) {
  ShadowCopyFileSystem::File file;
  file.source = std::make_shared<SharedLineCache>(std::move(source), kCacheLineSize, kCacheLines);
  file.layout = std::move(layout);
  file.size = size;
  file.time = time;
  return file;
}

std::string AbsolutePath(const std::string& path) {
  char resolved[PATH_MAX];
  return realpath(path.c_str(), resolved) != nullptr ? std::string(resolved) : path;
}

ShadowCopyFileSystem::Time Now() {
  struct timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  return ShadowCopyFileSystem::Time{now.tv_sec, now.tv_nsec};
}

// A plain file or device is read with pread, which threads may share, and a
// window into one adds no state; other readers (containers) are not known to
// allow reads from several threads, so reads through them take turns.
bool ReadableByThreads(ISource* volume) {
  if (auto* window = dynamic_cast<ntfsparsercore::io::WindowSource*>(volume)) {
    return ReadableByThreads(window->GetSource().get());
  }
  return dynamic_cast<ntfsparsercore::io::SystemFile*>(volume) != nullptr;
}

// The file system of the volume at path; null, after saying why on stderr,
// when the volume or its store cannot be read.
std::unique_ptr<ShadowCopyFileSystem> BuildFileSystem(const std::string& path) {
  ShadowCopyCatalog catalog;
  if (!catalog.Read(path)) return nullptr;
  std::shared_ptr<ISource> volume(ntfsparsercore::io::ImageOpener::OpenVolume(path));
  if (!volume) {
    std::fprintf(stderr, "tolvar mount: cannot open %s\n", path.c_str());
    return nullptr;
  }
  auto fileSystem = std::make_unique<ShadowCopyFileSystem>(
      CachedFile(volume, VolumeFileLayout::OfVolume(volume), volume->GetSize(), Now()));
  if (!ReadableByThreads(volume.get())) fileSystem->SerialiseReads();
  const auto stores = tolvarcore::vss::StoreStack::Read(*catalog.Storage());
  for (const auto& entry : catalog.Entries()) {
    std::shared_ptr<tolvarcore::vss::StoreSnapshotSource> view(stores->OpenView(entry.store));
    uint8_t first = 0;
    // The first read loads the store tables, now rather than on the first request.
    if (!view || (entry.volumeSize > 0 && view->Read(&first, 1, 0) != 1)) {
      std::fprintf(stderr, "tolvar mount: the shadow copy %s of %s cannot be read\n",
                   entry.shadowCopy.ToString().c_str(), path.c_str());
      return nullptr;
    }
    fileSystem->AddShadowCopy(entry.shadowCopy.ToString(),
                              CachedFile(view, VolumeFileLayout::OfShadowCopy(view), entry.volumeSize,
                                         ShadowCopyFileSystem::FromFileTime(entry.creationTime)));
  }
  return fileSystem;
}

// Sets the read-ahead of the FUSE mount on mountPoint (absolute) through
// its backing device's sysfs entry; does nothing where that is not allowed.
void RaiseReadAhead(const std::string& mountPoint) {
  const MountTable table = MountTable::Read();
  const MountTable::Mount* mount = table.FindExactly(mountPoint);
  if (mount == nullptr || mount->device.empty()) return;
  std::ofstream setting("/sys/class/bdi/" + mount->device + "/read_ahead_kb");
  setting << kReadAheadBytes / 1024;
}

// FUSE's own arguments: the program name and the mount options, ours first.
std::vector<std::string> FuseArguments(const CommandLine& arguments) {
  std::vector<std::string> words = {"tolvar", "-o", kMountOptions};
  for (const std::string& options : arguments.Values("-o")) {
    words.push_back("-o");
    words.push_back(options);
  }
  return words;
}

// Mounts fileSystem and serves it until the mount ends; returns the exit code.
int Serve(ShadowCopyFileSystem& fileSystem, const CommandLine& arguments) {
  // Absolute: serving in the background starts by changing to "/".
  const std::string mountPoint = AbsolutePath(arguments.Positional(1));
  std::vector<std::string> words = FuseArguments(arguments);
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(&word[0]);
  struct fuse_args fuseArguments = FUSE_ARGS_INIT(static_cast<int>(argv.size()), argv.data());
  const fuse_operations operations = Operations();
  Mounted mounted{&fileSystem, arguments.Has("--page-cache")};
  struct fuse* fuse = fuse_new(&fuseArguments, &operations, sizeof operations, &mounted);
  fuse_opt_free_args(&fuseArguments);
  if (fuse == nullptr) return Fail("FUSE refused the options given with -o");
  if (fuse_mount(fuse, mountPoint.c_str()) != 0) {
    fuse_destroy(fuse);
    return Fail("cannot mount on " + mountPoint + " (install fuse3 or load the fuse module: modprobe fuse)");
  }
  if (mounted.pageCache) RaiseReadAhead(mountPoint);
  struct fuse_session* session = fuse_get_session(fuse);
  int status = fuse_set_signal_handlers(session);
  // Without -f the command returns here, in the parent, once the mount is made.
  if (status == 0) status = fuse_daemonize(arguments.Has("-f") ? 1 : 0);
  if (status == 0) status = fuse_loop_mt(fuse, 0);
  fuse_remove_signal_handlers(session);
  fuse_unmount(fuse);
  fuse_destroy(fuse);
  return status == 0 ? kExitOk : kExitMount;
}

}  // namespace

int MountCommand::Run(const CommandLine& arguments) {
  const std::string& mountPoint = arguments.Positional(1);
  const std::string unavailable = FuseUnavailability();
  if (!unavailable.empty()) return Fail(unavailable + ": install fuse3 or load the fuse module (modprobe fuse)");
  const std::string problem = MountPointProblem(mountPoint);
  if (!problem.empty()) return Fail(problem);
  std::string volume;
  const int resolved = VolumeSelection::Resolve(arguments.Positional(0), arguments, &volume);
  if (resolved != kExitOk) return resolved;
  std::unique_ptr<ShadowCopyFileSystem> fileSystem = BuildFileSystem(volume);
  if (!fileSystem) return kExitLibrary;
  return Serve(*fileSystem, arguments);
}

}  // namespace tolvarcli
