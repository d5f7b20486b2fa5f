#!/usr/bin/python3
"""tolvar mount end to end, against libvshadow and the NTFS tools.

    check_mount.py --cli TOLVAR --work DIR scenario --tool MKVSSIMAGE --scenario NAME
    check_mount.py --cli TOLVAR --work DIR windows --disk NTFS_RAW --extract EXTRACT_PARTITION
    check_mount.py --cli TOLVAR --work DIR failures --tool MKVSSIMAGE

scenario: every vssN hashes (SHA-256) as libvshadow's read of that store does,
served with direct I/O and, in a foreground mount, through the page cache;
by-id holds the same files under vshadowinfo's shadow copy IDs; sizes are the
volume size and times the creation times vshadowinfo prints; `volume` is the
image; fls lists each mounted file as it lists libvshadow's read, and files
read through ntfs-3g -o ro on the mounted file equal icat's; writes fail with
EROFS; two readers at once get the same bytes, and so do reads of an odd
size; a private mapping (and with
--page-cache a shared one) shows what read does; umount leaves no process.
windows: the same for the Windows 10 disk, mounted whole with --partition 1,
where each 64 GiB shadow copy
is compared with libvshadow on every block a store keeps or forwards to and
on a sample of the rest instead of hashed whole, and fls and icat read
vshadowmount's files for the reference.
failures: the documented messages and exit codes.
Exits 77 when FUSE, the image builder, the test data or an oracle is missing."""
import argparse
import calendar
import errno
import hashlib
import json
import mmap
import os
import re
import shutil
import subprocess
import sys
import threading
import time

SKIP = 77
CHUNK = 1 << 20
STORE_BLOCK = 16384
WINDOWS_OFFSET = 1048576
WINDOWS_LENGTH = 68716331008
SAMPLE_STRIDE = 509 * STORE_BLOCK  # a prime number of blocks, so samples fall on varied blocks
MAPPED_BYTES = 1 << 20  # how much of a file check_mappings maps
ODD_READ = 12345  # bytes per read in check_odd_reads


class Failure(Exception):
    pass


def skip(reason):
    print("SKIP: " + reason)
    sys.exit(SKIP)


def require_tools():
    if not os.path.exists("/dev/fuse"):
        skip("FUSE is not available here (no /dev/fuse)")
    for tool in ("fusermount3", "vshadowinfo", "vshadowmount", "fls", "icat", "ntfs-3g"):
        if shutil.which(tool) is None:
            skip("%s is not installed" % tool)
    try:
        import pyvshadow  # noqa: F401
    except ImportError:
        skip("pyvshadow (python3-libvshadow) is not installed")


def tolvar(arguments, *words, **options):
    environment = dict(os.environ)
    environment.pop("LD_PRELOAD", None)
    return subprocess.run([arguments.cli] + [str(word) for word in words], stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, env=environment, **options)


def expect(arguments, words, code, stderr_lines=None):
    completed = tolvar(arguments, *words)
    label = "tolvar " + " ".join(str(word) for word in words)
    if completed.returncode != code:
        raise Failure("%s: exit %d, expected %d\n%s" % (label, completed.returncode, code, completed.stderr.decode()))
    if stderr_lines is not None and completed.stderr.decode().splitlines() != stderr_lines:
        raise Failure("%s: stderr %r, expected %r" % (label, completed.stderr.decode().splitlines(), stderr_lines))


def mounted_type(mount_point):
    wanted = os.path.realpath(mount_point)
    found = None
    with open("/proc/self/mountinfo") as table:
        for line in table:
            fields = line.split()
            point = re.sub(r"\\([0-7]{3})", lambda m: chr(int(m.group(1), 8)), fields[4])
            if point == wanted:
                found = fields[fields.index("-") + 1]
    return found


def serving_processes(mount_point):
    """The processes whose command line names the mount point."""
    wanted = os.fsencode(mount_point)
    found = []
    for entry in os.listdir("/proc"):
        if not entry.isdigit():
            continue
        try:
            with open("/proc/%s/cmdline" % entry, "rb") as handle:
                words = handle.read().split(b"\0")
        except OSError:
            continue
        if b"mount" in words and wanted in words and int(entry) != os.getpid():
            found.append(int(entry))
    return found


class Mount:
    """tolvar mount VOLUME MOUNTPOINT for a with-block; unmounted at the end."""

    def __init__(self, arguments, volume, mount_point, *options):
        self.arguments, self.volume, self.mount_point, self.options = arguments, volume, mount_point, options

    def __enter__(self):
        os.makedirs(self.mount_point, exist_ok=True)
        if mounted_type(self.mount_point):
            subprocess.run(["fusermount3", "-u", self.mount_point])
        completed = tolvar(self.arguments, "mount", self.volume, self.mount_point, *self.options)
        if completed.returncode != 0:
            raise Failure("tolvar mount %s: exit %d\n%s" % (self.volume, completed.returncode,
                                                            completed.stderr.decode()))
        if mounted_type(self.mount_point) != "fuse.tolvar":
            raise Failure("tolvar mount returned before the mount was made")
        return self

    def path(self, *names):
        return os.path.join(self.mount_point, *names)

    def __exit__(self, *exception):
        if mounted_type(self.mount_point):
            completed = tolvar(self.arguments, "umount", self.mount_point)
            if completed.returncode != 0 and exception[0] is None:
                raise Failure("tolvar umount: exit %d\n%s" % (completed.returncode, completed.stderr.decode()))
        deadline = time.monotonic() + 10
        while serving_processes(self.mount_point):
            if time.monotonic() > deadline:
                raise Failure("the mount's process is still running after umount")
            time.sleep(0.05)
        if mounted_type(self.mount_point):
            raise Failure("%s is still mounted after umount" % self.mount_point)


def vshadowinfo(volume):
    """Each store's shadow copy ID and creation time (seconds, nanoseconds), oldest first."""
    text = subprocess.run(["vshadowinfo", volume], stdout=subprocess.PIPE, check=True).stdout.decode()
    stores = []
    for block in text.split("Store: ")[1:]:
        identifier = re.search(r"Shadow copy ID\s*:\s*(\S+)", block).group(1)
        stamp = re.search(r"Creation time\s*:\s*(\w+ \d+, \d+ \d+:\d+:\d+)\.(\d+) UTC", block)
        seconds = calendar.timegm(time.strptime(stamp.group(1), "%b %d, %Y %H:%M:%S"))
        stores.append((identifier, seconds, int(stamp.group(2).ljust(9, "0")[:9])))
    return stores


def file_digest(path):
    digest = hashlib.sha256()
    with open(path, "rb") as handle:
        for chunk in iter(lambda: handle.read(CHUNK), b""):
            digest.update(chunk)
    return digest.hexdigest()


def first_difference(path, store):
    """Where the file at path first differs from libvshadow's read of store,
    and how long the file read: for the message of a failed comparison."""
    size = store.volume_size
    read = 0
    with open(path, "rb") as handle:
        for offset in range(0, size, CHUNK):
            ours = handle.read(CHUNK)
            read += len(ours)
            theirs = store.read_buffer_at_offset(min(CHUNK, size - offset), offset)
            if ours != theirs:
                at = next((i for i in range(min(len(ours), len(theirs))) if ours[i] != theirs[i]),
                          min(len(ours), len(theirs)))
                return "first difference at byte %d (read %d of %d bytes)" % (offset + at, read, size)
    return "no difference when read again (%d bytes)" % read


def store_digest(store):
    digest = hashlib.sha256()
    size = store.volume_size
    for offset in range(0, size, CHUNK):
        data = store.read_buffer_at_offset(min(CHUNK, size - offset), offset)
        if len(data) != min(CHUNK, size - offset):
            raise Failure("libvshadow read short at %d" % offset)
        digest.update(data)
    return digest.hexdigest()


def open_stores(volume):
    import pyvshadow
    handle = pyvshadow.volume()
    handle.open(volume)
    return handle, [handle.get_store(index) for index in range(handle.number_of_stores)]


def check_listing(mount, stores, info, volume_size):
    names = sorted(os.listdir(mount.path()))
    wanted = sorted(["vss%d" % (k + 1) for k in range(len(stores))] + ["volume", "by-id"])
    if names != wanted:
        raise Failure("the mount lists %r, expected %r" % (names, wanted))
    if sorted(os.listdir(mount.path("by-id"))) != sorted(identifier for identifier, _, _ in info):
        raise Failure("by-id lists %r, vshadowinfo %r" % (os.listdir(mount.path("by-id")), info))
    for number, (identifier, seconds, nanoseconds) in enumerate(info, 1):
        for path in (mount.path("vss%d" % number), mount.path("by-id", identifier)):
            status = os.stat(path)
            if status.st_size != volume_size:
                raise Failure("%s: size %d, expected %d" % (path, status.st_size, volume_size))
            if status.st_mtime_ns != seconds * 10**9 + nanoseconds:
                raise Failure("%s: time %d ns, vshadowinfo says %d s %d ns" % (path, status.st_mtime_ns, seconds,
                                                                                nanoseconds))
    print("listing: %d shadow copies, by-id names, sizes and times as vshadowinfo gives them" % len(info))


def check_writes_fail(mount):
    for flags in (os.O_WRONLY, os.O_RDWR, os.O_WRONLY | os.O_TRUNC):
        try:
            os.close(os.open(mount.path("vss1"), flags))
        except OSError as error:
            if error.errno != errno.EROFS:
                raise Failure("opening vss1 for writing failed with %s, expected EROFS" % error)
        else:
            raise Failure("vss1 opened for writing")
    for action in (lambda: os.truncate(mount.path("volume"), 0), lambda: os.mkdir(mount.path("new")),
                   lambda: open(mount.path("by-id", "new"), "wb"), lambda: os.unlink(mount.path("vss1"))):
        try:
            action()
        except OSError as error:
            if error.errno != errno.EROFS:
                raise Failure("a write through the mount failed with %s, expected EROFS" % error)
        else:
            raise Failure("a write through the mount succeeded")
    print("writes: every kind fails with EROFS")


def check_two_readers(mount, path, expected_digest):
    """Two processes hash the same file at once, with nothing in the page cache yet."""
    readers = [subprocess.Popen(["sha256sum", path], stdout=subprocess.PIPE) for _ in range(2)]
    digests = [reader.communicate()[0].split()[0].decode() for reader in readers]
    if digests != [expected_digest] * 2:
        raise Failure("two readers of %s at once got %r, expected %s" % (path, digests, expected_digest))
    print("two readers at once: both hash %s as libvshadow does" % os.path.basename(path))


def fls_listing(path):
    completed = subprocess.run(["fls", "-r", "-p", path], stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    if completed.returncode != 0:
        raise Failure("fls -r -p %s failed: %s" % (path, completed.stderr.decode()))
    return completed.stdout


def check_ntfs_3g(mount, number, reference, work, limit=40):
    """ntfs-3g -o ro reads the mounted file; its files equal icat's reads of libvshadow's copy."""
    target = os.path.join(work, "ntfs-3g")
    os.makedirs(target, exist_ok=True)
    completed = subprocess.run(["ntfs-3g", "-o", "ro", mount.path("vss%d" % number), target],
                               stderr=subprocess.PIPE)
    if completed.returncode != 0:
        raise Failure("ntfs-3g -o ro vss%d failed: %s" % (number, completed.stderr.decode()))
    compared = 0
    try:
        for directory, _, files in os.walk(target):
            for name in sorted(files):
                path = os.path.join(directory, name)
                if compared == limit or not os.path.isfile(path) or os.path.getsize(path) > 64 * CHUNK:
                    continue
                with open(path, "rb") as handle:
                    ours = handle.read()
                inode = str(os.stat(path).st_ino)
                theirs = subprocess.run(["icat", reference, inode], stdout=subprocess.PIPE).stdout
                if ours != theirs:
                    raise Failure("vss%d%s: ntfs-3g reads other bytes than icat on libvshadow's copy (inode %s)"
                                  % (number, path[len(target):], inode))
                compared += 1
    finally:
        subprocess.run(["fusermount3", "-u", target])
    if compared == 0:
        raise Failure("ntfs-3g showed no file in vss%d" % number)
    print("ntfs-3g -o ro on vss%d: %d files equal icat's" % (number, compared))


def write_store_copy(store, path):
    with open(path, "wb") as handle:
        size = store.volume_size
        for offset in range(0, size, CHUNK):
            handle.write(store.read_buffer_at_offset(min(CHUNK, size - offset), offset))


def run_scenario(arguments):
    require_tools()
    os.makedirs(arguments.work, exist_ok=True)
    prefix = os.path.join(arguments.work, arguments.scenario)
    environment = dict(os.environ)
    environment.pop("LD_PRELOAD", None)
    completed = subprocess.run([arguments.tool, "build", arguments.scenario, "-o", prefix], env=environment,
                               stdout=subprocess.DEVNULL)
    if completed.returncode == SKIP:
        skip("the image builder cannot make images on this machine")
    if completed.returncode != 0:
        raise Failure("the image builder failed with %d" % completed.returncode)
    image = prefix + ".img"
    volume_size = os.path.getsize(image)
    _, stores = open_stores(image)
    info = vshadowinfo(image)
    digests = [store_digest(store) for store in stores]
    mount_point = os.path.join(arguments.work, "mnt")
    with Mount(arguments, image, mount_point) as mount:
        check_two_readers(mount, mount.path("vss1"), digests[0])
        check_odd_reads(mount.path("vss1"), digests[0], stores[0])
        check_listing(mount, stores, info, volume_size)
        for number, (identifier, _, _) in enumerate(info, 1):
            for path in (mount.path("vss%d" % number), mount.path("by-id", identifier)):
                if file_digest(path) != digests[number - 1]:
                    raise Failure("%s hashes otherwise than libvshadow's read of store %d: %s"
                                  % (path, number, first_difference(path, stores[number - 1])))
        print("SHA-256: every vssN and by-id file equals libvshadow's read of its store (vss1 also read %d bytes"
              " at a time)" % ODD_READ)
        if file_digest(mount.path("volume")) != file_digest(image):
            raise Failure("volume differs from the image")
        check_writes_fail(mount)
        check_mappings(mount.path("vss1"), shared=False)
        for number, store in enumerate(stores, 1):
            reference = os.path.join(arguments.work, "store%d.img" % number)
            write_store_copy(store, reference)
            if fls_listing(mount.path("vss%d" % number)) != fls_listing(reference):
                raise Failure("fls lists vss%d otherwise than libvshadow's copy" % number)
            if number == 1:
                check_ntfs_3g(mount, number, reference, arguments.work)
            os.remove(reference)
        print("fls: every vssN lists as libvshadow's copy does")
    print("umount: the mount and its process are gone")
    check_foreground(arguments, image, mount_point, digests)
    return 0


def check_odd_reads(path, expected_digest, store):
    """Reads of an odd size, which start inside pages and sectors, give the
    same bytes as reads of whole pages: the rebuilt view, as libvshadow,
    reads other bytes from inside a sector an overlay keeps in part than
    from its start, and the mount serves every read as from its page."""
    digest = hashlib.sha256()
    with open(path, "rb", buffering=0) as handle:
        for piece in iter(lambda: handle.read(ODD_READ), b""):
            digest.update(piece)
    if digest.hexdigest() != expected_digest:
        raise Failure("%s read %d bytes at a time differs from libvshadow's read: %s"
                      % (path, ODD_READ, first_difference(path, store)))


def check_mappings(path, shared):
    """A private mapping of path (and a shared one with shared) shows the
    bytes that read gives. Files served with direct I/O can be mapped
    privately only."""
    with open(path, "rb") as handle:
        expected = handle.read(MAPPED_BYTES)
        kinds = [("private", mmap.MAP_PRIVATE)] + ([("shared", mmap.MAP_SHARED)] if shared else [])
        for name, flags in kinds:
            mapping = mmap.mmap(handle.fileno(), MAPPED_BYTES, flags=flags, prot=mmap.PROT_READ)
            try:
                if mapping[:] != expected:
                    raise Failure("a %s mapping of %s shows other bytes than read" % (name, path))
            finally:
                mapping.close()


def check_foreground(arguments, image, mount_point, digests):
    """-f keeps the command in front until the mount ends, then it exits 0;
    with --page-cache every vssN still hashes as libvshadow reads it, and can
    be mapped shared."""
    environment = dict(os.environ)
    environment.pop("LD_PRELOAD", None)
    process = subprocess.Popen([arguments.cli, "mount", image, mount_point, "-f", "--page-cache"], env=environment,
                               stderr=subprocess.PIPE)
    deadline = time.monotonic() + 30
    while mounted_type(mount_point) != "fuse.tolvar":
        if process.poll() is not None or time.monotonic() > deadline:
            process.kill()
            raise Failure("tolvar mount -f did not mount: %s" % process.stderr.read().decode())
        time.sleep(0.05)
    try:
        for number, digest in enumerate(digests, 1):
            if file_digest(os.path.join(mount_point, "vss%d" % number)) != digest:
                raise Failure("vss%d through a foreground mount with --page-cache differs from libvshadow" % number)
        check_mappings(os.path.join(mount_point, "vss1"), shared=True)
        if process.poll() is not None:
            raise Failure("tolvar mount -f left the foreground")
        expect(arguments, ["umount", mount_point], 0, [])
        code = process.wait(timeout=30)
    finally:
        if process.poll() is None:
            process.kill()
    if code != 0:
        raise Failure("tolvar mount -f exited %d after umount" % code)
    print("-f --page-cache: every vssN equals libvshadow's read; served in the foreground until umount, then exit 0")


def offsets_to_check(stores, volume_size):
    offsets = set(range(0, volume_size, SAMPLE_STRIDE))
    for store in stores:
        for index in range(store.number_of_blocks):
            block = store.get_block(index)
            for offset in (block.original_offset, block.relative_offset):
                start = offset - offset % STORE_BLOCK
                if start < volume_size:
                    offsets.add(start)
    return sorted(offsets)


def check_fls_against_vshadowmount(mount, volume, count, work):
    """fls lists every mounted vssN as it lists libvshadow's own mount of it;
    files read through ntfs-3g on the newest equal icat's on libvshadow's."""
    theirs = os.path.join(work, "vshadowmount")
    os.makedirs(theirs, exist_ok=True)
    if subprocess.run(["vshadowmount", volume, theirs], stdout=subprocess.DEVNULL).returncode != 0:
        skip("vshadowmount cannot mount here")
    try:
        for number in range(1, count + 1):
            name = "vss%d" % number
            if fls_listing(mount.path(name)) != fls_listing(os.path.join(theirs, name)):
                raise Failure("fls lists %s otherwise than on vshadowmount's %s" % (name, name))
        check_ntfs_3g(mount, count, os.path.join(theirs, "vss%d" % count), work)
    finally:
        subprocess.run(["fusermount3", "-u", theirs])
    print("fls: every vssN lists as on vshadowmount's")


def run_windows(arguments):
    require_tools()
    if not os.path.exists(arguments.disk):
        skip("the Windows 10 disk image %s is not there (../shared/testdata)" % arguments.disk)
    os.makedirs(arguments.work, exist_ok=True)
    volume = os.path.join(arguments.work, "win10.vol")
    subprocess.run(["/usr/bin/python3", arguments.extract, arguments.disk, str(WINDOWS_OFFSET), str(WINDOWS_LENGTH),
                    volume], check=True)
    _, stores = open_stores(volume)
    info = vshadowinfo(volume)
    offsets = offsets_to_check(stores, WINDOWS_LENGTH)
    # The whole disk, partition 1: the oracles read the partition copied out.
    with Mount(arguments, arguments.disk, os.path.join(arguments.work, "mnt"), "--partition", "1") as mount:
        check_listing(mount, stores, info, WINDOWS_LENGTH)
        for number, store in enumerate(stores, 1):
            with open(mount.path("vss%d" % number), "rb") as handle:
                for offset in offsets:
                    if os.pread(handle.fileno(), STORE_BLOCK, offset) != store.read_buffer_at_offset(STORE_BLOCK,
                                                                                                      offset):
                        raise Failure("vss%d: the 16 KiB at %d differ from libvshadow" % (number, offset))
        print("vssN: %d blocks of each equal libvshadow's" % len(offsets))
        check_fls_against_vshadowmount(mount, volume, len(stores), arguments.work)
        check_writes_fail(mount)
    print("umount: the mount and its process are gone")
    return 0


def run_failures(arguments):
    require_tools()
    os.makedirs(arguments.work, exist_ok=True)
    prefix = os.path.join(arguments.work, "default")
    environment = dict(os.environ)
    environment.pop("LD_PRELOAD", None)
    completed = subprocess.run([arguments.tool, "build", "default", "-o", prefix], env=environment,
                               stdout=subprocess.DEVNULL)
    if completed.returncode == SKIP:
        skip("the image builder cannot make images on this machine")
    image = prefix + ".img"
    mount_point = os.path.join(arguments.work, "mnt")
    os.makedirs(mount_point, exist_ok=True)
    missing = os.path.join(arguments.work, "missing")
    expect(arguments, ["mount", image, missing], 7, ["tolvar mount: mount point %s does not exist" % missing])
    expect(arguments, ["mount", image, image], 7, ["tolvar mount: mount point %s is not a directory" % image])
    no_store = os.path.join(arguments.work, "no-store.img")
    with open(no_store, "wb") as handle:
        handle.truncate(1 << 20)
    expect(arguments, ["mount", no_store, mount_point], 6,
           ["tolvar: %s holds neither an NTFS volume nor a partition table" % no_store])
    expect(arguments, ["mount", image], 1)
    expect(arguments, ["umount", mount_point], 7, ["tolvar umount: nothing is mounted on %s" % mount_point])
    with Mount(arguments, image, mount_point):
        expect(arguments, ["mount", image, mount_point], 7,
               ["tolvar mount: mount point %s is busy: something is already mounted there" % mount_point])
        with open(os.path.join(mount_point, "vss1"), "rb"):
            expect(arguments, ["umount", mount_point], 7,
                   ["tolvar umount: %s is busy: a file on it is still open" % mount_point])
    print("failures: mount point missing, not a directory or busy, no store, nothing mounted, busy umount")
    return 0


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--cli", required=True)
    parser.add_argument("--work", required=True)
    commands = parser.add_subparsers(dest="command", required=True)
    scenario = commands.add_parser("scenario")
    scenario.add_argument("--tool", required=True)
    scenario.add_argument("--scenario", required=True)
    windows = commands.add_parser("windows")
    windows.add_argument("--disk", required=True)
    windows.add_argument("--extract", required=True)
    failures = commands.add_parser("failures")
    failures.add_argument("--tool", required=True)
    arguments = parser.parse_args()
    try:
        return {"scenario": run_scenario, "windows": run_windows, "failures": run_failures}[arguments.command](arguments)
    except Failure as failure:
        print("FAIL: %s" % failure)
        return 1


if __name__ == "__main__":
    sys.exit(main())
