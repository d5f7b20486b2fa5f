#!/usr/bin/python3
"""ExcludeFiles and GetFileChangesMap end to end on a built image in which,
between two snapshots, files are created, overwritten in part, appended to,
moved to other clusters, made compressed and deleted. Expected results come
from the captured snapshot images and The Sleuth Kit (`istat -r` runs,
`icat` contents), computed here independently of the library.

Exits 77 when the image cannot be built here."""
import argparse
import ctypes
import json
import os
import re
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "mainuse"))
import tolvar_ctypes as tolvar  # noqa: E402

SKIP = 77
BLOCK_SIZES = (4096, 8192, 65536, 131072)
# Files of the scenario present in the newer snapshot, by kind.
PLAIN = ["still.bin", "part.bin", "grow.bin", "moving.bin", "filler.bin"]
NEW = ["fresh.bin", "filler.bin"]   # not in the older snapshot
RESIDENT = ["note.txt"]
COMPRESSION_CHANGED = ["pack/squeeze.bin"]
COMPRESSED = ["zipped/both.bin"]  # compressed in both snapshots


class Failure(Exception):
    pass


def run(args):
    return subprocess.run(args, check=True, stdout=subprocess.PIPE, env=tolvar.tool_environment()).stdout


def build_image(tool, work):
    os.makedirs(work, exist_ok=True)
    prefix = os.path.join(work, "file_services")
    completed = subprocess.run([tool, "build", "file_services", "-o", prefix], env=tolvar.tool_environment())
    if completed.returncode == SKIP:
        print("SKIP: the image builder cannot make images on this machine")
        sys.exit(SKIP)
    if completed.returncode != 0:
        raise Failure("the image builder failed with %d" % completed.returncode)
    with open(prefix + ".manifest.json") as handle:
        return prefix, json.load(handle)


class Snapshot:
    """One captured snapshot image, read with The Sleuth Kit."""

    def __init__(self, image, cluster_size):
        self.image = image
        self.cluster_size = cluster_size

    def inode(self, path):
        completed = subprocess.run(["ifind", "-n", "/" + path, self.image], stdout=subprocess.PIPE,
                                   env=tolvar.tool_environment())
        text = completed.stdout.decode().strip()
        return int(text) if completed.returncode == 0 and text.isdigit() else None

    def content(self, path):
        return run(["icat", self.image, str(self.inode(path))])

    def extents(self, path):
        """(logical size, volume offset, stored size) of the unnamed data stream's
        runs, cut at the file's size; offset 0 for sparse runs."""
        text = run(["istat", "-r", self.image, str(self.inode(path))]).decode()
        size, runs, in_data = None, [], False
        for line in text.splitlines():
            header = re.match(r"Type: \$DATA \(128-\d+\)\s+Name: N/A\s+Non-Resident\s+size: (\d+)", line)
            if header:
                size, in_data = int(header.group(1)), True
                continue
            if line.startswith("Type:"):
                in_data = False
            run_line = re.match(r"\s+Starting address: (\d+), length: (\d+)(\s+Sparse)?", line)
            if in_data and run_line:
                runs.append((int(run_line.group(1)), int(run_line.group(2)), bool(run_line.group(3))))
        if size is None:
            raise Failure("%s: no non-resident data stream in %s" % (path, self.image))
        extents, total = [], 0
        for lcn, length, sparse in runs:
            if total >= size:
                break
            piece = min(length * self.cluster_size, size - total)
            total += piece
            extents.append((piece, 0 if sparse else lcn * self.cluster_size, piece))
        return size, extents


def bit(bitmap, index):
    return index // 8 < len(bitmap) and bitmap[index // 8] >> (index % 8) & 1


def cluster_map(extents, cluster_size):
    """Volume offset of each of the file's clusters, in file order."""
    offsets = []
    for logical, offset, _ in extents:
        for k in range(-(-logical // cluster_size)):
            offsets.append(offset + k * cluster_size if offset else None)
    return offsets


def excluded_blocks(extents, block_size):
    """The blocks that excluding files with these extents clears: adjoining
    runs merge; each range's start is raised to a block boundary and its
    whole blocks, counted by its length, are cleared from there."""
    stored = sorted((e for e in extents if e[1] != 0), key=lambda e: e[1])
    blocks, i = set(), 0
    while i < len(stored):
        start, length = stored[i][1], stored[i][2]
        i += 1
        while i < len(stored) and stored[i][1] == start + length:
            length += stored[i][2]
            i += 1
        start = -(-start // block_size) * block_size
        blocks.update(range(start // block_size, (start + length - length % block_size) // block_size))
    return blocks


class Checker:
    def __init__(self, lib, prefix, manifest):
        self.lib = lib
        self.volume = prefix + ".img"
        self.cluster = manifest["cluster_size"]
        snapshots = sorted(manifest["snapshots"], key=lambda s: s["creation_order"])
        self.older_id, self.newer_id = snapshots[0]["shadow_copy_id"], snapshots[-1]["shadow_copy_id"]
        work = os.path.dirname(prefix)
        self.older = Snapshot(os.path.join(work, snapshots[0]["image"]), self.cluster)
        self.newer = Snapshot(os.path.join(work, snapshots[-1]["image"]), self.cluster)
        self.checks = 0

    def expect(self, ok, what):
        self.checks += 1
        if not ok:
            raise Failure(what)

    def open(self, block_size):
        status, handle = self.lib.init(self.volume, self.older_id, self.newer_id, block_size)
        self.expect(status == tolvar.OK, "Init returned %d: %r" % (status, self.lib.errors()))
        return handle

    def change_map(self, handle, path):
        size = ctypes.c_uint64(0)
        status = self.lib.lib.GetFileChangesMap(handle, ("/" + path).encode(), None, ctypes.byref(size))
        self.expect(status == tolvar.SIZE_RETURNED, "%s: size query returned %d" % (path, status))
        length = size.value
        buffer = ctypes.create_string_buffer(b"\xa5" * (length + 1), length + 1)
        size.value = length + 1
        status = self.lib.lib.GetFileChangesMap(handle, ("/" + path).encode(), buffer, ctypes.byref(size))
        self.expect(status == tolvar.OK, "%s: GetFileChangesMap returned %d" % (path, status))
        self.expect(size.value == length + 1, "%s: *size changed to %d" % (path, size.value))
        self.expect(buffer.raw[length] == 0xA5, "%s: a byte past the map was written" % path)
        return length, buffer.raw[:length]

    def check_maps(self, block_size):
        handle = self.open(block_size)
        try:
            diff = self.lib.bitmap(handle)
            for path in PLAIN + RESIDENT + COMPRESSION_CHANGED + NEW + COMPRESSED:
                newer_content = self.newer.content(path)
                length, got = self.change_map(handle, path)
                bits = -(-len(newer_content) // block_size)
                self.expect(length == -(-bits // 8), "%s: map length %d for %d bytes" % (path, length, len(newer_content)))
                if path in RESIDENT or path in COMPRESSION_CHANGED or path in NEW:
                    self.expect(got == b"\xff" * length, "%s: map %s is not all 0xFF" % (path, got.hex()))
                    continue
                if path in COMPRESSED:
                    self.check_differing_blocks_set(path, block_size, newer_content, got)
                    continue
                self.check_plain_map(path, block_size, diff, newer_content, got)
        finally:
            self.lib.free(handle)

    def check_differing_blocks_set(self, path, block_size, newer_content, got):
        older_content = self.older.content(path)
        for i in range(-(-len(newer_content) // block_size)):
            piece = slice(i * block_size, (i + 1) * block_size)
            if newer_content[piece] != older_content[piece]:
                self.expect(bit(got, i), "%s: block %d differs but is not in the map %s" % (path, i, got.hex()))

    def check_plain_map(self, path, block_size, diff, newer_content, got):
        """Every block whose bytes differ is set; every set bit is explained by
        a changed volume block under the block or a move of its clusters."""
        older_content = self.older.content(path)
        _, newer_extents = self.newer.extents(path)
        _, older_extents = self.older.extents(path)
        newer_clusters = cluster_map(newer_extents, self.cluster)
        older_clusters = cluster_map(older_extents, self.cluster)
        per_block = block_size // self.cluster
        for i in range(-(-len(newer_content) // block_size)):
            piece = slice(i * block_size, (i + 1) * block_size)
            differs = newer_content[piece] != older_content[piece]
            clusters = range(i * per_block, min((i + 1) * per_block, len(newer_clusters)))
            moved = any(k >= len(older_clusters) or older_clusters[k] != newer_clusters[k] for k in clusters)
            on_changed = any(newer_clusters[k] is not None and
                             bit(diff, newer_clusters[k] // block_size) for k in clusters)
            if differs:
                self.expect(bit(got, i), "%s: block %d differs but is not in the map %s" % (path, i, got.hex()))
            self.expect(bool(bit(got, i)) == (moved or on_changed),
                        "%s: block %d is %s in the map; moved %s, on a changed block %s" %
                        (path, i, bit(got, i), moved, on_changed))

    def check_exclusion(self, block_size):
        files = ["part.bin", "moving.bin", "grow.bin", "part.bin"]
        source = self.open(block_size)
        try:
            before = self.lib.bitmap(source)
            walked = [index for index, _ in self.lib.blocks(source, block_size)]
            self.expect(walked == tolvar.set_bits(before), "the source walk differs from its bitmap")
            extents = []
            for path in files:
                extents.extend(self.newer.extents(path)[1])
            cleared = excluded_blocks(extents, block_size)
            expected = bytearray(before)
            for b in cleared:
                if b // 8 < len(expected):
                    expected[b // 8] &= ~(1 << (b % 8)) & 0xFF
            paths = (ctypes.c_char_p * (len(files) + 1))(*[("/" + f).encode() for f in files], None)
            made = ctypes.c_void_p()
            status = self.lib.lib.ExcludeFiles(source, ctypes.byref(made), paths)
            self.expect(status == tolvar.OK, "ExcludeFiles returned %d" % status)
            try:
                self.expect(self.lib.bitmap(made) == bytes(expected), "the new handle's bitmap is not the expected one")
                self.expect(self.lib.bitmap(source) == bytes(expected), "the source handle's bitmap is not reduced")
                walked = [index for index, _ in self.lib.blocks(made, block_size)]
                self.expect(walked == tolvar.set_bits(expected), "the new handle does not walk its bits from block 0")
                self.expect(self.lib.last_walk_status == tolvar.END_OF_BLOCKS, "the new walk did not end with 2")
            finally:
                self.lib.free(made)
        finally:
            self.lib.free(source)
        return len(cleared & set(tolvar.set_bits(before)))

    def check_missing(self, block_size):
        source = self.open(block_size)
        try:
            before = self.lib.bitmap(source)
            paths = (ctypes.c_char_p * 3)(b"/part.bin", b"/no such file.bin", None)
            made = ctypes.c_void_p(None)
            status = self.lib.lib.ExcludeFiles(source, ctypes.byref(made), paths)
            self.expect(status == tolvar.E_NOT_FOUND, "ExcludeFiles with a missing path returned %d" % status)
            self.expect(made.value is None, "ExcludeFiles with a missing path made a handle")
            self.expect(self.lib.bitmap(source) == before, "ExcludeFiles with a missing path changed the bitmap")
            size = ctypes.c_uint64(0)
            status = self.lib.lib.GetFileChangesMap(source, b"/gone.bin", None, ctypes.byref(size))
            self.expect(status == tolvar.E_NOT_FOUND, "GetFileChangesMap of a deleted file returned %d" % status)
        finally:
            self.lib.free(source)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--lib", required=True)
    parser.add_argument("--tool", required=True)
    parser.add_argument("--work", required=True)
    args = parser.parse_args()
    try:
        prefix, manifest = build_image(args.tool, args.work)
        lib = tolvar.Library(args.lib)
        u64p = ctypes.POINTER(ctypes.c_uint64)
        lib.lib.ExcludeFiles.argtypes = [ctypes.c_void_p, ctypes.POINTER(ctypes.c_void_p), ctypes.c_void_p]
        lib.lib.ExcludeFiles.restype = ctypes.c_int32
        lib.lib.GetFileChangesMap.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_void_p, u64p]
        lib.lib.GetFileChangesMap.restype = ctypes.c_int32
        checker = Checker(lib, prefix, manifest)
        moved = cluster_map(checker.older.extents("moving.bin")[1], checker.cluster) != \
            cluster_map(checker.newer.extents("moving.bin")[1], checker.cluster)
        checker.expect(moved, "moving.bin did not move to other clusters; the scenario no longer covers a move")
        for block_size in BLOCK_SIZES:
            checker.check_maps(block_size)
            cleared = checker.check_exclusion(block_size)
            checker.check_missing(block_size)
            print("block size %d: maps and exclusion as expected (%d changed blocks cleared)" % (block_size, cleared))
    except (Failure, subprocess.CalledProcessError) as failure:
        print("FAILED: %s" % failure)
        return 1
    print("%d checks passed" % checker.checks)
    return 0


if __name__ == "__main__":
    sys.exit(main())
