#!/usr/bin/python3
"""Builds one scenario (or one large volume) twice into separate folders; every output file
must be byte-identical. The second build runs with another memory allocator setting (every
large buffer a fresh mapping), so data the tool writes from memory in a different state must
still reach the volume the same way, rather than only when two runs happen to allocate
alike. On a difference, the first differing byte offsets of each file are
printed (offsets 512 bytes apart ending in 0x1FE/0x1FF point at an NTFS record's update
sequence number: the record was written a different number of times).
Exit 0 pass, 1 fail, 77 skip."""
import argparse
import errno
import os
import shutil
import subprocess
import sys

SKIP = 77
# Differing offsets printed per file.
SHOWN_OFFSETS = 8
READ_CHUNK = 1 << 20
# glibc setting of the second build: buffers from 128 KiB up come from fresh, untouched
# mappings instead of reused heap memory.
SECOND_BUILD_TUNABLES = "glibc.malloc.mmap_threshold=131072"


def data_ranges(path):
    """[start, end) ranges of a file that may hold data; the rest are holes, which read as zeros."""
    ranges = []
    size = os.path.getsize(path)
    with open(path, "rb") as handle:
        position = 0
        while position < size:
            try:
                start = os.lseek(handle.fileno(), position, os.SEEK_DATA)
            except OSError as error:
                if error.errno == errno.ENXIO:
                    break
                # A file system that cannot tell: the whole file counts as data.
                return [(0, size)]
            end = os.lseek(handle.fileno(), start, os.SEEK_HOLE)
            ranges.append((start, end))
            position = end
    return ranges


def merged(ranges):
    """The union of [start, end) ranges, sorted."""
    union = []
    for start, end in sorted(ranges):
        if union and start <= union[-1][1]:
            union[-1] = (union[-1][0], max(union[-1][1], end))
        else:
            union.append((start, end))
    return union


def differing_offsets(first, second, limit):
    """Up to limit byte offsets at which two files differ (a length difference counts once).

    Only ranges that hold data in either file are read: where both have a hole, both read
    as zeros. The images are sparse, so this spares reading gigabytes of holes."""
    sizes = os.path.getsize(first), os.path.getsize(second)
    offsets = []
    with open(first, "rb") as one, open(second, "rb") as other:
        for start, end in merged(data_ranges(first) + data_ranges(second)):
            one.seek(start)
            other.seek(start)
            position = start
            while position < end and len(offsets) < limit:
                length = min(READ_CHUNK, end - position)
                left, right = one.read(length), other.read(length)
                if left != right:
                    offsets.extend(position + index for index in range(min(len(left), len(right)))
                                   if left[index] != right[index])
                position += length
    offsets = sorted(offsets)[:limit]
    if sizes[0] != sizes[1] and len(offsets) < limit:
        offsets.append(min(sizes))
    return offsets


def build_command(arguments, folder):
    if arguments.large is not None:
        return [arguments.tool, "large", "-o", os.path.join(folder, "large")] + arguments.large.split()
    return [arguments.tool, "build", arguments.scenario, "-o",
            os.path.join(folder, os.path.basename(arguments.scenario))]


def build_environment(number):
    """The environment of build number (0 or 1)."""
    if number == 0:
        return dict(os.environ)
    given = os.environ.get("GLIBC_TUNABLES")
    return dict(os.environ, GLIBC_TUNABLES=":".join(filter(None, (given, SECOND_BUILD_TUNABLES))))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--tool", required=True)
    parser.add_argument("--scenario", help="built-in name or file")
    parser.add_argument("--large", help="arguments of the large mode, as one string, instead of a scenario")
    parser.add_argument("--work", required=True)
    arguments = parser.parse_args()
    folders = [os.path.join(arguments.work, name) for name in ("first", "second")]
    for number, folder in enumerate(folders):
        shutil.rmtree(folder, ignore_errors=True)
        os.makedirs(folder)
        completed = subprocess.run(build_command(arguments, folder), env=build_environment(number))
        if completed.returncode == SKIP:
            print("SKIP: mkvssimage cannot make images on this machine")
            return SKIP
        if completed.returncode != 0:
            print("FAIL: mkvssimage exited with status %d" % completed.returncode)
            return 1
    names = sorted(os.listdir(folders[0]))
    if names != sorted(os.listdir(folders[1])) or not names:
        print("FAIL: the two builds wrote different files: %s / %s" % (names, sorted(os.listdir(folders[1]))))
        return 1
    failed = False
    for name in names:
        offsets = differing_offsets(os.path.join(folders[0], name), os.path.join(folders[1], name), SHOWN_OFFSETS)
        if offsets:
            print("FAIL: %s differs, first at bytes %s" % (name, ", ".join(str(offset) for offset in offsets)))
            failed = True
    if failed:
        return 1
    print("byte-identical: %s" % ", ".join(names))
    return 0


if __name__ == "__main__":
    sys.exit(main())
