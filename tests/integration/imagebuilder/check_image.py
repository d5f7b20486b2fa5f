#!/usr/bin/python3
"""Builds one scenario with mkvssimage and holds the image against the independent readers.

Checks: vshadowinfo lists the manifest's stores in creation order; every byte that
libvshadow (pyvshadow) reads from each store equals the captured snapshot image, outside
the store files' clusters and outside the blocks that libvshadow zero-fills because the
newest store's bitmaps mark them unused (those must read as zeros); fsstat and fls -r read
the final volume without complaint. Exit 0 pass, 1 fail, 77 skip (a tool is missing).
"""
import argparse
import importlib.util
import json
import os
import re
import shutil
import struct
import subprocess
import sys

SKIP = 77
BLOCK_SIZE = 16384
PAGE_SIZE = 16384
PAGE_HEADER_SIZE = 128
PAGE_NEXT_OFFSET = 40
REQUIRED_TOOLS = ("mkntfs", "ntfs-3g", "umount", "vshadowinfo", "fsstat", "fls", "ifind", "istat", "icat")


class Failure(Exception):
    pass


def skip_reason():
    missing = [tool for tool in REQUIRED_TOOLS if shutil.which(tool) is None]
    # The tool honours the same variable, so the skip can be tested on a machine with FUSE.
    fuse_device = os.environ.get("MKVSSIMAGE_FUSE_DEVICE", "/dev/fuse")
    if not os.path.exists(fuse_device):
        missing.append(fuse_device)
    if importlib.util.find_spec("pyvshadow") is None:
        missing.append("pyvshadow (python3-libvshadow)")
    return ", ".join(missing)


def run(arguments):
    completed = subprocess.run(arguments, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    return completed.returncode, completed.stdout.decode(errors="replace"), completed.stderr.decode(errors="replace")


def check_vshadowinfo(image, manifest):
    status, output, errors = run(["vshadowinfo", image])
    if status != 0:
        raise Failure("vshadowinfo failed: %s" % errors)
    identifiers = re.findall(r"^\tIdentifier\s+: (\S+)$", output, re.MULTILINE)
    set_ids = re.findall(r"^\tShadow copy set ID\s+: (\S+)$", output, re.MULTILINE)
    copy_ids = re.findall(r"^\tShadow copy ID\s+: (\S+)$", output, re.MULTILINE)
    expected = manifest["snapshots"]
    if identifiers != [s["store_identifier"] for s in expected]:
        raise Failure("vshadowinfo store identifiers %s, manifest %s" % (identifiers, [s["store_identifier"] for s in expected]))
    if set_ids != [s["set_id"] for s in expected] or copy_ids != [s["shadow_copy_id"] for s in expected]:
        raise Failure("vshadowinfo shadow copy or set IDs differ from the manifest")
    print("vshadowinfo: %d stores in manifest order" % len(identifiers))


def record_payload(image, offset):
    data = b""
    with open(image, "rb") as handle:
        while offset:
            handle.seek(offset)
            page = handle.read(PAGE_SIZE)
            data += page[PAGE_HEADER_SIZE:]
            offset = struct.unpack_from("<Q", page, PAGE_NEXT_OFFSET)[0]
    return data


def bit(bitmap, block):
    return (bitmap[block >> 3] >> (block & 7)) & 1


def store_cluster_blocks(manifest):
    """Offsets of 16 KiB blocks that overlap any store file's clusters."""
    blocks = set()
    for facts in [manifest["catalog"]] + [s["store_file"] for s in manifest["snapshots"]]:
        for start, length in facts["byte_ranges"]:
            first = start // BLOCK_SIZE
            last = (start + length - 1) // BLOCK_SIZE
            blocks.update(range(first, last + 1))
    return blocks


def check_store_contents(image, manifest, directory):
    import pyvshadow
    volume = pyvshadow.volume()
    volume.open(image)
    newest = manifest["snapshots"][-1]
    current = record_payload(image, newest["bitmap_offset"])
    previous = record_payload(image, newest["previous_bitmap_offset"]) if newest["previous_bitmap_offset"] else None
    newest_mapped = {offset // BLOCK_SIZE for offset in newest["changed_block_offsets"]}
    store_blocks = store_cluster_blocks(manifest)
    size = manifest["volume_size"]
    block_count = -(-size // BLOCK_SIZE)
    if volume.number_of_stores != len(manifest["snapshots"]):
        raise Failure("pyvshadow sees %d stores" % volume.number_of_stores)
    for index, snapshot in enumerate(manifest["snapshots"]):
        store = volume.get_store(index)
        newest_store = index == len(manifest["snapshots"]) - 1
        compared = zero_filled = 0
        with open(os.path.join(directory, snapshot["image"]), "rb") as captured:
            for block in range(block_count):
                offset = block * BLOCK_SIZE
                length = min(BLOCK_SIZE, size - offset)
                store.seek(offset)
                seen = store.read(length)
                captured.seek(offset)
                expected = captured.read(length)
                if block in store_blocks:
                    continue
                if seen == expected:
                    compared += 1
                    continue
                unused = (newest_store and bit(current, block) and (previous is None or bit(previous, block))
                          and block not in newest_mapped)
                if unused and seen == bytes(length):
                    zero_filled += 1
                    continue
                first = next(i for i in range(length) if seen[i] != expected[i])
                raise Failure("store %d differs from %s at volume offset %d"
                              % (index + 1, snapshot["image"], offset + first))
        print("store %d: %d blocks equal the captured image, %d zero-filled as unused, %d store blocks skipped"
              % (index + 1, compared, zero_filled, len(store_blocks)))
    volume.close()


def check_file_system(image):
    for command in (["fsstat", image], ["fls", "-r", image]):
        status, output, errors = run(command)
        if status != 0 or errors.strip():
            raise Failure("%s complained (status %d): %s" % (command[0], status, errors.strip()))
        if not output.strip():
            raise Failure("%s printed nothing" % command[0])
    if shutil.which("ntfsfix"):
        status, output, errors = run(["ntfsfix", "-n", image])
        if status != 0:
            raise Failure("ntfsfix -n found problems: %s%s" % (output, errors))
    print("fsstat and fls -r (and ntfsfix -n) read the final volume")


def istat_text(image, path):
    status, record, errors = run(["ifind", "-n", path, image])
    if status != 0 or not record.strip().isdigit():
        raise Failure("%s not found on %s: %s%s" % (path, image, record.strip(), errors.strip()))
    status, text, errors = run(["istat", image, record.strip()])
    if status != 0:
        raise Failure("istat %s failed: %s" % (path, errors))
    return record.strip(), text


def data_runs(text):
    """(runs, backward jumps) of the unnamed $DATA clusters istat lists."""
    clusters = []
    in_data = False
    for line in text.splitlines():
        if line.startswith("Type: "):
            in_data = re.match(r"Type: \$DATA \(128-\d+\)\s+Name: N/A\s+Non-Resident", line) is not None
        elif in_data and re.fullmatch(r"[\d ]+", line.strip() or "x"):
            clusters.extend(int(value) for value in line.split())
    runs = 1 if clusters else 0
    backward = 0
    for before, after in zip(clusters, clusters[1:]):
        if after != before + 1:
            runs += 1
            backward += after < before
    return runs, backward


def check_expected_files(scenario_path, manifest, directory):
    """The NTFS features a scenario promises (its "expect" section) are on the snapshot image."""
    with open(scenario_path) as handle:
        expect = json.load(handle).get("expect")
    if not expect:
        return
    snapshot = manifest["snapshots"][expect["snapshot"] - 1]
    image = os.path.join(directory, snapshot["image"])
    checked = 0
    for fact in expect["files"]:
        if manifest["cluster_size"] > fact.get("max_cluster_size", manifest["cluster_size"]):
            continue
        record, text = istat_text(image, fact["path"])
        data_lines = [line for line in text.splitlines() if line.startswith("Type: $DATA (128-")]
        if fact.get("resident") and not any("N/A   Resident" in line for line in data_lines):
            raise Failure("%s is not resident" % fact["path"])
        if "data_flag" in fact and not any(fact["data_flag"] in line for line in data_lines):
            raise Failure("%s: $DATA lacks %s" % (fact["path"], fact["data_flag"]))
        if "min_runs" in fact:
            runs, backward = data_runs(text)
            if runs < fact["min_runs"] or backward < fact["min_backward_jumps"]:
                raise Failure("%s: %d runs, %d backward" % (fact["path"], runs, backward))
        if fact.get("data_in_extension_record"):
            owners = set(re.findall(r"^Type: 128-\d+ \tMFT Entry: (\d+)", text, re.MULTILINE))
            if len(owners - {record}) == 0:
                raise Failure("%s: $DATA not in an extension record (owners %s)" % (fact["path"], owners))
        for stream in fact.get("streams", []):
            if not any("Name: %s " % stream in line for line in data_lines):
                raise Failure("%s has no stream %s" % (fact["path"], stream))
        if "links" in fact and ("Links: %d" % fact["links"]) not in text:
            raise Failure("%s does not have %d links" % (fact["path"], fact["links"]))
        if "min_entries" in fact:
            status, listing, errors = run(["fls", image, record])
            if len(listing.splitlines()) < fact["min_entries"]:
                raise Failure("%s lists %d entries" % (fact["path"], len(listing.splitlines())))
        checked += 1
    print("%d promised NTFS features found on %s" % (checked, snapshot["image"]))


def scenario_file(tool, scenario):
    if os.path.exists(scenario):
        return scenario
    return os.path.join(os.path.dirname(os.path.realpath(tool)), "scenarios", scenario + ".json")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--tool", required=True)
    parser.add_argument("--scenario", required=True)
    parser.add_argument("--cluster-size", required=True)
    parser.add_argument("--work", required=True)
    parser.add_argument("--expect-corruption-caught", action="store_true",
                        help="flip one byte of the oldest store's first data block; pass only if the check fails")
    arguments = parser.parse_args()
    missing = skip_reason()
    if missing:
        print("SKIP: missing %s" % missing)
        return SKIP
    os.makedirs(arguments.work, exist_ok=True)
    prefix = os.path.join(arguments.work, "%s-%s" % (os.path.basename(arguments.scenario).replace(".json", ""),
                                                    arguments.cluster_size))
    status, output, errors = run([arguments.tool, "build", arguments.scenario, "-o", prefix,
                                  "-c", arguments.cluster_size])
    if status != 0:
        print(output + errors)
        return SKIP if status == SKIP else 1
    print(output.strip())
    with open(prefix + ".manifest.json") as handle:
        manifest = json.load(handle)
    if arguments.expect_corruption_caught:
        return expect_corruption_caught(manifest_path(prefix, manifest), manifest, os.path.dirname(prefix))
    try:
        check_vshadowinfo(manifest_path(prefix, manifest), manifest)
        check_store_contents(manifest_path(prefix, manifest), manifest, os.path.dirname(prefix))
        check_file_system(manifest_path(prefix, manifest))
        check_expected_files(scenario_file(arguments.tool, arguments.scenario), manifest, os.path.dirname(prefix))
    except Failure as failure:
        print("FAIL: %s" % failure)
        return 1
    return 0


def expect_corruption_caught(image, manifest, directory):
    """The content check must notice one wrong byte in a store data block."""
    oldest = manifest["snapshots"][0]
    descriptors = record_payload(image, oldest["block_list_offset"])
    data_offset = struct.unpack_from("<Q", descriptors, 16)[0]
    with open(image, "r+b") as handle:
        handle.seek(data_offset + 100)
        old = handle.read(1)
        handle.seek(data_offset + 100)
        handle.write(bytes([old[0] ^ 0xFF]))
    try:
        check_store_contents(image, manifest, directory)
    except Failure as failure:
        print("corruption caught: %s" % failure)
        return 0
    print("FAIL: a corrupted store data block at %d went unnoticed" % data_offset)
    return 1


def manifest_path(prefix, manifest):
    return os.path.join(os.path.dirname(prefix), manifest["image"])


if __name__ == "__main__":
    sys.exit(main())
