#!/usr/bin/python3
"""Times libvshadow (pyvshadow) reading the changed blocks of one shadow copy.

The blocks are those of tolvar's changed-block bitmap at 65,536 bytes
(taken through the library, untimed); pyvshadow reads each from the same
store in one 64 KiB read. Prints one JSON object: the time libvshadow takes
to open the volume and store, the time of the reads, and the bytes read.
"""
import argparse
import json
import os
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "integration", "mainuse"))
import tolvar_ctypes as tolvar  # noqa: E402

BLOCK_SIZE = 65536


def changed_blocks(lib, image, older, newer):
    status, handle = lib.init(image, older, newer, BLOCK_SIZE)
    if status != tolvar.OK:
        raise SystemExit("Init returned %d: %s" % (status, lib.errors()))
    try:
        return tolvar.set_bits(lib.bitmap(handle))
    finally:
        lib.free(handle)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--lib", required=True)
    parser.add_argument("--image", required=True)
    parser.add_argument("--older", required=True)
    parser.add_argument("--newer", required=True)
    parser.add_argument("--store", type=int, required=True, help="the newer shadow copy's store, 0 = oldest")
    arguments = parser.parse_args()
    import pyvshadow

    blocks = changed_blocks(tolvar.Library(arguments.lib), arguments.image, arguments.older, arguments.newer)
    started = time.perf_counter()
    volume = pyvshadow.volume()
    volume.open(arguments.image)
    store = volume.get_store(arguments.store)
    opened = time.perf_counter()
    total = 0
    for block in blocks:
        store.seek(block * BLOCK_SIZE)
        total += len(store.read(BLOCK_SIZE))
    finished = time.perf_counter()
    volume.close()
    print(json.dumps({"blocks": len(blocks), "bytes": total, "setup_seconds": opened - started,
                      "read_seconds": finished - opened}))
    return 0


if __name__ == "__main__":
    sys.exit(main())
