#!/usr/bin/python3
"""Builds a large sparse volume and holds it against libvshadow.

vshadowinfo must list the manifest's stores in order; through pyvshadow, sampled blocks
named by each store's descriptors must read as the pool block the descriptor points at,
and a block no store names must read as the current volume. The image must stay sparse.
Exit 0 pass, 1 fail, 77 skip.
"""
import argparse
import json
import os
import random
import re
import shutil
import struct
import subprocess
import sys

SKIP = 77
BLOCK_SIZE = 16384
PAGE_SIZE = 16384
PAGE_HEADER_SIZE = 128
SAMPLES_PER_STORE = 64


def record_payload(image, offset):
    data = bytearray()
    with open(image, "rb") as handle:
        while offset:
            handle.seek(offset)
            page = handle.read(PAGE_SIZE)
            data += page[PAGE_HEADER_SIZE:]
            offset = struct.unpack_from("<Q", page, 40)[0]
    return bytes(data)


def original_offsets(image, block_list_offset, count):
    payload = record_payload(image, block_list_offset)
    return [struct.unpack_from("<Q", payload, index * 32)[0] for index in range(count)]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--tool", required=True)
    parser.add_argument("--work", required=True)
    parser.add_argument("--volume-size", default="64G")
    parser.add_argument("--descriptors", default="200000")
    parser.add_argument("--snapshots", default="3")
    arguments = parser.parse_args()
    missing = [tool for tool in ("mkntfs", "ntfs-3g", "vshadowinfo", "icat", "istat", "ifind") if shutil.which(tool) is None]
    # The tool honours the same variable, so the skip can be tested on a machine with FUSE.
    fuse_device = os.environ.get("MKVSSIMAGE_FUSE_DEVICE", "/dev/fuse")
    if not os.path.exists(fuse_device):
        missing.append(fuse_device)
    try:
        import pyvshadow
    except ImportError:
        missing.append("pyvshadow")
    if missing:
        print("SKIP: missing %s" % ", ".join(missing))
        return SKIP
    os.makedirs(arguments.work, exist_ok=True)
    prefix = os.path.join(arguments.work, "large")
    completed = subprocess.run([arguments.tool, "large", "-o", prefix, "-s", arguments.volume_size,
                                "-d", arguments.descriptors, "-n", arguments.snapshots])
    if completed.returncode != 0:
        return SKIP if completed.returncode == SKIP else 1
    with open(prefix + ".manifest.json") as handle:
        manifest = json.load(handle)
    image = prefix + ".img"
    failures = []

    output = subprocess.run(["vshadowinfo", image], stdout=subprocess.PIPE).stdout.decode()
    identifiers = re.findall(r"^\tIdentifier\s+: (\S+)$", output, re.MULTILINE)
    if identifiers != [s["store_identifier"] for s in manifest["snapshots"]]:
        failures.append("vshadowinfo lists %s" % identifiers)
    total = sum(s["descriptors"] for s in manifest["snapshots"])
    if total != int(arguments.descriptors):
        failures.append("manifest holds %d descriptors, not %s" % (total, arguments.descriptors))

    on_disk = os.stat(image).st_blocks * 512
    if on_disk > manifest["volume_size"] // 4:
        failures.append("image is not sparse: %d bytes allocated" % on_disk)

    volume = pyvshadow.volume()
    volume.open(image)
    pool = manifest["shared_data_blocks"]
    named = set()
    chooser = random.Random(7)
    for index, snapshot in enumerate(manifest["snapshots"]):
        originals = original_offsets(image, snapshot["block_list_offset"], snapshot["descriptors"])
        named.update(originals)
        store = volume.get_store(index)
        for number in sorted(chooser.sample(range(len(originals)), min(SAMPLES_PER_STORE, len(originals)))):
            store.seek(originals[number])
            seen = store.read(BLOCK_SIZE)
            expected = struct.pack("<Q", (snapshot["creation_order"] << 32) | (number % pool)) * (BLOCK_SIZE // 8)
            if seen != expected:
                failures.append("store %d, descriptor %d (offset %d): wrong contents"
                                % (index + 1, number, originals[number]))
                break
    # The boot block: named by no store, so every store reads the current volume there.
    if 0 not in named:
        with open(image, "rb") as handle:
            current = handle.read(BLOCK_SIZE)
        for index in range(volume.number_of_stores):
            store = volume.get_store(index)
            store.seek(0)
            if store.read(BLOCK_SIZE) != current:
                failures.append("store %d does not read the current boot block" % (index + 1))
    volume.close()
    for failure in failures:
        print("FAIL: %s" % failure)
    if not failures:
        print("large volume: %d stores, %d descriptors, %d bytes on disk for %d" % (
            len(identifiers), total, on_disk, manifest["volume_size"]))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
