#!/usr/bin/python3
"""The tool's writes through the FUSE mount give the same volume bytes whatever the state of
the memory the data comes from.

ntfs-3g rewrites a file's MFT record (bumping its update sequence number) for every write
request, and the kernel cuts a write from process memory short wherever a source page is not
mapped yet. So the same file written from freshly allocated, never touched memory and from
memory that was written before used to give different images. Both volumes here are written
with the tool's own write functions, once from each kind of memory, at page-aligned and odd
offsets; the two images must be byte-identical. Exit 0 pass, 1 fail, 77 skip.
"""
import argparse
import mmap
import os
import sys
import tempfile

SKIP = 77
VOLUME_SIZE = 16 << 20
CLUSTER_SIZE = 4096
CLOCK = "2024-05-06 07:08:09"
# Data sizes: several pages, and a last page that is only partly filled.
FILE_SIZE = 300 * 1024 + 123
ZERO_FILE_SIZE = 1 << 20
# An offset into a page, so source pages and file pages do not line up.
ODD_OFFSET = 1000
# Offset of the data inside the untouched mapping: not a page boundary, as in a heap object.
UNTOUCHED_SHIFT = 48


def untouched(size):
    """size zero bytes in anonymous memory that nothing has read or written yet."""
    mapping = mmap.mmap(-1, size + UNTOUCHED_SHIFT + mmap.PAGESIZE)
    return memoryview(mapping)[UNTOUCHED_SHIFT:UNTOUCHED_SHIFT + size]


def touched(size):
    """size zero bytes in memory whose every page has been written."""
    buffer = bytearray(b"\x01" * size)
    buffer[:] = bytes(size)
    return buffer


def build(tool_modules, image, make_buffer):
    image_builder, fuse_mount, fuse_writes = tool_modules
    image_builder.format_volume(image, VOLUME_SIZE, CLUSTER_SIZE, "REQUESTS")
    with tempfile.TemporaryDirectory(prefix="mkvssimage-requests-") as mountpoint:
        with fuse_mount.FuseMount(image, mountpoint, CLOCK) as root:
            fuse_writes.write_file(os.path.join(root, "whole.bin"), make_buffer(FILE_SIZE))
            descriptor = os.open(os.path.join(root, "pieces.bin"), os.O_WRONLY | os.O_CREAT, 0o644)
            try:
                fuse_writes.pwrite(descriptor, make_buffer(FILE_SIZE), ODD_OFFSET)
                fuse_writes.pwrite(descriptor, make_buffer(FILE_SIZE), FILE_SIZE + 2 * ODD_OFFSET)
            finally:
                os.close(descriptor)
            fuse_writes.write_zeros(os.path.join(root, "zeros.bin"), ZERO_FILE_SIZE)


def first_difference(first, second):
    with open(first, "rb") as one, open(second, "rb") as other:
        left, right = one.read(), other.read()
    if left == right:
        return None
    return next((index for index in range(min(len(left), len(right))) if left[index] != right[index]),
                min(len(left), len(right)))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--tool", required=True)
    parser.add_argument("--work", required=True)
    arguments = parser.parse_args()
    sys.path.insert(0, os.path.dirname(os.path.realpath(arguments.tool)))
    from vssimage import fuse_mount, fuse_writes, image_builder
    missing = fuse_mount.missing_tools()
    if missing:
        print("SKIP: missing %s" % ", ".join(missing))
        return SKIP
    os.makedirs(arguments.work, exist_ok=True)
    images = [os.path.join(arguments.work, name + ".img") for name in ("untouched", "touched")]
    modules = (image_builder, fuse_mount, fuse_writes)
    try:
        build(modules, images[0], untouched)
        build(modules, images[1], touched)
    except fuse_mount.FuseError as error:
        print("SKIP: cannot mount NTFS images here: %s" % error)
        return SKIP
    offset = first_difference(*images)
    if offset is not None:
        print("FAIL: writing from untouched and from touched memory gave different volumes, first at byte %d"
              % offset)
        return 1
    print("same volume bytes from untouched and touched memory")
    return 0


if __name__ == "__main__":
    sys.exit(main())
