#!/usr/bin/python3
"""The main use end to end on a built image: Init, GetDiffBitmap, GetBlock and
FreeHandle through the shared library, for every pair of snapshots, four block
sizes and both settings of the newest-pass option, against the captured
snapshot images and against libvshadow's reads of the stores.

Exits 77 when the image cannot be built here (no FUSE, no tool) or pyvshadow
is missing."""
import argparse
import importlib.util
import json
import os
import subprocess
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import tolvar_ctypes as tolvar  # noqa: E402

BLOCK_SIZES = (4096, 8192, 65536, 131072)
SKIP = 77


class Failure(Exception):
    pass


def build_image(tool, scenario, cluster_size, work):
    os.makedirs(work, exist_ok=True)
    prefix = os.path.join(work, "%s-%d" % (scenario, cluster_size))
    completed = subprocess.run([tool, "build", scenario, "-o", prefix, "-c", str(cluster_size)],
                               env=tolvar.tool_environment())
    if completed.returncode == SKIP:
        print("SKIP: the image builder cannot make images on this machine")
        sys.exit(SKIP)
    if completed.returncode != 0:
        raise Failure("the image builder failed with %d" % completed.returncode)
    with open(prefix + ".manifest.json") as handle:
        return prefix, json.load(handle)


def store_ranges(manifest):
    """Byte ranges of the catalog and store files: the store writer changes them after capture."""
    ranges = list(manifest["catalog"]["byte_ranges"])
    for snapshot in manifest["snapshots"]:
        ranges.extend(snapshot["store_file"]["byte_ranges"])
    return ranges


def masked_image(path, ranges):
    with open(path, "rb") as handle:
        data = bytearray(handle.read())
    for start, length in ranges:
        data[start:start + length] = bytes(length)
    return bytes(data)


def store_views(image, manifest):
    """Each store's shadow copy as libvshadow reads it, by creation order."""
    import pyvshadow
    volume = pyvshadow.volume()
    volume.open(image)
    views = {}
    for index in range(volume.number_of_stores):
        store = volume.get_store(index)
        views[store.identifier] = store.read_buffer_at_offset(store.volume_size, 0)
    volume.close()
    return [views[snapshot["store_identifier"]] for snapshot in manifest["snapshots"]]


def check_bitmap(bitmap, older, newer, volume_size, block_size, label):
    expected_length = tolvar.changed_bitmap_length(volume_size, block_size)
    if len(bitmap) != expected_length:
        raise Failure("%s: bitmap of %d bytes, expected %d" % (label, len(bitmap), expected_length))
    bits = set(tolvar.set_bits(bitmap))
    for block in range(-(-volume_size // block_size)):
        start = block * block_size
        if older[start:start + block_size] != newer[start:start + block_size] and block not in bits:
            raise Failure("%s: block %d differs between the snapshots but is not set" % (label, block))
    return sorted(bits)


def check_walk(library, handle, bits, newer_view, volume_size, block_size, label):
    served = []
    for index, data in library.blocks(handle, block_size):
        expected = newer_view[index * block_size:(index + 1) * block_size]
        if data != expected:
            raise Failure("%s: block %d differs from libvshadow's read of the newer store" % (label, index))
        served.append(index)
    # A set block that runs past the end of the volume cannot be read whole:
    # the walk ends there with a read failure.
    whole = [bit for bit in bits if (bit + 1) * block_size <= volume_size]
    past_end = [bit for bit in bits if (bit + 1) * block_size > volume_size]
    expected_status = tolvar.E_BLOCK if past_end else tolvar.END_OF_BLOCKS
    if served != whole or library.last_walk_status != expected_status:
        raise Failure("%s: walk served %d blocks ending %d, expected %d ending %d"
                      % (label, len(served), library.last_walk_status, len(whole), expected_status))
    for _ in range(2):
        list(library.blocks(handle, block_size))
        if library.last_walk_status != tolvar.END_OF_BLOCKS:
            raise Failure("%s: a call after the end returned %d" % (label, library.last_walk_status))


def check_compare_walk(library, handle, bits, older_view, newer_view, volume_size, block_size, label):
    served = [index for index, _ in library.blocks(handle, block_size, compare=True)]
    skipped = set(bits) - set(served)
    if not set(served) <= set(bits):
        raise Failure("%s: compare walk served blocks that are not set" % label)
    for index in skipped:
        if (index + 1) * block_size > volume_size:
            continue
        span = slice(index * block_size, (index + 1) * block_size)
        if older_view[span] != newer_view[span]:
            raise Failure("%s: compare walk skipped block %d, which differs" % (label, index))
    return len(skipped)


def run(arguments):
    if importlib.util.find_spec("pyvshadow") is None:
        print("SKIP: pyvshadow (python3-libvshadow) is missing")
        sys.exit(SKIP)
    prefix, manifest = build_image(arguments.tool, arguments.scenario, arguments.cluster_size, arguments.work)
    image = prefix + ".img"
    volume_size = manifest["volume_size"]
    ranges = store_ranges(manifest)
    snapshots = manifest["snapshots"]
    work = os.path.dirname(prefix)
    captured = [masked_image(os.path.join(work, s["image"]), ranges) for s in snapshots]
    views = store_views(image, manifest)
    library = tolvar.Library(arguments.lib)

    cases = 0
    for older in range(len(snapshots)):
        for newer in range(older, len(snapshots)):
            for block_size in BLOCK_SIZES:
                for flags in (0, tolvar.OPTION_NEWEST_PASS):
                    label = "%s/%d: %d..%d, block %d, flags %d" % (
                        arguments.scenario, arguments.cluster_size, older + 1, newer + 1, block_size, flags)
                    ids = (snapshots[older]["shadow_copy_id"], snapshots[newer]["shadow_copy_id"])
                    status, handle = library.init(image, ids[0], ids[1], block_size,
                                                  flags | tolvar.OPTION_ERROR_QUEUE)
                    if status != tolvar.OK:
                        raise Failure("%s: Init returned %d: %s" % (label, status, library.errors()))
                    try:
                        bits = check_bitmap(library.bitmap(handle), captured[older], captured[newer],
                                            volume_size, block_size, label)
                        check_walk(library, handle, bits, views[newer], volume_size, block_size, label)
                    finally:
                        library.free(handle)
                    status, handle = library.init(image, ids[0], ids[1], block_size, flags)
                    try:
                        skipped = check_compare_walk(library, handle, bits, views[older], views[newer],
                                                     volume_size, block_size, label)
                    finally:
                        library.free(handle)
                    print("%s: %d set, %d skipped when compared" % (label, len(bits), skipped))
                    cases += 1
    print("%d cases passed" % cases)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--lib", required=True)
    parser.add_argument("--tool", required=True)
    parser.add_argument("--scenario", required=True)
    parser.add_argument("--cluster-size", type=int, required=True)
    parser.add_argument("--work", required=True)
    arguments = parser.parse_args()
    try:
        run(arguments)
    except Failure as failure:
        print("FAIL: %s" % failure)
        sys.exit(1)


if __name__ == "__main__":
    main()
