"""The file operations a scenario step is made of, done through the FUSE mount."""
import errno
import os
import random
import shutil
import struct
import zlib

from . import fuse_writes

# NTFS file attribute bit of a compressed file or directory.
FILE_ATTRIBUTE_COMPRESSED = 0x800
# ntfs-3g's extended attribute with a file's NTFS attribute bits, big-endian.
NTFS_ATTRIBUTES_XATTR = "system.ntfs_attrib_be"
# ntfs-3g compresses only on volumes with clusters of at most 4 KiB.
LARGEST_COMPRESSIBLE_CLUSTER = 4096
# Smallest file that ntfs-3g always keeps non-resident.
SMALLEST_NON_RESIDENT = 2048
# Write size of filler files.
FILLER_CHUNK = 1 << 20


class OperationError(Exception):
    """A scenario operation is malformed."""


def content(seed, size, kind="random"):
    """Deterministic file contents: "random" bytes, compressible "text" or "zero"."""
    if kind == "zero":
        return bytes(size)
    if kind == "text":
        line_count = size // 32 + 1
        text = "".join("line %08d of seed %010d.....\n" % (line, seed % 10**10) for line in range(line_count))
        return text.encode()[:size]
    if kind == "random":
        return random.Random(seed).randbytes(size)
    raise OperationError("unknown content kind %r" % kind)


def default_seed(op, index):
    """Seed of an operation that names none: from its path and its place in the scenario."""
    return zlib.crc32(("%s#%d" % (op.get("path", ""), index)).encode())


class FileOperations:
    """Runs operations against a mounted volume and records the paths each one touched."""

    def __init__(self, root, cluster_size):
        # The mount point.
        self.root = root
        # Cluster size of the volume.
        self.cluster_size = cluster_size
        # Volume paths ("/a/b") touched so far, in order, without repeats.
        self.changed = []
        # Facts worth putting in the manifest (e.g. whether compression took effect).
        self.notes = []

    def run(self, op, index):
        handler = getattr(self, "op_" + op.get("op", ""), None)
        if handler is None:
            raise OperationError("unknown operation %r" % op.get("op"))
        handler(op, op.get("seed", default_seed(op, index)))

    # Helpers -------------------------------------------------------------

    def local(self, path):
        return os.path.join(self.root, path.lstrip("/"))

    def touch(self, path):
        volume_path = "/" + path.lstrip("/")
        if volume_path not in self.changed:
            self.changed.append(volume_path)

    def write_at(self, path, offset, data, create=False):
        flags = os.O_WRONLY | (os.O_CREAT if create else 0)
        descriptor = os.open(self.local(path), flags, 0o644)
        try:
            fuse_writes.pwrite(descriptor, data, offset)
        finally:
            os.close(descriptor)
        self.touch(path)

    def make_parent(self, path):
        parent = os.path.dirname(self.local(path))
        os.makedirs(parent, exist_ok=True)

    # Operations ----------------------------------------------------------

    def op_mkdir(self, op, seed):
        os.makedirs(self.local(op["path"]), exist_ok=True)
        self.touch(op["path"])

    def op_write(self, op, seed):
        """Creates or replaces a file."""
        self.make_parent(op["path"])
        fuse_writes.write_file(self.local(op["path"]), content(seed, op["size"], op.get("content", "random")))
        self.touch(op["path"])

    def op_overwrite(self, op, seed):
        self.write_at(op["path"], op["offset"], content(seed, op["size"], op.get("content", "random")))

    def op_append(self, op, seed):
        size = os.path.getsize(self.local(op["path"]))
        self.write_at(op["path"], size, content(seed, op["size"], op.get("content", "random")))

    def op_truncate(self, op, seed):
        os.truncate(self.local(op["path"]), op["size"])
        self.touch(op["path"])

    def op_delete(self, op, seed):
        target = self.local(op["path"])
        if os.path.isdir(target):
            shutil.rmtree(target)
        else:
            os.unlink(target)
        self.touch(op["path"])

    def op_tree(self, op, seed):
        """A directory tree: depth levels of fanout directories, each with files."""
        def build(directory, level, seed):
            os.makedirs(self.local(directory), exist_ok=True)
            self.touch(directory)
            for number in range(op.get("files", 1)):
                name = "%s/file%02d.bin" % (directory, number)
                self.op_write({"path": name, "size": op.get("size", 1000)}, seed + number)
            if level < op.get("depth", 2):
                for number in range(op.get("fanout", 2)):
                    build("%s/dir%02d" % (directory, number), level + 1, seed * 31 + number + 1)
        build(op["path"], 1, seed)

    def op_sparse(self, op, seed):
        """A sparse file: data only in the listed [offset, length] ranges, holes elsewhere.

        With "holes" instead of "data", an existing file is rewritten with those ranges
        left out (ntfs-3g cannot punch holes into an existing file)."""
        target = self.local(op["path"])
        if "holes" in op:
            with open(target, "rb") as handle:
                old = handle.read()
            ranges = complement(op["holes"], len(old))
            os.unlink(target)
            pieces = [(offset, old[offset:offset + length]) for offset, length in ranges]
            size = len(old)
        else:
            pieces = [(offset, content(seed + number, length, op.get("content", "random")))
                      for number, (offset, length) in enumerate(op["data"])]
            size = op["size"]
        self.make_parent(op["path"])
        descriptor = os.open(target, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o644)
        try:
            # Extending first leaves the whole file a hole; only the pieces get clusters.
            os.ftruncate(descriptor, size)
            for offset, data in pieces:
                fuse_writes.pwrite(descriptor, data, offset)
        finally:
            os.close(descriptor)
        self.touch(op["path"])

    def op_compressed(self, op, seed):
        """A file written into a directory that carries the compressed flag (LZNT1)."""
        self.make_parent(op["path"])
        directory = os.path.dirname(self.local(op["path"]))
        flags = struct.unpack(">I", os.getxattr(directory, NTFS_ATTRIBUTES_XATTR))[0]
        os.setxattr(directory, NTFS_ATTRIBUTES_XATTR, struct.pack(">I", flags | FILE_ATTRIBUTE_COMPRESSED))
        compressed = self.cluster_size <= LARGEST_COMPRESSIBLE_CLUSTER
        if not compressed:
            self.notes.append("%s: clusters of %d bytes cannot be compressed; written plain"
                              % (op["path"], self.cluster_size))
        self.op_write(dict(op, content=op.get("content", "text")), seed)

    def op_stream(self, op, seed):
        """An alternate data stream ("path:name"), through ntfs-3g's user.* attributes."""
        os.setxattr(self.local(op["path"]), "user." + op["name"],
                    content(seed, op["size"], op.get("content", "random")))
        self.touch(op["path"])

    def op_link(self, op, seed):
        """A hard link at path to the existing file target."""
        self.make_parent(op["path"])
        os.link(self.local(op["target"]), self.local(op["path"]))
        self.touch(op["path"])
        self.touch(op["target"])

    def op_many(self, op, seed):
        """A directory holding count small files."""
        directory = op["path"]
        os.makedirs(self.local(directory), exist_ok=True)
        payload = op.get("size", 0)
        prefix = op.get("prefix", "entry")
        for number in range(op["count"]):
            fuse_writes.write_file(self.local("%s/%s%05d.txt" % (directory, prefix, number)),
                                   content(seed + number, payload, "text"))
        self.touch(directory)

    def op_fragmented(self, op, seed):
        """A file of op["runs"] pieces scattered over the volume, out of order.

        Single-cluster holes are made between filler files; with the rest of the volume
        full, the file's pieces, written in a shuffled order, can only go into those holes,
        so its runs jump backwards and forwards."""
        chunk = max(self.cluster_size, SMALLEST_NON_RESIDENT)
        runs = op["runs"]
        filler_root = op["path"] + ".filler"
        os.makedirs(self.local(filler_root), exist_ok=True)
        self.make_parent(op["path"])
        open(self.local(op["path"]), "wb").close()
        for number in range(2 * runs):
            fuse_writes.write_file(self.local("%s/hole%05d" % (filler_root, number)),
                                   content(seed + number, chunk, "zero")[:-1] + b"\x01")
        fill_volume(self.local(filler_root + "/rest"))
        for number in range(1, 2 * runs, 2):
            os.unlink(self.local("%s/hole%05d" % (filler_root, number)))
        order = list(range(runs))
        random.Random(seed).shuffle(order)
        descriptor = os.open(self.local(op["path"]), os.O_WRONLY)
        try:
            for piece in order:
                fuse_writes.pwrite(descriptor, content(seed * 7 + piece, chunk), piece * chunk)
        finally:
            os.close(descriptor)
        shutil.rmtree(self.local(filler_root))
        self.touch(op["path"])


def fill_volume(directory):
    """Writes filler files until the volume is full, then frees the last one again."""
    os.makedirs(directory, exist_ok=True)
    number = 0
    while True:
        path = os.path.join(directory, "fill%05d" % number)
        try:
            fuse_writes.write_zeros(path, FILLER_CHUNK)
        except OSError as error:
            if error.errno != errno.ENOSPC:
                raise
            break
        number += 1
    # Leaves a little room for the file's attribute list and extension records.
    for leftover in (path, os.path.join(directory, "fill%05d" % max(number - 1, 0))):
        if os.path.exists(leftover):
            os.unlink(leftover)


def complement(holes, size):
    """The [offset, length] ranges of [0, size) not covered by holes."""
    ranges = []
    position = 0
    for offset, length in sorted(holes):
        if offset > position:
            ranges.append((position, offset - position))
        position = max(position, offset + length)
    if position < size:
        ranges.append((position, size - position))
    return ranges
