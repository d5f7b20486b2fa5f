#!/usr/bin/python3
"""The tolvar command on whole disks and disk-image containers: every
command gives on them what it gives on the plain volume.

    check_images.py --cli TOLVAR --work DIR windows-disk --disk NTFS_RAW --extract EXTRACT_PARTITION
    check_images.py --cli TOLVAR --work DIR wrapped --tool MKVSSIMAGE
    check_images.py --cli TOLVAR --work DIR damaged --tool MKVSSIMAGE

windows-disk: the Windows 10 disk of the shared test data, by auto-selection,
--partition 1, --offset and the name suffixes, against its partition copied
out. wrapped: an image-builder volume put into a logical partition of an MBR
disk (sfdisk) and beside a plain NTFS volume on a GPT disk (sgdisk); mmls
is the oracle for the partition tables. damaged: partition tables that are
broken or reach past the end of the disk, a missing EWF segment, a
truncated qcow2. The containers are made with qemu-img convert (qcow2, VHD,
VHDX, VMDK sparse, flat and split), ewfacquire (E01 in segments) and split.

Exits 77 when the image builder cannot make images here (no FUSE) or the
Windows disk image is absent."""
import argparse
import json
import os
import shutil
import subprocess
import sys

SKIP = 77
SECTOR = 512
WINDOWS_OLDER = "ec06abc4-bd2f-41cc-a817-921f2046080d"
WINDOWS_NEWER = "d1229f1a-31d8-45de-8a72-0d6a3a1f59e8"
WINDOWS_OFFSET = 1048576
WINDOWS_LENGTH = 68716331008
# A file of the Windows volume, and the block sizes the comparisons use.
WINDOWS_FILE = "/$mft"
BLOCK_SIZES = (65536, 4096)


class Failure(Exception):
    pass


def run(command, check=False):
    completed = subprocess.run([str(word) for word in command], stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    if check and completed.returncode != 0:
        raise Failure("%s exited %d: %s" % (" ".join(str(w) for w in command), completed.returncode,
                                            completed.stderr.decode()))
    return completed.returncode, completed.stdout.decode(), completed.stderr.decode()


def tolvar(arguments, *words):
    return run([arguments.cli] + list(words))


def expect(arguments, code, stdout_lines, stderr_lines, *words):
    got = tolvar(arguments, *words)
    label = "tolvar " + " ".join(str(word) for word in words)
    if got[0] != code:
        raise Failure("%s: exit %d, expected %d\n%s%s" % (label, got[0], code, got[1], got[2]))
    if stdout_lines is not None and got[1].splitlines() != stdout_lines:
        raise Failure("%s: stdout %r, expected %r" % (label, got[1].splitlines(), stdout_lines))
    if stderr_lines is not None and got[2].splitlines() != stderr_lines:
        raise Failure("%s: stderr %r, expected %r" % (label, got[2].splitlines(), stderr_lines))
    return got


def read(path):
    with open(path, "rb") as handle:
        return handle.read()


def without_volume(text):
    report = json.loads(text)
    report.pop("volume", None)
    return report


def shadow_copies(listing):
    """The shadow copies a list --json gives: of the volume, or of the one partition of a disk that has them."""
    if "partitions" not in listing:
        return listing["shadow_copies"]
    found = [p["shadow_copies"] for p in listing["partitions"] if p["shadow_copies"] is not None]
    if len(found) != 1:
        raise Failure("a disk listing with %d partitions with shadow copies" % len(found))
    return found[0]


class Outputs:
    """What every command prints for one volume, less the volume's own name."""

    def __init__(self, arguments, words, older, newer, path, work, stem):
        self.words = words
        self.stderr = []
        self.list = shadow_copies(self.run_json(arguments, "list", *words, "--json"))
        self.diff = {}
        self.increments = {}
        for block_size in BLOCK_SIZES:
            self.diff[block_size] = self.run_json(arguments, "diff", *words[:1], older, newer, *words[1:],
                                                  "--block-size", block_size, "--json")
            increment = os.path.join(work, "%s.%d.increment" % (stem, block_size))
            self.run_text(arguments, "backup", *words[:1], older, newer, increment, *words[1:], "--block-size",
                          block_size)
            self.increments[block_size] = read(increment)
            os.remove(increment)
        self.filemap = self.run_text(arguments, "filemap", *words[:1], older, newer, path, *words[1:])

    def run_text(self, arguments, *words):
        code, out, err = tolvar(arguments, *words)
        if code != 0:
            raise Failure("tolvar %s exited %d: %s" % (" ".join(str(w) for w in words), code, err))
        self.stderr.append(err)
        return out

    def run_json(self, arguments, *words):
        return without_volume(self.run_text(arguments, *words))

    def differences(self, other):
        found = []
        for field in ("list", "diff", "increments", "filemap"):
            if getattr(self, field) != getattr(other, field):
                found.append(field)
        return found


def compare_all(arguments, reference, variants, older, newer, path, work):
    for words in variants:
        got = Outputs(arguments, words, older, newer, path, work, "variant")
        differ = got.differences(reference)
        if differ:
            raise Failure("%s: %s differ from the plain volume's" % (" ".join(words), ", ".join(differ)))
        print("same list, diff, backup and filemap as the plain volume: %s" % " ".join(words))


def check_windows_disk(arguments):
    if not os.path.exists(arguments.disk):
        print("SKIP: %s is absent (the store tests' fixture unpacks it)" % arguments.disk)
        sys.exit(SKIP)
    os.makedirs(arguments.work, exist_ok=True)
    volume = os.path.join(arguments.work, "windows10.volume")
    subprocess.run([sys.executable, arguments.extract, arguments.disk, str(WINDOWS_OFFSET), str(WINDOWS_LENGTH),
                    volume], check=True)
    disk = arguments.disk
    reference = Outputs(arguments, [volume], WINDOWS_OLDER, WINDOWS_NEWER, WINDOWS_FILE, arguments.work, "plain")
    compare_all(arguments, reference, [[disk], [disk, "--partition", "1"], [disk, "--offset", str(WINDOWS_OFFSET)],
                                       [disk + "@partition=1"], [disk + "@offset=%d" % WINDOWS_OFFSET]],
                WINDOWS_OLDER, WINDOWS_NEWER, WINDOWS_FILE, arguments.work)
    # Auto-selection says which partition it took.
    expect(arguments, 0, None, ["tolvar: using partition 1 of %s (MBR, bytes %d to %d), the one with shadow copies"
                                % (disk, WINDOWS_OFFSET, WINDOWS_OFFSET + WINDOWS_LENGTH)],
           "diff", disk, WINDOWS_OLDER, WINDOWS_NEWER)
    # list on the disk: the partition table as mmls reads it, then the shadow copies.
    _, text, _ = expect(arguments, 0, None, [], "list", disk, "--json")
    listing = json.loads(text)
    check_against_mmls(disk, listing)
    copies = listing["partitions"][0]["shadow_copies"]
    if [copy["shadow_copy_id"] for copy in copies] != [WINDOWS_OLDER, WINDOWS_NEWER]:
        raise Failure("list on the disk gave %r" % copies)
    check_against_vshadowinfo(disk, WINDOWS_OFFSET, copies)
    _, table, _ = expect(arguments, 0, None, [], "list", disk)
    print(table, end="")
    # Wrong picks: one line naming the problem, exit 6.
    expect(arguments, 6, [], ["tolvar: error 1: %s: partition 2 does not exist: the MBR disk has partition 1" % disk],
           "list", disk, "--partition", "2")
    expect(arguments, 6, [], ["tolvar: error 1: %s: no NTFS volume starts at byte offset 4096" % disk],
           "diff", disk, WINDOWS_OLDER, WINDOWS_NEWER, "--offset", "4096")
    expect(arguments, 6, [], ["tolvar: error 1: %s: offset 99999999999999 is past the end of the image "
                              "(68719476736 bytes)" % disk], "list", disk + "@offset=99999999999999")
    expect(arguments, 1, [], ["tolvar: give either --partition or --offset, not both"],
           "list", disk, "--partition", "1", "--offset", "0")
    expect(arguments, 1, [], ["tolvar: --partition takes a number (decimal), not 'one'"],
           "list", disk, "--partition", "one")


def check_against_mmls(disk, listing, sector_offset=0):
    """The partitions that list reports are the ones mmls finds, by start and length."""
    _, out, _ = run(["mmls", disk], check=True)
    found = []
    for line in out.splitlines():
        fields = line.split()
        if len(fields) >= 5 and fields[0].endswith(":") and fields[1] not in ("Meta", "-------"):
            start, length = int(fields[2]), int(fields[4])
            if "Extended" in line:
                continue
            found.append((start * SECTOR, length * SECTOR))
    listed = [(p["start"], p["length"]) for p in listing["partitions"] if not p["type_name"] == "extended"]
    if sorted(found) != sorted(listed):
        raise Failure("list found partitions %r, mmls %r" % (listed, found))


def check_against_vshadowinfo(disk, offset, copies):
    _, out, _ = run(["vshadowinfo", "-o", str(offset), disk], check=True)
    flags = [int(line.split(":")[1], 16) for line in out.splitlines() if "Attribute flags" in line]
    times = [line.split(":", 1)[1].strip() for line in out.splitlines() if "Creation time" in line]
    if flags != [copy["attribute_flags"] for copy in copies]:
        raise Failure("attribute flags %r, vshadowinfo %r" % ([c["attribute_flags"] for c in copies], flags))
    import datetime
    for copy, shown in zip(copies, times):
        # vshadowinfo: "Jul 25, 2020 12:26:04.398924700 UTC"
        stamp, fraction = shown.replace(" UTC", "").split(".")
        expected = datetime.datetime.strptime(stamp, "%b %d, %Y %H:%M:%S").strftime("%Y-%m-%dT%H:%M:%S")
        if copy["created"] != "%s.%sZ" % (expected, fraction[:7]):
            raise Failure("creation time %s, vshadowinfo %s" % (copy["created"], shown))
    if len(times) != len(copies):
        raise Failure("vshadowinfo lists %d stores, list %d" % (len(times), len(copies)))


def build_volume(arguments):
    os.makedirs(arguments.work, exist_ok=True)
    prefix = os.path.join(arguments.work, "default")
    environment = dict(os.environ)
    environment.pop("LD_PRELOAD", None)
    completed = subprocess.run([arguments.tool, "build", "default", "-o", prefix], env=environment)
    if completed.returncode == SKIP:
        print("SKIP: the image builder cannot make images on this machine")
        sys.exit(SKIP)
    if completed.returncode != 0:
        raise Failure("the image builder failed with %d" % completed.returncode)
    with open(prefix + ".manifest.json") as handle:
        return prefix + ".img", json.load(handle)


def release_zero_ranges(path):
    """Gives the disk space of a written image's all-zero ranges back; it reads the same."""
    subprocess.run(["fallocate", "--dig-holes", path], check=False, stderr=subprocess.DEVNULL)


def place(disk, volume, offset):
    with open(volume, "rb") as source, open(disk, "r+b") as target:
        target.seek(offset)
        shutil.copyfileobj(source, target, 1 << 20)
    release_zero_ranges(disk)


def make_mbr_disk(work, volume):
    """The volume in logical partition 5 of an MBR disk, behind a Linux partition."""
    sectors = os.path.getsize(volume) // SECTOR
    disk = os.path.join(work, "mbr.disk")
    logical_start = 2048 + 8192 + 2048
    with open(disk, "wb") as handle:
        handle.truncate((logical_start + sectors + 4096) * SECTOR)
    script = ("label: dos\nunit: sectors\n\nstart=2048, size=8192, type=83\n"
              "start=10240, size=%d, type=5\nstart=%d, size=%d, type=7\n"
              % (sectors + 2048 + 2048, logical_start, sectors))
    completed = subprocess.run(["sfdisk", "--no-reread", "--no-tell-kernel", "-q", disk], input=script.encode(),
                               stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    if completed.returncode != 0:
        raise Failure("sfdisk failed: %s" % completed.stderr.decode())
    place(disk, volume, logical_start * SECTOR)
    return disk, 5, logical_start * SECTOR


def make_gpt_disk(work, volume):
    """A plain NTFS volume without store in GPT partition 1, the volume in partition 2."""
    sectors = os.path.getsize(volume) // SECTOR
    plain = os.path.join(work, "plain.ntfs")
    with open(plain, "wb") as handle:
        handle.truncate(16 << 20)
    run(["mkntfs", "-F", "-Q", "-q", "-T", plain], check=True)
    disk = os.path.join(work, "gpt.disk")
    second = 2048 + (16 << 20) // SECTOR
    with open(disk, "wb") as handle:
        handle.truncate((second + sectors + 2048) * SECTOR)
    run(["sgdisk", "-n", "1:2048:+%d" % ((16 << 20) // SECTOR), "-t", "1:0700",
         "-n", "2:%d:+%d" % (second, sectors), "-t", "2:0700", disk], check=True)
    place(disk, plain, 2048 * SECTOR)
    place(disk, volume, second * SECTOR)
    return disk, 2, second * SECTOR


def containers(work, disk):
    """The disk converted into every container the libraries read: (label, the name to open)."""
    stem = os.path.join(work, os.path.basename(disk))
    made = []
    for label, options, name in (("qcow2", ["-O", "qcow2"], stem + ".qcow2"),
                                 ("qcow2 v2", ["-O", "qcow2", "-o", "compat=0.10"], stem + ".v2.qcow2"),
                                 ("VHD", ["-O", "vpc"], stem + ".vhd"),
                                 ("VHDX", ["-O", "vhdx"], stem + ".vhdx"),
                                 ("VMDK monolithic sparse", ["-O", "vmdk", "-o", "subformat=monolithicSparse"],
                                  stem + ".sparse.vmdk"),
                                 ("VMDK monolithic flat", ["-O", "vmdk", "-o", "subformat=monolithicFlat"],
                                  stem + ".flat.vmdk"),
                                 ("VMDK split sparse", ["-O", "vmdk", "-o", "subformat=twoGbMaxExtentSparse"],
                                  stem + ".split.vmdk")):
        run(["qemu-img", "convert"] + options + [disk, name], check=True)
        made.append((label, name))
    # EWF in segments of 32 MiB, uncompressed so that the disk needs several.
    ewf = stem + ".ewf"
    run(["ewfacquire", "-u", "-q", "-c", "none", "-S", "32MiB", "-t", ewf, disk], check=True)
    if not os.path.exists(ewf + ".E02"):
        raise Failure("ewfacquire made one segment only; the split set is not tested")
    made.append(("EWF E01 in segments", ewf + ".E01"))
    # Split raw: NAME.001, NAME.002, ...
    run(["split", "-b", "30M", "-d", "-a", "3", "--numeric-suffixes=1", disk, stem + ".raw."], check=True)
    made.append(("split raw", stem + ".raw.001"))
    return made


def remove_containers(work, disk):
    stem = os.path.basename(disk)
    for name in os.listdir(work):
        if name.startswith(stem + "."):
            os.remove(os.path.join(work, name))


def check_wrapped(arguments):
    volume, manifest = build_volume(arguments)
    snapshots = manifest["snapshots"]
    older, newer = snapshots[0]["shadow_copy_id"], snapshots[-1]["shadow_copy_id"]
    path = "/documents/report.txt"
    reference = Outputs(arguments, [volume], older, newer, path, arguments.work, "plain")
    # A file whose name holds a suffix is that file, not a partition of another.
    odd = volume + "@partition=1"
    if os.path.exists(odd):
        os.remove(odd)
    os.link(volume, odd)
    compare_all(arguments, reference, [[odd]], older, newer, path, arguments.work)
    os.remove(odd)
    for maker in (make_mbr_disk, make_gpt_disk):
        disk, number, offset = maker(arguments.work, volume)
        _, text, _ = expect(arguments, 0, None, [], "list", disk, "--json")
        listing = json.loads(text)
        check_against_mmls(disk, listing)
        ntfs = [p["number"] for p in listing["partitions"] if p["ntfs"]]
        with_store = [p["number"] for p in listing["partitions"] if p["shadow_copies"] is not None]
        if with_store != [number] or number not in ntfs:
            raise Failure("%s: NTFS partitions %r, with a store %r; expected the store in %d"
                          % (disk, ntfs, with_store, number))
        listed = [p for p in listing["partitions"] if p["number"] == number][0]["shadow_copies"]
        if [c["shadow_copy_id"] for c in listed] != \
                [s["shadow_copy_id"] for s in sorted(snapshots, key=lambda s: s["creation_order"])]:
            raise Failure("%s: list gave other shadow copies than the manifest's" % disk)
        compare_all(arguments, reference, [[disk], [disk, "--partition", str(number)],
                                           [disk, "--offset", str(offset)]], older, newer, path, arguments.work)
        if maker is make_gpt_disk:
            expect(arguments, 6, [], ["tolvar: %s@partition=1: the volume holds no shadow-copy store" % disk],
                   "diff", disk, older, newer, "--partition", "1")
        for label, name in containers(arguments.work, disk):
            _, text, _ = expect(arguments, 0, None, [], "list", name, "--json")
            if [(p["number"], p["start"], p["length"]) for p in json.loads(text)["partitions"]] != \
                    [(p["number"], p["start"], p["length"]) for p in listing["partitions"]]:
                raise Failure("%s: the partition table differs from the plain disk's" % label)
            compare_all(arguments, reference, [[name], [name, "--partition", str(number)]], older, newer, path,
                        arguments.work)
        remove_containers(arguments.work, disk)
        os.remove(disk)


def check_damaged(arguments):
    volume, manifest = build_volume(arguments)
    disk, _, _ = make_gpt_disk(arguments.work, volume)
    pristine = read(disk)

    def damaged(name, change):
        path = os.path.join(arguments.work, name)
        with open(path, "wb") as handle:
            handle.write(pristine)
        with open(path, "r+b") as handle:
            change(handle)
        release_zero_ranges(path)
        return path

    def flip(offset):
        def change(handle):
            handle.seek(offset)
            byte = handle.read(1)[0]
            handle.seek(offset)
            handle.write(bytes([byte ^ 0xFF]))
        return change

    bad_header = damaged("bad-header.disk", flip(SECTOR + 24))
    bad_entries = damaged("bad-entries.disk", flip(2 * SECTOR + 40))
    for path, problem in ((bad_header, "the GPT header at byte 512 fails its CRC-32 check"),
                          (bad_entries, "the GPT entry array at byte 1024 fails its CRC-32 check")):
        expect(arguments, 6, [], ["tolvar: %s: damaged partition table: %s" % (path, problem)], "list", path)
        expect(arguments, 6, [], ["tolvar: error 1: %s: damaged partition table: %s" % (path, problem)],
               "list", path, "--partition", "2")
        # The offset still reaches the volume without the table.
        expect(arguments, 0, None, [], "list", path, "--offset", str((2048 + (16 << 20) // SECTOR) * SECTOR))
    # The disk cut short inside partition 2: listed, marked, refused when picked.
    cut = damaged("cut.disk", lambda handle: handle.truncate(len(pristine) - (8 << 20)))
    _, text, _ = expect(arguments, 0, None, [], "list", cut, "--json")
    marks = [p["past_end"] for p in json.loads(text)["partitions"]]
    if marks != [False, True]:
        raise Failure("the cut disk lists past_end %r" % marks)
    expect(arguments, 6, [], None, "list", cut, "--partition", "2")
    _, _, err = tolvar(arguments, "list", cut, "--partition", "2")
    if "partition 2 ends at byte" not in err or "past the end of the image" not in err:
        raise Failure("the cut disk: %r" % err)
    # Damaged containers: a missing EWF segment, a qcow2 cut inside its tables.
    made = dict(containers(arguments.work, disk))
    ewf = made["EWF E01 in segments"]
    os.remove(ewf[:-4] + ".E02")
    expect(arguments, 6, [], ["tolvar: error 1: %s: the EWF segment files are damaged or incomplete" % ewf],
           "list", ewf)
    expect(arguments, 6, [], ["tolvar: error 1: %s: the EWF segment files are damaged or incomplete" % ewf],
           "diff", ewf, "a", "b", "--partition", "2")
    qcow = made["qcow2"]
    with open(qcow, "r+b") as handle:
        handle.truncate(200000)
    expect(arguments, 6, [], ["tolvar: error 1: %s: the disk inside the image cannot be read from its start: the "
                              "image is truncated or damaged" % qcow], "list", qcow)
    with open(qcow, "r+b") as handle:
        handle.truncate(100)
    _, _, err = expect(arguments, 6, [], None, "list", qcow)
    if not err.startswith("tolvar: error 1: %s: cannot open the qcow image: " % qcow) or len(err.splitlines()) != 1:
        raise Failure("a qcow2 cut inside its header: %r" % err)
    # Not a disk image: said so.
    packed = os.path.join(arguments.work, "disk.gz")
    run(["sh", "-c", "head -c 65536 %s | gzip > %s" % (disk, packed)], check=True)
    expect(arguments, 6, [], ["tolvar: error 1: %s: a gzip-compressed file, not a disk image: unpack it first" % packed],
           "list", packed)
    print("damaged partition tables and containers: one line, exit 6, no crash")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--cli", required=True)
    parser.add_argument("--work", required=True)
    commands = parser.add_subparsers(dest="check", required=True)
    windows = commands.add_parser("windows-disk")
    windows.add_argument("--disk", required=True)
    windows.add_argument("--extract", required=True)
    for name in ("wrapped", "damaged"):
        commands.add_parser(name).add_argument("--tool", required=True)
    arguments = parser.parse_args()
    checks = {"windows-disk": check_windows_disk, "wrapped": check_wrapped, "damaged": check_damaged}
    try:
        checks[arguments.check](arguments)
    except Failure as failure:
        print("FAIL: %s" % failure)
        sys.exit(1)


if __name__ == "__main__":
    main()
