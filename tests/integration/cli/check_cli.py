#!/usr/bin/python3
"""End-to-end checks of the tolvar command on images from the image builder
and on the Windows 10 volume of the shared test data.

    check_cli.py --cli TOLVAR --work DIR roundtrip --tool MKVSSIMAGE --scenario NAME
    check_cli.py --cli TOLVAR --work DIR refusals --tool MKVSSIMAGE
    check_cli.py --cli TOLVAR --work DIR failures --tool MKVSSIMAGE
    check_cli.py --cli TOLVAR --work DIR windows-list --disk NTFS_RAW --extract EXTRACT_PARTITION
    check_cli.py --cli TOLVAR --work DIR files --tool MKVSSIMAGE --lib LIBTOLVAR
    check_cli.py --cli TOLVAR --work DIR export --tool MKVSSIMAGE --scenario NAME
    check_cli.py --cli TOLVAR --work DIR special-outputs --tool MKVSSIMAGE
    check_cli.py --cli TOLVAR --work DIR qcow2-chain --tool MKVSSIMAGE --scenario NAME
    check_cli.py --cli TOLVAR --work DIR verify --tool MKVSSIMAGE --scenario NAME
    check_cli.py --cli TOLVAR --work DIR progress --tool MKVSSIMAGE
    check_cli.py --cli TOLVAR --work DIR windows-export --disk NTFS_RAW --extract EXTRACT_PARTITION

Exits 77 when the image builder cannot make images here (no FUSE), the
Windows disk image is absent, or pyvshadow (python3-libvshadow) is missing
for the checks that read through it."""
import argparse
import hashlib
import importlib.util
import json
import os
import re
import shutil
import stat
import subprocess
import sys
import threading

SKIP = 77
BLOCK_SIZES = (65536, 4096)
WINDOWS_OLDER = "ec06abc4-bd2f-41cc-a817-921f2046080d"
WINDOWS_NEWER = "d1229f1a-31d8-45de-8a72-0d6a3a1f59e8"
WINDOWS_PARTITION_OFFSET = 1048576
WINDOWS_PARTITION_LENGTH = 68716331008
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "mainuse"))
import tolvar_ctypes  # noqa: E402

# Files of the file_services scenario in its newest snapshot, and the ones
# the exclusion checks leave out of the increment.
FILE_PATHS = ["/still.bin", "/part.bin", "/grow.bin", "/moving.bin", "/filler.bin", "/fresh.bin", "/note.txt",
              "/pack/squeeze.bin", "/zipped/both.bin"]
EXCLUDED = ["/part.bin", "/moving.bin", "/grow.bin"]
COMPARE_IMAGES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "..", "scripts",
                              "compare-images")


class Failure(Exception):
    pass


def copy_image(source, target):
    """Copies an image keeping its holes (and making holes of its zero ranges)."""
    subprocess.run(["cp", "--sparse=always", source, target], check=True)


def run(command, **kwargs):
    return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, **kwargs)


def tolvar(arguments, *words):
    completed = run([arguments.cli] + [str(word) for word in words])
    return completed.returncode, completed.stdout.decode(), completed.stderr.decode()


def expect(arguments, code, stdout_lines, stderr_lines, *words):
    """Runs tolvar and holds its exit code and output to the expected ones (None: not checked)."""
    got = tolvar(arguments, *words)
    label = "tolvar " + " ".join(str(word) for word in words)
    if got[0] != code:
        raise Failure("%s: exit %d, expected %d\n%s%s" % (label, got[0], code, got[1], got[2]))
    if stdout_lines is not None and got[1].splitlines() != stdout_lines:
        raise Failure("%s: stdout %r, expected %r" % (label, got[1].splitlines(), stdout_lines))
    if stderr_lines is not None and got[2].splitlines() != stderr_lines:
        raise Failure("%s: stderr %r, expected %r" % (label, got[2].splitlines(), stderr_lines))
    return got


def build_image(arguments, scenario):
    os.makedirs(arguments.work, exist_ok=True)
    prefix = os.path.join(arguments.work, scenario)
    environment = dict(os.environ)
    environment.pop("LD_PRELOAD", None)
    completed = subprocess.run([arguments.tool, "build", scenario, "-o", prefix], env=environment)
    if completed.returncode == SKIP:
        print("SKIP: the image builder cannot make images on this machine")
        sys.exit(SKIP)
    if completed.returncode != 0:
        raise Failure("the image builder failed with %d" % completed.returncode)
    with open(prefix + ".manifest.json") as handle:
        return prefix, json.load(handle)


def digest(path):
    with open(path, "rb") as handle:
        return hashlib.file_digest(handle, "sha256").hexdigest() if hasattr(hashlib, "file_digest") \
            else hashlib.sha256(handle.read()).hexdigest()


def compare_outside_store(manifest_path, first, second):
    completed = run([COMPARE_IMAGES, manifest_path, first, second])
    return completed.returncode == 0, completed.stdout.decode()


def backup_and_apply(arguments, prefix, manifest, older, newer, block_size, compare):
    snapshots = manifest["snapshots"]
    work = os.path.dirname(prefix)
    increment = prefix + ".increment"
    base = prefix + ".base.img"
    words = ["backup", prefix + ".img", snapshots[older]["shadow_copy_id"], snapshots[newer]["shadow_copy_id"],
             increment, "--block-size", block_size] + (["--compare"] if compare else [])
    code, out, err = tolvar(arguments, *words)
    label = "%s %d..%d block %d%s" % (manifest["scenario"], older + 1, newer + 1, block_size,
                                      " --compare" if compare else "")
    if code != 0:
        raise Failure("%s: backup exited %d: %s" % (label, code, err))
    if err:
        raise Failure("%s: backup wrote to stderr, which is not a terminal: %r" % (label, err))
    copy_image(os.path.join(work, snapshots[older]["image"]), base)
    code, out, err = tolvar(arguments, "apply", base, increment)
    if code != 0:
        raise Failure("%s: apply exited %d: %s" % (label, code, err))
    equal, report = compare_outside_store(prefix + ".manifest.json", base,
                                          os.path.join(work, snapshots[newer]["image"]))
    if not equal:
        raise Failure("%s: the applied image differs from the newer snapshot\n%s" % (label, report))
    blocks = int(out.split()[0])
    os.remove(base)
    os.remove(increment)
    return label, blocks


def check_list_matches_manifest(arguments, prefix, manifest):
    """list --json names every snapshot the image builder made, in creation order, with its creation time."""
    _, text, _ = expect(arguments, 0, None, [], "list", prefix + ".img", "--json")
    listed = [(copy["shadow_copy_id"], copy["set_id"], copy["store_identifier"], copy["volume_size"], copy["created"])
              for copy in json.loads(text)["shadow_copies"]]
    # The image builder records whole seconds; list gives every tick.
    made = [(snapshot["shadow_copy_id"], snapshot["set_id"], snapshot["store_identifier"], manifest["volume_size"],
             snapshot["creation_time"].replace(" ", "T") + ".0000000Z") for snapshot in manifest["snapshots"]]
    if listed != made:
        raise Failure("list --json gave %r, the image builder made %r" % (listed, made))


def check_roundtrip(arguments):
    prefix, manifest = build_image(arguments, arguments.scenario)
    check_list_matches_manifest(arguments, prefix, manifest)
    count = len(manifest["snapshots"])
    cases = 0
    for older in range(count):
        for newer in range(older, count):
            for block_size in BLOCK_SIZES:
                served = {}
                for compare in (False, True):
                    label, served[compare] = backup_and_apply(arguments, prefix, manifest, older, newer,
                                                              block_size, compare)
                    cases += 1
                if served[True] > served[False]:
                    raise Failure("%s: --compare wrote more blocks than the plain walk" % label)
                print("%s..%s block %d: %d blocks, %d with --compare" % (
                    older + 1, newer + 1, block_size, served[False], served[True]))
    print("%d round trips reproduced the newer snapshot" % cases)


def check_refusals(arguments):
    prefix, manifest = build_image(arguments, "default")
    snapshots = manifest["snapshots"]
    work = os.path.dirname(prefix)
    increment = prefix + ".increment"
    expect(arguments, 0, None, [], "backup", prefix + ".img", snapshots[0]["shadow_copy_id"],
           snapshots[-1]["shadow_copy_id"], increment)
    with open(increment, "rb") as handle:
        good = handle.read()
    base = prefix + ".base.img"
    copy_image(os.path.join(work, snapshots[0]["image"]), base)
    before = digest(base)
    records = len(good) and int.from_bytes(good[-16:-8], "little")
    cases = {
        # A byte inside the last block: structure intact, contents damaged.
        "block record %d does not match its hash" % (records - 1):
            good[:-1000] + bytes([good[-1000] ^ 0xFF]) + good[-999:],
        # A byte of the trailer's checksum itself.
        "checksum mismatch": good[:-1] + bytes([good[-1] ^ 0xFF]),
        "not an increment file (bad magic)": b"X" + good[1:],
        "file size does not fit whole blocks": good[:-1],
        "too short for an increment": good[:100],
    }
    for reason, damaged in cases.items():
        bad = prefix + ".damaged"
        with open(bad, "wb") as handle:
            handle.write(damaged)
        expect(arguments, 4, [], ["tolvar: %s: %s; %s left untouched" % (bad, reason, base)], "apply", base, bad)
        if digest(base) != before:
            raise Failure("apply refused (%s) but changed BASE" % reason)
    # A base of another size: the increment is for a different volume.
    small = prefix + ".small.img"
    with open(small, "wb") as handle:
        handle.truncate(manifest["volume_size"] // 2)
    small_before = digest(small)
    expect(arguments, 4, [], ["tolvar: %s is %d bytes, the increment is for a volume of %d bytes; %s left untouched"
                              % (small, manifest["volume_size"] // 2, manifest["volume_size"], small)],
           "apply", small, increment)
    if digest(small) != small_before:
        raise Failure("apply refused a mismatched BASE but changed it")
    expect(arguments, 3, [], None, "apply", base, prefix + ".absent")
    if digest(base) != before:
        raise Failure("apply of a missing increment changed BASE")
    print("apply refused %d damaged increments and a mismatched base; BASE untouched" % len(cases))
    check_safe_apply(arguments, prefix, manifest, increment)


def crc64(data):
    """CRC-64 as in xz (reflected ECMA-182, all-ones start and final xor)."""
    table = []
    for byte in range(256):
        value = byte
        for _ in range(8):
            value = (value >> 1) ^ (0xC96C5795D7870F42 if value & 1 else 0)
        table.append(value)
    crc = 0xFFFFFFFFFFFFFFFF
    for byte in data:
        crc = table[(crc ^ byte) & 0xFF] ^ (crc >> 8)
    return crc ^ 0xFFFFFFFFFFFFFFFF


def padding_after(version, offset):
    """The zeros a version 3 increment puts after a part ending at offset."""
    return (64 - offset % 64) % 64 if version == 3 else 0


def records_of(data):
    """(index, flags, stored bytes) of every record of a version 2 or 3
    increment: version 3 has 64-byte record headers and pads the bitmap and
    every record with zeros to a multiple of 64 bytes."""
    version = int.from_bytes(data[8:12], "little")
    head = 64 if version == 3 else 40
    at = 128 + int.from_bytes(data[32:40], "little")
    at += padding_after(version, at)
    for _ in range(int.from_bytes(data[-16:-8], "little")):
        stored = int.from_bytes(data[at + 32:at + 40], "little")
        yield (int.from_bytes(data[at:at + 8], "little"), int.from_bytes(data[at + 8:at + 16], "little"),
               data[at + head:at + head + stored])
        at += head + stored
        at += padding_after(version, at)


def version1_of(increment):
    """The same increment in version 1 (index and block per record, CRC-64),
    from an uncompressed version 2 or 3 file."""
    bitmap_length = int.from_bytes(increment[32:40], "little")
    count = int.from_bytes(increment[-16:-8], "little")
    header = bytearray(increment[:128])
    header[8:12] = (1).to_bytes(4, "little")
    header[40:48] = bytes(8)
    out = bytearray(header) + increment[128:128 + bitmap_length]
    for index, _, block in records_of(increment):
        out += index.to_bytes(8, "little") + block
    out += count.to_bytes(8, "little")
    return bytes(out + crc64(out).to_bytes(8, "little"))


def check_safe_apply(arguments, prefix, manifest, increment):
    """A BASE that is not an image of the older snapshot is refused, naming the
    first block that holds neither contents; an apply killed part way and run
    again completes; --output leaves BASE as it was; --compress and version 1
    increments round trip."""
    snapshots = sorted(manifest["snapshots"], key=lambda snapshot: snapshot["creation_order"])
    work = os.path.dirname(prefix)
    older_image = os.path.join(work, snapshots[0]["image"])
    newer_image = os.path.join(work, snapshots[-1]["image"])
    manifest_path = prefix + ".manifest.json"
    base = prefix + ".safe.img"
    # The older image with one byte changed in the first block the increment
    # checks (flags 0): that block holds neither contents.
    with open(increment, "rb") as handle:
        data = handle.read()
    block_size = int.from_bytes(data[24:32], "little")
    checked = next((index for index, flags, _ in records_of(data) if flags == 0), None)
    if checked is None:
        raise Failure("the increment checks no block: the refusal cannot be shown")
    copy_image(older_image, base)
    with open(base, "r+b") as handle:
        handle.seek(checked * block_size + 7)
        byte = handle.read(1)[0]
        handle.seek(checked * block_size + 7)
        handle.write(bytes([byte ^ 0x5A]))
    before = digest(base)
    expect(arguments, 4, [], ["tolvar: block %d of %s holds neither the older nor the newer shadow copy's contents: "
                              "it is not an image of shadow copy %s; %s left untouched"
                              % (checked, base, snapshots[0]["shadow_copy_id"], base)], "apply", base, increment)
    if digest(base) != before:
        raise Failure("a refused apply changed BASE")
    print("a BASE with block %d changed is refused and left untouched" % checked)

    # --output: BASE stays, NEW is the result.
    copy_image(older_image, base)
    before = digest(base)
    restored = prefix + ".restored.img"
    expect(arguments, 0, None, [], "apply", base, increment, "--output", restored)
    equal, report = compare_outside_store(manifest_path, restored, newer_image)
    if digest(base) != before or not equal:
        raise Failure("apply --output: BASE changed or the result differs\n%s" % report)

    # Killed at several points (strace kills it at its Nth write), then run again.
    if shutil.which("strace") is None:
        print("SKIP: strace is missing for the interrupted-apply check")
        sys.exit(SKIP)
    records = int.from_bytes(open(increment, "rb").read()[-16:-8], "little")
    # At its Nth write the process dies before the write: the first kill that
    # leaves something written is at the second.
    points = sorted({2, max(2, records // 2), max(2, records - 1)})
    for point in points:
        # A sanitized build's runtime makes writes of its own (to pipes, when it
        # checks memory), so the kill moves on, a write at a time, until BASE
        # has been written to.
        for extra in range(64):
            copy_image(older_image, base)
            killed = run(["strace", "-f", "-o", "/dev/null", "-e", "trace=write,writev,pwrite64",
                          "-e", "inject=write,writev,pwrite64:signal=SIGKILL:when=%d" % (point + extra), arguments.cli,
                          "apply", base, increment])
            if killed.returncode == 0:
                raise Failure("apply was not killed at write %d" % (point + extra))
            if digest(base) != before:
                break
        else:
            raise Failure("apply killed at write %d had written nothing: the check proves nothing" % point)
        expect(arguments, 0, None, [], "apply", base, increment)
        equal, report = compare_outside_store(manifest_path, base, newer_image)
        if not equal:
            raise Failure("apply killed at write %d and run again differs from the newer snapshot\n%s"
                          % (point, report))
    print("apply killed at writes %s and run again completes" % points)

    # --compress round trips, and the same increment in version 1 still applies.
    compressed = prefix + ".compressed.tvi"
    expect(arguments, 0, None, [], "backup", prefix + ".img", snapshots[0]["shadow_copy_id"],
           snapshots[-1]["shadow_copy_id"], compressed, "--compress")
    old_format = prefix + ".v1.tvi"
    with open(increment, "rb") as handle, open(old_format, "wb") as out:
        out.write(version1_of(handle.read()))
    for label, path in (("--compress", compressed), ("version 1", old_format)):
        copy_image(older_image, base)
        expect(arguments, 0, None, [], "apply", base, path)
        equal, report = compare_outside_store(manifest_path, base, newer_image)
        if not equal:
            raise Failure("%s increment applied differs from the newer snapshot\n%s" % (label, report))
    print("--compress (%d bytes against %d) and version 1 increments apply"
          % (os.path.getsize(compressed), os.path.getsize(increment)))


def check_failures(arguments):
    prefix, manifest = build_image(arguments, "default")
    image = prefix + ".img"
    older = manifest["snapshots"][0]["shadow_copy_id"]
    newer = manifest["snapshots"][-1]["shadow_copy_id"]
    missing = os.path.join(arguments.work, "absent.img")
    out = os.path.join(arguments.work, "failed.increment")

    expect(arguments, 1, [], None)
    expect(arguments, 1, [], None, "bogus")
    expect(arguments, 1, [], None, "diff", image, older)
    code, _, err = expect(arguments, 1, [], None, "diff", image, older, newer, "--include", "/a")
    if not err.startswith("tolvar diff: unknown option --include\n"):
        raise Failure("unknown option: %r" % err)
    expect(arguments, 1, [], None, "backup", image, older, newer, out, "--block-size", "64x")
    expect(arguments, 6, [], ["tolvar: error 1: Open file(%s) failed - 2." % missing], "diff", missing, older, newer)
    expect(arguments, 2, [], ["tolvar: error 13: Failed build snapshot sequence. Start snapshot not find",
                              "tolvar: error 12: Failed to get snapshot sequence",
                              "tolvar: Init returned -2"], "diff", image, older.upper(), newer)
    expect(arguments, 2, [], ["tolvar: error 14: Failed build snapshot sequence. End snapshot not find",
                              "tolvar: error 12: Failed to get snapshot sequence",
                              "tolvar: Init returned -2"], "diff", image, older, "{%s}" % newer)
    expect(arguments, 2, [], ["tolvar: Init returned -2"], "diff", image, older, newer, "--block-size", "6000")
    expect(arguments, 2, [], ["tolvar: error 14: Failed build snapshot sequence. End snapshot not find",
                              "tolvar: error 12: Failed to get snapshot sequence",
                              "tolvar: Init returned -2"], "backup", image, older, newer[::-1], out)
    if os.path.exists(out) or os.path.exists(out + ".partial"):
        raise Failure("a failed backup left a file behind")
    expect(arguments, 3, [], ["tolvar: cannot write %s" % os.path.join(arguments.work, "no-dir", "x.partial")],
           "backup", image, older, newer, os.path.join(arguments.work, "no-dir", "x"))
    expect(arguments, 6, [], ["tolvar: error 1: Open file(%s) failed - 2." % missing], "list", missing)
    blank = os.path.join(arguments.work, "blank.img")
    with open(blank, "wb") as handle:
        handle.truncate(1 << 20)
    expect(arguments, 6, [], ["tolvar: %s holds neither an NTFS volume nor a partition table" % blank], "list", blank)
    # An NTFS volume without a store.
    plain = os.path.join(arguments.work, "plain.ntfs")
    with open(plain, "wb") as handle:
        handle.truncate(16 << 20)
    run(["mkntfs", "-F", "-Q", "-q", "-T", plain])
    expect(arguments, 6, [], ["tolvar: %s: the volume holds no shadow-copy store" % plain], "list", plain)
    expect(arguments, 6, [], ["tolvar: %s: the volume holds no shadow-copy store" % plain],
           "backup", plain, older, newer, out)
    # A successful diff and its JSON agree with the bitmap written beside them.
    bitmap = os.path.join(arguments.work, "bitmap.bin")
    _, text, _ = expect(arguments, 0, None, [], "diff", image, older, newer, "--json", "--block-size", "4K",
                        "--bitmap-out", bitmap)
    report = json.loads(text)
    with open(bitmap, "rb") as handle:
        bits = sum(bin(byte).count("1") for byte in handle.read())
    if report["changed_blocks"] != bits or report["block_size"] != 4096 or report["volume_size"] != \
            manifest["volume_size"] or report["bitmap_bytes"] != os.path.getsize(bitmap):
        raise Failure("diff --json %r does not match its bitmap of %d set bits" % (report, bits))
    print("failure exit codes and messages as documented")


def check_windows_list(arguments):
    if not os.path.exists(arguments.disk):
        print("SKIP: %s is absent (the store tests' fixture unpacks it)" % arguments.disk)
        sys.exit(SKIP)
    os.makedirs(arguments.work, exist_ok=True)
    volume = os.path.join(arguments.work, "windows10.volume")
    subprocess.run([sys.executable, arguments.extract, arguments.disk, str(WINDOWS_PARTITION_OFFSET),
                    str(WINDOWS_PARTITION_LENGTH), volume], check=True)
    _, text, _ = expect(arguments, 0, None, [], "list", volume, "--json")
    copies = json.loads(text)["shadow_copies"]
    ids = [copy["shadow_copy_id"] for copy in copies]
    if ids != [WINDOWS_OLDER, WINDOWS_NEWER]:
        raise Failure("list gave %r" % ids)
    if any(copy["volume_size"] != WINDOWS_PARTITION_LENGTH for copy in copies):
        raise Failure("list gave volume sizes %r" % [copy["volume_size"] for copy in copies])
    _, table, _ = expect(arguments, 0, None, [], "list", volume)
    rows = table.splitlines()
    if len(rows) != 3 or WINDOWS_OLDER not in rows[1] or WINDOWS_NEWER not in rows[2]:
        raise Failure("list table:\n%s" % table)
    print(table, end="")


def runs_text(bits):
    """Ascending block numbers as the command prints them: "0-3 7"."""
    runs = []
    for index in bits:
        if runs and runs[-1][1] + 1 == index:
            runs[-1][1] = index
        else:
            runs.append([index, index])
    return runs, " ".join(str(a) if a == b else "%d-%d" % (a, b) for a, b in runs)


def check_files(arguments):
    """filemap and --exclude against the exports through ctypes, on the
    file_services scenario, whose newest snapshot rewrote, grew and moved
    files since the oldest."""
    prefix, manifest = build_image(arguments, "file_services")
    lib = tolvar_ctypes.Library(arguments.lib)
    image = prefix + ".img"
    work = os.path.dirname(prefix)
    snapshots = sorted(manifest["snapshots"], key=lambda snapshot: snapshot["creation_order"])
    older, newer = snapshots[0]["shadow_copy_id"], snapshots[-1]["shadow_copy_id"]
    older_image = os.path.join(work, snapshots[0]["image"])
    newer_image = os.path.join(work, snapshots[-1]["image"])
    for block_size in (4096, 65536):
        status, handle = lib.init(image, older, newer, block_size)
        if status != tolvar_ctypes.OK:
            raise Failure("Init returned %d: %r" % (status, lib.errors()))
        try:
            maps = {path: lib.file_map(handle, path) for path in FILE_PATHS}
            before = lib.bitmap(handle)
            status, made = lib.exclude(handle, EXCLUDED)
            if status != tolvar_ctypes.OK:
                raise Failure("ExcludeFiles returned %d: %r" % (status, lib.errors()))
            after = lib.bitmap(made)
            lib.free(made)
        finally:
            lib.free(handle)

        # filemap prints the ranges of the export's map, as JSON and as text.
        changed_files = 0
        for path, expected_map in maps.items():
            bits = tolvar_ctypes.set_bits(expected_map)
            runs, text = runs_text(bits)
            changed_files += 1 if bits else 0
            _, out, _ = expect(arguments, 0, None, [], "filemap", image, older, newer, path, "--block-size",
                               block_size, "--json")
            report = json.loads(out)
            if report["ranges"] != runs or report["changed_blocks"] != len(bits) or \
                    report["map_bytes"] != len(expected_map) or report["map_blocks"] != 8 * len(expected_map):
                raise Failure("filemap %s block %d: %r, the export gives %s (%d bytes)"
                              % (path, block_size, report, text, len(expected_map)))
            expect(arguments, 0, ["block size      %d bytes" % block_size,
                                  "map blocks      %d (%d bytes)" % (8 * len(expected_map), len(expected_map)),
                                  "changed blocks  %d" % len(bits), "changed ranges  %s" % text], [],
                   "filemap", image, older, newer, path, "--block-size", block_size)
        if changed_files == 0:
            raise Failure("block %d: no file's map has a changed block; the comparison proves nothing" % block_size)

        # diff --exclude counts exactly the blocks ExcludeFiles leaves.
        cleared = set(tolvar_ctypes.set_bits(before)) - set(tolvar_ctypes.set_bits(after))
        if not cleared:
            raise Failure("block %d: excluding %r cleared no block" % (block_size, EXCLUDED))
        excludes = [word for path in EXCLUDED for word in ("--exclude", path)]
        bitmap_out = os.path.join(work, "excluded.bitmap")
        _, plain, _ = expect(arguments, 0, None, [], "diff", image, older, newer, "--block-size", block_size,
                             "--json")
        _, reduced, _ = expect(arguments, 0, None, [], "diff", image, older, newer, "--block-size", block_size,
                               "--json", "--bitmap-out", bitmap_out, *excludes)
        plain, reduced = json.loads(plain), json.loads(reduced)
        with open(bitmap_out, "rb") as handle:
            written = handle.read()
        if plain["changed_blocks"] - reduced["changed_blocks"] != len(cleared) or written != after:
            raise Failure("block %d: diff gave %d changed blocks, with --exclude %d; ExcludeFiles clears %d"
                          % (block_size, plain["changed_blocks"], reduced["changed_blocks"], len(cleared)))

        # backup --exclude then apply gives what the same backup without
        # --exclude gives, except that the cleared blocks keep the older
        # snapshot's bytes; and those blocks did change.
        increment = prefix + ".excluded.increment"
        base = prefix + ".base.img"
        expected_image = prefix + ".expected.img"
        expect(arguments, 0, None, [], "backup", image, older, newer, increment, "--block-size", block_size)
        copy_image(older_image, expected_image)
        expect(arguments, 0, None, [], "apply", expected_image, increment)
        expect(arguments, 0, None, [], "backup", image, older, newer, increment, "--block-size", block_size,
               *excludes)
        copy_image(older_image, base)
        expect(arguments, 0, None, [], "apply", base, increment)
        restored_differ = 0
        with open(older_image, "rb") as source, open(expected_image, "r+b") as target:
            for block in sorted(cleared):
                source.seek(block * block_size)
                target.seek(block * block_size)
                older_bytes = source.read(block_size)
                restored_differ += 1 if target.read(len(older_bytes)) != older_bytes else 0
                target.seek(block * block_size)
                target.write(older_bytes)
        if digest(base) != digest(expected_image):
            raise Failure("block %d: backup --exclude then apply differs from the full backup outside the %d "
                          "excluded blocks" % (block_size, len(cleared)))
        if restored_differ == 0:
            raise Failure("block %d: the excluded blocks hold the same bytes in both snapshots" % block_size)
        for path in (increment, base, expected_image, bitmap_out):
            os.remove(path)
        print("block %d: filemap matches the export for %d files; --exclude leaves out %d blocks"
              % (block_size, len(FILE_PATHS), len(cleared)))

    # A path that is not in the volume: the library's status, exit code 2,
    # and no increment behind.
    missing = "/no such file.bin"
    increment = prefix + ".missing.increment"
    for words in (["diff", image, older, newer, "--exclude", "/part.bin", "--exclude", missing],
                  ["backup", image, older, newer, increment, "--exclude", missing],
                  ["filemap", image, older, newer, missing],
                  ["filemap", image, older, newer, "/gone.bin"]):
        _, _, err = expect(arguments, 2, [], None, *words)
        call = "GetFileChangesMap" if words[0] == "filemap" else "ExcludeFiles"
        lines = err.splitlines()
        if not lines or lines[-1] != "tolvar: %s returned %d" % (call, tolvar_ctypes.E_NOT_FOUND) or \
                any(not line.startswith("tolvar: error ") for line in lines[:-1]):
            raise Failure("tolvar %s: stderr %r" % (" ".join(words), err))
    if os.path.exists(increment) or os.path.exists(increment + ".partial"):
        raise Failure("a backup with a missing path left a file behind")
    print("missing paths exit 2 with the library's status")


CHUNK = 1 << 20


def open_vshadow(image):
    """libvshadow's stores of image, oldest first; skips without pyvshadow."""
    if importlib.util.find_spec("pyvshadow") is None:
        print("SKIP: pyvshadow (python3-libvshadow) is missing")
        sys.exit(SKIP)
    import pyvshadow
    volume = pyvshadow.volume()
    volume.open(image)
    return volume, [volume.get_store(index) for index in range(volume.number_of_stores)]


def first_difference(store, path, mask=None):
    """The first byte offset where the file at path differs from libvshadow's
    read of store (with mask(offset, data) applied to the store's bytes), or
    None; a size mismatch counts as a difference at the shorter end."""
    size = store.volume_size
    if os.path.getsize(path) != size:
        return min(size, os.path.getsize(path))
    with open(path, "rb") as handle:
        for offset in range(0, size, CHUNK):
            expected = store.read_buffer_at_offset(min(CHUNK, size - offset), offset)
            if mask is not None:
                expected = mask(offset, expected)
            got = handle.read(len(expected))
            if got != expected:
                return offset + next(i for i in range(len(got)) if got[i] != expected[i])
    return None


def free_cluster_mask(image_of_snapshot, cluster_size):
    """A mask that zeroes the clusters The Sleuth Kit's icat finds free in the
    snapshot's $Bitmap (MFT record 6), and the count of free clusters."""
    completed = run(["icat", image_of_snapshot, "6"])
    if completed.returncode != 0:
        raise Failure("icat of $Bitmap failed: %s" % completed.stderr.decode())
    bitmap = completed.stdout
    with open(image_of_snapshot, "rb") as handle:
        handle.seek(0x28)
        clusters = min(int.from_bytes(handle.read(8), "little") * 512 // cluster_size, len(bitmap) * 8)

    def free(cluster):
        return cluster < clusters and not (bitmap[cluster // 8] >> (cluster % 8)) & 1

    def mask(offset, data):
        data = bytearray(data)
        for start in range(0, len(data), cluster_size):
            if free((offset + start) // cluster_size):
                data[start:start + cluster_size] = bytes(min(cluster_size, len(data) - start))
        return bytes(data)
    return mask, sum(1 for cluster in range(clusters) if free(cluster))


def allocated_bytes(path):
    return os.stat(path).st_blocks * 512


def check_export(arguments):
    """Every snapshot exported (raw, to a file and to standard output, and
    with --used-only) against libvshadow's read of the same store."""
    prefix, manifest = build_image(arguments, arguments.scenario)
    image = prefix + ".img"
    _, stores = open_vshadow(image)
    snapshots = sorted(manifest["snapshots"], key=lambda snapshot: snapshot["creation_order"])
    if len(stores) != len(snapshots):
        raise Failure("libvshadow sees %d stores, the manifest lists %d" % (len(stores), len(snapshots)))
    for order, (snapshot, store) in enumerate(zip(snapshots, stores), 1):
        identifier = snapshot["shadow_copy_id"]
        out = prefix + ".export.raw"
        _, text, _ = expect(arguments, 0, None, [], "export", image, identifier, out)
        difference = first_difference(store, out)
        if difference is not None:
            raise Failure("snapshot %d: export differs from libvshadow at byte %d" % (order, difference))
        data = int(text.split("(")[1].split()[0])
        if text.splitlines() != ["%d bytes of shadow copy %s exported to %s (%d bytes of data)"
                                 % (store.volume_size, identifier, out, data)]:
            raise Failure("snapshot %d: export said %r" % (order, text))
        if allocated_bytes(out) > data + (1 << 20):
            raise Failure("snapshot %d: the raw image takes %d bytes on disk for %d bytes of data: not sparse"
                          % (order, allocated_bytes(out), data))
        # Standard output carries the same bytes; the summary moves to stderr.
        completed = run([arguments.cli, "export", image, identifier, "-"])
        with open(out, "rb") as handle:
            if completed.returncode != 0 or completed.stdout != handle.read():
                raise Failure("snapshot %d: export to - differs from the file (exit %d)"
                              % (order, completed.returncode))
        if not completed.stderr.decode().startswith("%d bytes of shadow copy" % store.volume_size):
            raise Failure("snapshot %d: export to - said %r on stderr" % (order, completed.stderr))
        # --used-only: libvshadow's bytes with the clusters that $Bitmap
        # (read by icat) marks free set to zero.
        mask, free = free_cluster_mask(out, manifest["cluster_size"])
        used = prefix + ".used.raw"
        _, text, _ = expect(arguments, 0, None, [], "export", image, identifier, used, "--used-only")
        lines = text.splitlines()
        want = "%d of " % free
        if len(lines) != 2 or not lines[1].startswith(want) or \
                not lines[1].endswith(", %d bytes not read" % (free * manifest["cluster_size"])):
            raise Failure("snapshot %d: export --used-only said %r; icat finds %d free clusters" % (order, text, free))
        difference = first_difference(store, used, mask)
        if difference is not None:
            raise Failure("snapshot %d: export --used-only differs from libvshadow with free clusters zeroed, "
                          "at byte %d" % (order, difference))
        os.remove(out)
        os.remove(used)
        print("snapshot %d: export equals libvshadow's read (%d bytes of data); --used-only leaves out %d free "
              "clusters" % (order, data, free))
    # An unknown snapshot fails as Init does and leaves nothing behind.
    out = prefix + ".export.raw"
    missing = snapshots[0]["shadow_copy_id"][::-1]
    expect(arguments, 2, [], ["tolvar: error 13: Failed build snapshot sequence. Start snapshot not find",
                              "tolvar: cannot open shadow copy %s of %s" % (missing, image)],
           "export", image, missing, out)
    if os.path.exists(out) or os.path.exists(out + ".partial"):
        raise Failure("a failed export left a file behind")
    expect(arguments, 1, [], ["tolvar export: unknown format 'vmdk' (raw or qcow2)"],
           "export", image, snapshots[0]["shadow_copy_id"], out, "--format", "vmdk")


def differing_blocks(store, path, block=65536):
    """The indexes of the blocks in which the file at path differs from libvshadow's read of store."""
    size = store.volume_size
    differing = set()
    with open(path, "rb") as handle:
        for offset in range(0, size, CHUNK):
            expected = store.read_buffer_at_offset(min(CHUNK, size - offset), offset)
            got = handle.read(len(expected))
            for at in range(0, len(expected), block):
                if got[at:at + block] != expected[at:at + block]:
                    differing.add((offset + at) // block)
    return differing


def report_blocks(text, label):
    """The block indexes of one of verify's range lines ("store-file ranges   3-5 9")."""
    blocks = set()
    for item in verify_report(text).get(label, "").split():
        first, _, last = item.partition("-")
        blocks.update(range(int(first), int(last or first) + 1))
    return blocks


def check_restored_windows(arguments, volume, store, restored, label):
    """restored equals libvshadow's read of the newer shadow copy but in blocks
    that verify names as the store's files or clusters free in the snapshot."""
    _, text, _ = expect(arguments, 0, None, [], "verify", volume, WINDOWS_NEWER, restored)
    expected = report_blocks(text, "store-file ranges") | report_blocks(text, "free-cluster ranges")
    unexplained = differing_blocks(store, restored) - expected
    if unexplained:
        raise Failure("%s differs from libvshadow's newer shadow copy in blocks %s"
                      % (label, sorted(unexplained)[:20]))
    print("%s equals libvshadow's newer shadow copy outside %d store-file and free-cluster blocks"
          % (label, len(expected)))


def check_windows_chain(arguments, volume, stores):
    """The older export brought forward to the newer shadow copy by a qcow2
    overlay (read by qemu-img, checked clean) and by a .tvi increment applied."""
    base = os.path.join(arguments.work, "older.raw")
    overlay = os.path.join(arguments.work, "newer.qcow2")
    converted = os.path.join(arguments.work, "newer.converted.raw")
    increment = os.path.join(arguments.work, "newer.tvi")
    expect(arguments, 0, None, [], "export", volume, WINDOWS_OLDER, base)
    expect(arguments, 0, None, [], "backup", volume, WINDOWS_OLDER, WINDOWS_NEWER, overlay, "--format", "qcow2",
           "--base", base)
    qemu_check(overlay)
    qemu_img("convert", "-O", "raw", overlay, converted)
    check_restored_windows(arguments, volume, stores[1], converted, "the qcow2 overlay on the older export")
    os.remove(converted)
    os.remove(overlay)
    expect(arguments, 0, None, [], "backup", volume, WINDOWS_OLDER, WINDOWS_NEWER, increment, "--compress")
    expect(arguments, 0, None, [], "apply", base, increment)
    check_restored_windows(arguments, volume, stores[1], base, "the older export with the .tvi increment applied")
    os.remove(base)
    os.remove(increment)


def check_windows_export(arguments):
    """Both shadow copies of the Windows 10 volume exported and compared with
    libvshadow's read, every byte; then the chain from the older to the newer."""
    if not os.path.exists(arguments.disk):
        print("SKIP: %s is absent (the store tests' fixture unpacks it)" % arguments.disk)
        sys.exit(SKIP)
    os.makedirs(arguments.work, exist_ok=True)
    volume = os.path.join(arguments.work, "windows10.volume")
    subprocess.run([sys.executable, arguments.extract, arguments.disk, str(WINDOWS_PARTITION_OFFSET),
                    str(WINDOWS_PARTITION_LENGTH), volume], check=True)
    _, stores = open_vshadow(volume)
    for identifier, store in zip((WINDOWS_OLDER, WINDOWS_NEWER), stores):
        out = os.path.join(arguments.work, "export.raw")
        expect(arguments, 0, None, [], "export", volume, identifier, out)
        difference = first_difference(store, out)
        if difference is not None:
            raise Failure("%s: export differs from libvshadow at byte %d" % (identifier, difference))
        print("%s: export equals libvshadow's read, %d bytes (%d allocated)"
              % (identifier, store.volume_size, allocated_bytes(out)))
        os.remove(out)
    if shutil.which("qemu-img") is None:
        print("SKIP of the chain part: qemu-img (qemu-utils) is missing")
    else:
        check_windows_chain(arguments, volume, stores)
    os.remove(volume)


def qemu_img(*words):
    completed = run(["qemu-img"] + [str(word) for word in words])
    if completed.returncode != 0:
        raise Failure("qemu-img %s exited %d: %s%s" % (" ".join(str(word) for word in words), completed.returncode,
                                                      completed.stdout.decode(), completed.stderr.decode()))
    return completed.stdout.decode()


def qemu_check(path):
    report = json.loads(qemu_img("check", "--output=json", path))
    problems = {key: report.get(key, 0) for key in ("corruptions", "leaks", "check-errors")}
    if any(problems.values()):
        raise Failure("qemu-img check %s: %r" % (path, report))


def check_qcow2_chain(arguments):
    """export --format qcow2 equals the raw export as qemu-img reads it; a chain
    of backup --format qcow2 overlays, from a raw and from a qcow2 base, reads
    through qemu-img as each newer snapshot outside the store files; qemu-img
    check finds every file clean."""
    if shutil.which("qemu-img") is None:
        print("SKIP: qemu-img (qemu-utils) is missing")
        sys.exit(SKIP)
    prefix, manifest = build_image(arguments, arguments.scenario)
    image = prefix + ".img"
    work = os.path.dirname(prefix)
    manifest_path = prefix + ".manifest.json"
    snapshots = sorted(manifest["snapshots"], key=lambda snapshot: snapshot["creation_order"])
    first = snapshots[0]["shadow_copy_id"]
    raw_base = prefix + ".base.raw"
    qcow2_base = prefix + ".base.qcow2"
    expect(arguments, 0, None, [], "export", image, first, raw_base)
    expect(arguments, 0, None, [], "export", image, first, qcow2_base, "--format", "qcow2")
    qemu_check(qcow2_base)
    info = json.loads(qemu_img("info", "--output=json", qcow2_base))
    if info["format"] != "qcow2" or info["virtual-size"] != os.path.getsize(raw_base) or \
            info.get("format-specific", {}).get("data", {}).get("compat") != "1.1":
        raise Failure("qemu-img info of the qcow2 export: %r" % info)
    qemu_img("compare", "-f", "qcow2", "-F", "raw", qcow2_base, raw_base)
    # verify reads the qcow2 export through the container support (libqcow).
    _, text, _ = expect(arguments, 0, None, [], "verify", image, first, qcow2_base)
    if verify_report(text)["differing blocks"] != "0":
        raise Failure("verify of the qcow2 export: %r" % text)
    for block_size in (65536, 4096):
        for base in (raw_base, qcow2_base):
            chain = [base]
            for newer in range(1, len(snapshots)):
                overlay = "%s.%d.%d.%s.qcow2" % (prefix, block_size, newer + 1, os.path.basename(base).split(".")[-1])
                expect(arguments, 0, None, [], "backup", image, snapshots[newer - 1]["shadow_copy_id"],
                       snapshots[newer]["shadow_copy_id"], overlay, "--format", "qcow2", "--base", chain[-1],
                       "--block-size", block_size)
                chain.append(overlay)
                qemu_check(overlay)
                backing = json.loads(qemu_img("info", "--output=json", "--backing-chain", overlay))
                names = [os.path.basename(entry["filename"]) for entry in backing]
                if names != [os.path.basename(path) for path in reversed(chain)]:
                    raise Failure("qemu-img info --backing-chain %s: %r" % (overlay, names))
                converted = prefix + ".converted.raw"
                qemu_img("convert", "-O", "raw", overlay, converted)
                equal, report = compare_outside_store(manifest_path, converted,
                                                      os.path.join(work, snapshots[newer]["image"]))
                if not equal:
                    raise Failure("%s read through qemu-img differs from snapshot %d\n%s"
                                  % (overlay, newer + 1, report))
                os.remove(converted)
                check_verify_of_chain(arguments, image, snapshots[newer]["shadow_copy_id"], chain)
            print("block %d, %s base: %d overlays read as their snapshots and check clean"
                  % (block_size, os.path.basename(base).split(".")[-1], len(chain) - 1))
            for overlay in chain[1:]:
                os.remove(overlay)
    # Wrong or missing BASE, and arguments that do not go together.
    older, newer = snapshots[0]["shadow_copy_id"], snapshots[-1]["shadow_copy_id"]
    out = prefix + ".refused.qcow2"
    small = prefix + ".small.raw"
    with open(small, "wb") as handle:
        handle.truncate(manifest["volume_size"] // 2)
    expect(arguments, 4, [], ["tolvar: %s is an image of %d bytes, the volume has %d"
                              % (small, manifest["volume_size"] // 2, manifest["volume_size"])],
           "backup", image, older, newer, out, "--format", "qcow2", "--base", small)
    expect(arguments, 3, [], ["tolvar: cannot read %s" % (prefix + ".absent")],
           "backup", image, older, newer, out, "--format", "qcow2", "--base", prefix + ".absent")
    expect(arguments, 1, [], None, "backup", image, older, newer, out, "--base", raw_base)
    expect(arguments, 1, [], None, "backup", image, older, newer, out, "--format", "qcow2")
    _, _, err = expect(arguments, 1, [], None, "backup", image, older, newer, out, "--format", "qcow2", "--base",
                       raw_base, "--block-size", "12K")
    if not err.startswith("tolvar backup: qcow2 needs a block size that is a power of two, not 12288\n"):
        raise Failure("backup --block-size 12K --format qcow2: %r" % err)
    if os.path.exists(out) or os.path.exists(out + ".partial"):
        raise Failure("a refused backup left a file behind")
    print("a BASE of the wrong size, a missing BASE and mismatched options are refused")


def check_verify_of_chain(arguments, image, newer, chain):
    """verify refuses a qcow2 image with a backing file (libqcow misreads chains) and says what to do."""
    top = chain[-1]
    message = ("tolvar: error 1: %s: the qcow image has a backing file, which libqcow does not read correctly; "
               "flatten the chain first (qemu-img convert -O raw)" % top)
    expect(arguments, 3, [], [message, "tolvar: cannot read %s" % top], "verify", image, newer, top)


def verify_report(text):
    """verify's report as {label: value}."""
    report = {}
    for line in text.splitlines():
        report[line[:20].strip()] = line[20:].strip()
    return report


def check_verify(arguments):
    """verify passes on every export and on images restored through a qcow2
    chain and through .tvi increments, and fails, naming the block, on an
    export with one byte flipped in a cluster the file system uses."""
    if shutil.which("qemu-img") is None:
        print("SKIP: qemu-img (qemu-utils) is missing")
        sys.exit(SKIP)
    prefix, manifest = build_image(arguments, arguments.scenario)
    image = prefix + ".img"
    snapshots = sorted(manifest["snapshots"], key=lambda snapshot: snapshot["creation_order"])
    exported = prefix + ".export.raw"
    for order, snapshot in enumerate(snapshots, 1):
        identifier = snapshot["shadow_copy_id"]
        expect(arguments, 0, None, [], "export", image, identifier, exported)
        _, text, _ = expect(arguments, 0, None, [], "verify", image, identifier, exported)
        report = verify_report(text)
        if report["differing blocks"] != "0" or not report["store-file blocks"].startswith("0 ") or \
                not report["free-cluster blocks"].startswith("0 "):
            raise Failure("snapshot %d: verify of its own export: %r" % (order, report))
    # One byte flipped in the MFT's first cluster (in use, not a store file).
    with open(exported, "r+b") as handle:
        handle.seek(0x30)
        mft = int.from_bytes(handle.read(8), "little") * manifest["cluster_size"]
        handle.seek(mft + 100)
        byte = handle.read(1)[0]
        handle.seek(mft + 100)
        handle.write(bytes([byte ^ 0xFF]))
    block = (mft + 100) // 65536
    _, text, _ = expect(arguments, 5, None, [], "verify", image, snapshots[-1]["shadow_copy_id"], exported)
    report = verify_report(text)
    if report["differing blocks"] != "1" or report["differing ranges"] != str(block):
        raise Failure("verify of an export with a flipped byte in block %d: %r" % (block, report))
    _, text, _ = expect(arguments, 5, None, [], "verify", image, snapshots[-1]["shadow_copy_id"], exported,
                        "--block-size", "4K")
    if verify_report(text)["differing ranges"] != str((mft + 100) // 4096):
        raise Failure("verify --block-size 4K of an export with a flipped byte: %r" % text)
    # An image of another size.
    with open(exported, "r+b") as handle:
        handle.truncate(manifest["volume_size"] - 4096)
    expect(arguments, 5, [], ["tolvar: %s is %d bytes, shadow copy %s is %d bytes"
                              % (exported, manifest["volume_size"] - 4096, snapshots[-1]["shadow_copy_id"],
                                 manifest["volume_size"])],
           "verify", image, snapshots[-1]["shadow_copy_id"], exported)
    # Restored images: the oldest export brought forward through a qcow2
    # chain (read by qemu-img) and through .tvi increments applied in turn.
    first = snapshots[0]["shadow_copy_id"]
    base = prefix + ".base.raw"
    restored = prefix + ".restored.raw"
    expect(arguments, 0, None, [], "export", image, first, base)
    copy_image(base, restored)
    top = base
    for newer in range(1, len(snapshots)):
        older_id, newer_id = snapshots[newer - 1]["shadow_copy_id"], snapshots[newer]["shadow_copy_id"]
        overlay = "%s.overlay%d.qcow2" % (prefix, newer + 1)
        expect(arguments, 0, None, [], "backup", image, older_id, newer_id, overlay, "--format", "qcow2", "--base", top)
        top = overlay
        increment = prefix + ".increment"
        expect(arguments, 0, None, [], "backup", image, older_id, newer_id, increment)
        expect(arguments, 0, None, [], "apply", restored, increment)
        converted = prefix + ".converted.raw"
        qemu_img("convert", "-O", "raw", overlay, converted)
        for label, path in (("qcow2 chain", converted), (".tvi increments", restored)):
            _, text, _ = expect(arguments, 0, None, [], "verify", image, newer_id, path)
            report = verify_report(text)
            print("snapshot %d restored through %s: %s store-file blocks, %s free-cluster blocks"
                  % (newer + 1, label, report["store-file blocks"].split()[0],
                     report["free-cluster blocks"].split()[0]))
    print("verify passes on exports and restored images and names the block of a flipped byte (%d)" % block)


def stderr_on_a_terminal(words):
    """Runs tolvar with stderr on a pseudo-terminal; its exit code and what
    the terminal received."""
    import pty
    master, slave = pty.openpty()
    completed = subprocess.run(words, stdout=subprocess.PIPE, stderr=slave)
    os.close(slave)
    received = b""
    while True:
        try:
            chunk = os.read(master, 65536)
        except OSError:
            break
        if not chunk:
            break
        received += chunk
    os.close(master)
    return completed.returncode, received.decode(errors="replace")


def check_progress(arguments):
    """export, backup, apply and verify draw a progress line (blocks, bytes,
    rate, time left) on stderr when it is a terminal, and only then."""
    prefix, manifest = build_image(arguments, "default")
    image = prefix + ".img"
    snapshots = sorted(manifest["snapshots"], key=lambda snapshot: snapshot["creation_order"])
    older, newer = snapshots[0]["shadow_copy_id"], snapshots[-1]["shadow_copy_id"]
    base = prefix + ".base.raw"
    increment = prefix + ".tvi"
    commands = [
        ("export", ["export", image, older, base]),
        ("backup", ["backup", image, older, newer, increment]),
        ("apply", ["apply", base, increment, "--output", prefix + ".restored.raw"]),
        ("verify", ["verify", image, older, base]),
    ]
    for name, words in commands:
        code, text = stderr_on_a_terminal([arguments.cli] + words)
        if code != 0:
            raise Failure("%s under a terminal exited %d: %r" % (name, code, text))
        lines = [line for line in text.replace("\r\n", "\n").split("\r") if line.strip()]
        pattern = re.compile(r"^(\d+)/(\d+) blocks, [0-9.]+ MiB, [0-9.]+ MiB/s, \d+ s left\s*$")
        last = pattern.match(lines[-1].rstrip("\n")) if lines else None
        if not last or last.group(1) == "0":
            raise Failure("%s: no progress line on the terminal: %r" % (name, text))
        # The same command without a terminal prints nothing on stderr.
        expect(arguments, 0, None, [], *words)
        print("%s: progress %s" % (name, lines[-1].strip()))


def node_identity(path):
    status = os.lstat(path)
    return stat.S_IFMT(status.st_mode), status.st_rdev, status.st_ino


def check_special_outputs(arguments):
    """Every writing command given a FIFO and a character device as its output:
    the node is still the same node afterwards, and a FIFO's reader gets the
    bytes that the same command writes into a regular file."""
    prefix, manifest = build_image(arguments, "default")
    image = prefix + ".img"
    older = manifest["snapshots"][0]["shadow_copy_id"]
    newer = manifest["snapshots"][-1]["shadow_copy_id"]
    work = os.path.dirname(prefix)
    commands = {
        "backup": lambda out: ["backup", image, older, newer, out],
        "export": lambda out: ["export", image, newer, out],
        "export --used-only": lambda out: ["export", image, newer, out, "--used-only"],
        "diff --bitmap-out": lambda out: ["diff", image, older, newer, "--bitmap-out", out],
        "apply --output": lambda out: ["apply", older_image, increment, "--output", out],
    }
    older_image = os.path.join(work, manifest["snapshots"][0]["image"])
    increment = os.path.join(work, "special.tvi")
    expect(arguments, 0, None, [], "backup", image, older, newer, increment)
    device = os.path.join(work, "null-device")
    if os.path.exists(device):
        os.remove(device)
    try:
        os.mknod(device, 0o666 | stat.S_IFCHR, os.makedev(1, 3))
    except PermissionError:
        print("SKIP: cannot make a device node here (not root)")
        sys.exit(SKIP)
    for name, words in commands.items():
        regular = os.path.join(work, "regular.out")
        expect(arguments, 0, None, [], *words(regular))
        with open(regular, "rb") as handle:
            expected = handle.read()
        os.remove(regular)

        fifo = os.path.join(work, "fifo.out")
        if os.path.exists(fifo):
            os.remove(fifo)
        os.mkfifo(fifo)
        before = node_identity(fifo)
        received = []
        reader = threading.Thread(target=lambda: received.append(open(fifo, "rb").read()))
        reader.start()
        expect(arguments, 0, None, [], *words(fifo))
        reader.join(60)
        if node_identity(fifo) != before:
            raise Failure("%s into a FIFO replaced it" % name)
        if os.path.exists(fifo + ".partial"):
            raise Failure("%s into a FIFO left %s.partial" % (name, fifo))
        if not received or received[0] != expected:
            raise Failure("%s: the FIFO's reader got %d bytes, a regular file gets %d"
                          % (name, len(received[0]) if received else -1, len(expected)))
        os.remove(fifo)

        before = node_identity(device)
        expect(arguments, 0, None, [], *words(device))
        if node_identity(device) != before:
            raise Failure("%s into a character device replaced it" % name)
        print("%s: a FIFO got the %d bytes a file gets; the device node is untouched" % (name, len(expected)))
    # qcow2 needs to seek: a FIFO and a character device are refused and left alone.
    for words in (["export", image, newer], ["backup", image, older, newer]):
        fifo = os.path.join(work, "fifo.out")
        os.mkfifo(fifo)
        for node in (fifo, device):
            before = node_identity(node)
            extra = ["--base", os.path.join(work, manifest["snapshots"][0]["image"])] if words[0] == "backup" else []
            expect(arguments, 1, [], ["tolvar %s: qcow2 output needs a regular file or a block device, not %s"
                                      % (words[0], node)], *(words + [node, "--format", "qcow2"] + extra))
            if node_identity(node) != before:
                raise Failure("%s --format qcow2 into %s replaced it" % (words[0], node))
        os.remove(fifo)
    print("qcow2 output into a FIFO or a character device is refused; the nodes are untouched")
    os.remove(device)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--cli", required=True)
    parser.add_argument("--work", required=True)
    commands = parser.add_subparsers(dest="check", required=True)
    roundtrip = commands.add_parser("roundtrip")
    roundtrip.add_argument("--tool", required=True)
    roundtrip.add_argument("--scenario", required=True)
    for name in ("refusals", "failures", "special-outputs", "progress"):
        commands.add_parser(name).add_argument("--tool", required=True)
    for name in ("export", "qcow2-chain", "verify"):
        scenario = commands.add_parser(name)
        scenario.add_argument("--tool", required=True)
        scenario.add_argument("--scenario", required=True)
    files = commands.add_parser("files")
    files.add_argument("--tool", required=True)
    files.add_argument("--lib", required=True)
    for name in ("windows-list", "windows-export"):
        windows = commands.add_parser(name)
        windows.add_argument("--disk", required=True)
        windows.add_argument("--extract", required=True)
    arguments = parser.parse_args()
    checks = {"roundtrip": check_roundtrip, "refusals": check_refusals, "failures": check_failures,
              "windows-list": check_windows_list, "files": check_files, "export": check_export,
              "special-outputs": check_special_outputs, "qcow2-chain": check_qcow2_chain,
              "verify": check_verify, "progress": check_progress, "windows-export": check_windows_export}
    try:
        checks[arguments.check](arguments)
    except Failure as failure:
        print("FAIL: %s" % failure)
        sys.exit(1)


if __name__ == "__main__":
    main()
