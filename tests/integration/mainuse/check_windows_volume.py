#!/usr/bin/python3
"""The main use on the Windows 10 volume with two shadow copies:
- the store-backed shadow copies equal libvshadow's reads of both stores, on
  every block that a store keeps or forwards to and on a sample of the rest;
- Init between the two shadow copy IDs succeeds for every valid block size,
  GetBlock walks to the end, and every block equals libvshadow's read of the
  newer store.
Exits 77 when the disk image or pyvshadow is missing."""
import argparse
import importlib.util
import os
import subprocess
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import tolvar_ctypes as tolvar  # noqa: E402

SKIP = 77
OLDER = "ec06abc4-bd2f-41cc-a817-921f2046080d"
NEWER = "d1229f1a-31d8-45de-8a72-0d6a3a1f59e8"
PARTITION_OFFSET = 1048576
PARTITION_LENGTH = 68716331008
STORE_BLOCK = 16384
SAMPLE_STRIDE = 509 * STORE_BLOCK  # a prime number of blocks, so samples fall on varied blocks


class Failure(Exception):
    pass


def open_stores(volume_path):
    import pyvshadow
    volume = pyvshadow.volume()
    volume.open(volume_path)
    stores = [volume.get_store(index) for index in range(volume.number_of_stores)]
    return volume, stores


def offsets_to_check(stores, volume_size):
    offsets = set()
    for store in stores:
        for index in range(store.number_of_blocks):
            block = store.get_block(index)
            for offset in (block.original_offset, block.relative_offset):
                start = offset - offset % STORE_BLOCK
                if start < volume_size:
                    offsets.add(start)
    offsets.update(range(0, volume_size, SAMPLE_STRIDE))
    return sorted(offsets)


def check_views(reader, volume_path, stores, volume_size):
    offsets = offsets_to_check(stores, volume_size)
    for index, store in enumerate(stores):
        completed = subprocess.run([reader, volume_path, str(index), str(STORE_BLOCK)],
                                   input="\n".join(map(str, offsets)).encode(), stdout=subprocess.PIPE,
                                   env=tolvar.tool_environment())
        if completed.returncode != 0:
            raise Failure("store %d: the shadow copy did not open" % index)
        ours = completed.stdout
        for position, offset in enumerate(offsets):
            theirs = store.read_buffer_at_offset(STORE_BLOCK, offset)
            theirs += bytes(STORE_BLOCK - len(theirs))
            if ours[position * STORE_BLOCK:(position + 1) * STORE_BLOCK] != theirs:
                raise Failure("store %d: the 16 KiB block at %d differs from libvshadow" % (index, offset))
        print("store %d: %d blocks equal libvshadow's" % (index, len(offsets)))


def check_walks(library, volume_path, newer_store):
    for block_size in range(4096, 131072 + 1, 4096):
        status, handle = library.init(volume_path, OLDER, NEWER, block_size)
        if status != tolvar.OK:
            raise Failure("Init at block size %d returned %d: %s" % (block_size, status, library.errors()))
        try:
            bits = tolvar.set_bits(library.bitmap(handle))
            served = []
            for index, data in library.blocks(handle, block_size):
                if data != newer_store.read_buffer_at_offset(block_size, index * block_size):
                    raise Failure("block size %d: block %d differs from libvshadow" % (block_size, index))
                served.append(index)
            if library.last_walk_status != tolvar.END_OF_BLOCKS or served != bits:
                raise Failure("block size %d: the walk served %d of %d set blocks and ended with %d"
                              % (block_size, len(served), len(bits), library.last_walk_status))
        finally:
            library.free(handle)
        print("block size %d: %d changed blocks equal libvshadow's" % (block_size, len(served)))


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--lib", required=True)
    parser.add_argument("--reader", required=True)
    parser.add_argument("--disk", required=True)
    parser.add_argument("--work", required=True)
    arguments = parser.parse_args()
    if importlib.util.find_spec("pyvshadow") is None:
        print("SKIP: pyvshadow (python3-libvshadow) is missing")
        sys.exit(SKIP)
    if not os.path.exists(arguments.disk):
        print("SKIP: %s is missing (the shared test data)" % arguments.disk)
        sys.exit(SKIP)
    os.makedirs(arguments.work, exist_ok=True)
    volume_path = os.path.join(arguments.work, "win10-volume.raw")
    subprocess.run([sys.executable, os.path.join(os.path.dirname(os.path.abspath(__file__)), "extract_partition.py"),
                    arguments.disk, str(PARTITION_OFFSET), str(PARTITION_LENGTH), volume_path], check=True,
                   env=tolvar.tool_environment())
    volume, stores = open_stores(volume_path)
    try:
        check_views(arguments.reader, volume_path, stores, stores[0].volume_size)
        check_walks(tolvar.Library(arguments.lib), volume_path, stores[1])
    except Failure as failure:
        print("FAIL: %s" % failure)
        sys.exit(1)
    finally:
        volume.close()


if __name__ == "__main__":
    main()
