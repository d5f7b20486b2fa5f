"""Mounts an NTFS image with ntfs-3g (FUSE) under a frozen clock."""
import os
import shutil
import subprocess
import tempfile
import time

# libfaketime's preload library on Debian.
FAKETIME_LIBRARY = "/usr/lib/x86_64-linux-gnu/faketime/libfaketime.so.1"
# How long to wait for the mount to appear and for the driver to exit.
MOUNT_TIMEOUT_SECONDS = 20
POLL_SECONDS = 0.005
# ntfs-3g's extended attribute with a file's NTFS attribute bits; reading it is always a
# request to the driver (the kernel caches no extended attributes).
NTFS_ATTRIBUTES_XATTR = "system.ntfs_attrib_be"
# Questions asked of the driver before unmounting (see FuseMount.drain).
DRAIN_QUESTIONS = 2


class FuseError(Exception):
    """ntfs-3g could not mount or unmount the image."""


class MountUnavailable(FuseError):
    """This machine cannot mount NTFS images at all (the first mount failed)."""


# The kernel's FUSE device, without which nothing can be mounted.
DEFAULT_FUSE_DEVICE = "/dev/fuse"
# Programs a build runs: formatting, mounting, and The Sleuth Kit's record lookups.
NEEDED_PROGRAMS = ("mkntfs", "ntfs-3g", "umount", "cp", "ifind", "istat", "icat")


def fuse_device():
    """The FUSE device; MKVSSIMAGE_FUSE_DEVICE names another (tests of the skip use a missing one)."""
    return os.environ.get("MKVSSIMAGE_FUSE_DEVICE", DEFAULT_FUSE_DEVICE)


def missing_tools():
    """Names of what a build needs but this machine lacks."""
    missing = [tool for tool in NEEDED_PROGRAMS if shutil.which(tool) is None]
    if not os.path.exists(fuse_device()):
        missing.append(fuse_device())
    if not os.path.exists(FAKETIME_LIBRARY):
        missing.append(FAKETIME_LIBRARY)
    return missing


def is_mounted(mountpoint):
    target = os.path.realpath(mountpoint)
    with open("/proc/self/mountinfo") as mounts:
        return any(line.split()[4] == target for line in mounts)


class FuseMount:
    """Context manager: the image is mounted read-write at mountpoint while inside."""

    def __init__(self, image, mountpoint, clock, options=("compression", "noatime")):
        # Image file to mount.
        self.image = image
        # Directory the volume appears under.
        self.mountpoint = mountpoint
        # Frozen wall clock for the driver, "YYYY-MM-DD HH:MM:SS" in UTC.
        self.clock = clock
        # ntfs-3g mount options besides no_detach. noatime: otherwise every read request
        # ntfs-3g sees rewrites the file's record, and whether a read reaches ntfs-3g or is
        # answered from the kernel's page cache depends on the machine's memory.
        self.options = options
        # The running driver.
        self.process = None
        # File that collects the driver's messages.
        self.messages = None

    def __enter__(self):
        os.makedirs(self.mountpoint, exist_ok=True)
        environment = dict(os.environ, TZ="UTC", FAKETIME=self.clock,
                           LD_PRELOAD=FAKETIME_LIBRARY, FAKETIME_DONT_FAKE_MONOTONIC="1")
        options = ",".join(("no_detach",) + tuple(self.options))
        # The driver's messages go to a file: a pipe nobody reads could fill up and stall it.
        self.messages = tempfile.TemporaryFile()
        self.process = subprocess.Popen(["ntfs-3g", "-o", options, self.image, self.mountpoint],
                                        env=environment, stdout=subprocess.DEVNULL,
                                        stderr=self.messages)
        deadline = time.monotonic() + MOUNT_TIMEOUT_SECONDS
        while not is_mounted(self.mountpoint):
            if self.process.poll() is not None:
                raise FuseError("ntfs-3g exited: %s" % self.driver_messages())
            if time.monotonic() > deadline:
                self.process.kill()
                raise FuseError("ntfs-3g did not mount %s" % self.image)
            time.sleep(POLL_SECONDS)
        return self.mountpoint

    def __exit__(self, *exc):
        try:
            self.drain()
        finally:
            # Unmounted also when the driver can no longer answer, so no mount is left behind.
            subprocess.run(["umount", self.mountpoint], check=True)
        # The driver writes the volume's last state before it exits.
        try:
            self.process.wait(MOUNT_TIMEOUT_SECONDS)
        except subprocess.TimeoutExpired:
            self.process.kill()
            raise FuseError("ntfs-3g did not exit after unmounting %s" % self.image)
        if self.process.returncode != 0:
            raise FuseError("ntfs-3g ended with status %d: %s" % (self.process.returncode, self.driver_messages()))
        self.messages.close()
        return False

    def drain(self):
        """Returns once ntfs-3g has handled every request the kernel queued for it so far.

        Closing a file queues its release without waiting for it, and an unmount aborts
        the connection, dropping requests the driver has not read yet (a race a busy
        machine can lose); ntfs-3g finishes a compressed file only on release. The driver takes requests one at a time, in order, so a request that must
        be answered comes back only after everything queued before it. A release held back
        by read-ahead still in flight is queued when that read is answered, behind the first
        question, so a second one covers it."""
        for _ in range(DRAIN_QUESTIONS):
            os.getxattr(self.mountpoint, NTFS_ATTRIBUTES_XATTR)

    def driver_messages(self):
        self.messages.seek(0)
        return self.messages.read().decode(errors="replace").strip()
