#!/usr/bin/python3
"""tolvar ls, cat and changes end to end, against The Sleuth Kit on images of
the shadow copies:
  - `ls -r -l` lists what `fls -r -p -u` lists (names, MFT records, named data
    streams);
  - `cat` gives what `icat` gives for every regular file and named data stream
    (compressed and sparse ones included), also with the path in other case;
  - `changes` (--json, and --content) equals a reference worked out from
    `fls`, `istat` and `icat` on both images, with every file whose content,
    size or name changed in the --content list; --csv has the same rows;
    --bodyfile goes through `mactime`;
  - failures: a path not in the snapshot, a directory given to cat, a damaged
    MFT record (named on stderr, the listing goes on).

    check_snapshot_files.py --cli TOLVAR --work DIR built --tool MKVSSIMAGE --scenario NAME
    check_snapshot_files.py --cli TOLVAR --work DIR windows --disk RAW

`built` makes a scenario's images with the image builder and reads the captured
snapshot images; `windows` takes the Windows 10 test disk whole and reads its
shadow copies through vshadowmount.
Exits 77 when the images cannot be made or read here."""
import argparse
import csv
import hashlib
import io
import json
import os
import re
import shutil
import subprocess
import sys

SKIP = 77
STORE_FOLDER = "System Volume Information"
TIME_FIELDS = ("created", "modified", "mft_modified", "accessed")
ISTAT_TIMES = ("Created", "File Modified", "MFT Modified", "Accessed")


class Failure(Exception):
    pass


def copy_image(source, target):
    """Copies an image keeping its holes (and making holes of its zero ranges)."""
    subprocess.run(["cp", "--sparse=always", source, target], check=True)


def environment():
    env = dict(os.environ)
    env.pop("LD_PRELOAD", None)
    env["TZ"] = "UTC"
    return env


def run(args, check=True):
    completed = subprocess.run(args, stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=environment())
    if check and completed.returncode != 0:
        raise Failure("%s exited %d: %s" % (" ".join(args), completed.returncode, completed.stderr.decode()[-500:]))
    return completed


class Image:
    """One snapshot as an NTFS image, read with The Sleuth Kit."""

    def __init__(self, path):
        self.path = path
        self._istat = {}
        self._hashes = {}
        self.entries = self._fls()

    def _fls(self):
        """(path, record, type, attribute id, stream name or None, is directory) per fls line."""
        entries = []
        text = run(["fls", "-r", "-p", "-u", self.path]).stdout.decode("utf-8", "replace")
        for line in text.splitlines():
            m = re.match(r"(\S)/(\S) (?:\* )?(\d+)(?:-(\d+)-(\d+))?:\t(.*)$", line)
            if not m or m.group(1) == "V":
                continue
            name = m.group(6)
            stream = None
            base = name
            last = name.rsplit("/", 1)[-1]
            if ":" in last:
                base = name[: len(name) - len(last)] + last.split(":", 1)[0]
                stream = last.split(":", 1)[1]
            entries.append({"path": name, "base": base, "record": int(m.group(3)),
                            "type": int(m.group(4) or 0), "id": int(m.group(5) or 0),
                            "stream": stream, "directory": m.group(1) == "d"})
        return entries

    def istat(self, record):
        if record not in self._istat:
            self._istat[record] = run(["istat", self.path, str(record)]).stdout.decode("utf-8", "replace")
        return self._istat[record]

    def icat(self, address):
        return run(["icat", self.path, address]).stdout

    def content_hash(self, record):
        if record not in self._hashes:
            self._hashes[record] = hashlib.sha256(self.icat(str(record))).hexdigest()
        return self._hashes[record]


def parse_istat(text):
    """What the reference compares, from istat's text."""
    info = {"sequence": int(re.search(r"Entry: \d+\s+Sequence: (\d+)", text).group(1)), "names": set(),
            "times": {}, "flags": None, "size": None, "resident": None, "runs": None, "data_id": None}
    section = None
    lines = text.splitlines()
    for i, line in enumerate(lines):
        if line.startswith("$STANDARD_INFORMATION"):
            section = "si"
        elif line.startswith("$FILE_NAME"):
            section = "fn"
            info["names"].add(None)
        elif line.startswith("Attributes:"):
            section = "attr"
        elif section == "si":
            m = re.match(r"(Created|File Modified|MFT Modified|Accessed):\t(.*) \(UTC\)", line)
            if m:
                info["times"][m.group(1)] = m.group(2)
            if line.startswith("Flags:"):
                info["flags"] = line
        elif section == "fn":
            if line.startswith("Name: "):
                current_name = line[6:]
            m = re.match(r"Parent MFT Entry: (\d+)", line)
            if m:
                info["names"].discard(None)
                info["names"].add((int(m.group(1)), current_name))
        elif section == "attr":
            m = re.match(r"Type: \$DATA \(128-(\d+)\)\s+Name: N/A\s+(Non-Resident|Resident)(?:, [A-Za-z, ]+)?\s+size: (\d+)", line)
            if m and info["size"] is None:
                info["data_id"] = int(m.group(1))
                info["resident"] = m.group(2) == "Resident"
                info["size"] = int(m.group(3))
                runs = []
                for follow in lines[i + 1:]:
                    if not re.match(r"^[\d ]+$", follow):
                        break
                    runs.extend(int(x) for x in follow.split())
                info["runs"] = runs
    return info


RECORD_SIZE = 1024


def changed_records(older, newer):
    """The records whose bytes differ between the two images' $MFT (icat 0)."""
    a, b = older.icat("0"), newer.icat("0")
    count = max(len(a), len(b)) // RECORD_SIZE
    return {r for r in range(count) if a[r * RECORD_SIZE:(r + 1) * RECORD_SIZE] != b[r * RECORD_SIZE:(r + 1) * RECORD_SIZE]}


def content_candidates(older, newer):
    """The records of the newer image that own a cluster whose bytes differ
    between the images (ifind -d): only their data can have changed without
    their MFT record changing."""
    cluster = int(re.search(r"Cluster Size: (\d+)", run(["fsstat", newer.path]).stdout.decode()).group(1))
    # Only a cluster in use in the newer image has an owner to find; the
    # others are not read (a 64 GiB volume holds little data).
    in_use = newer.icat("6")
    records = set()
    with open(older.path, "rb") as a, open(newer.path, "rb") as b:
        for index in (i for i in range(len(in_use) * 8) if in_use[i // 8] >> (i % 8) & 1):
            a.seek(index * cluster)
            b.seek(index * cluster)
            if a.read(cluster) != b.read(cluster):
                found = run(["ifind", "-d", str(index), newer.path], check=False).stdout.decode().strip()
                m = re.match(r"(\d+)", found)
                if m:
                    records.add(int(m.group(1)))
    return records


def reference(older, newer, content):
    """{(record, change): (path candidates, old path candidates)} from TSK:
    istat on both images for every record whose MFT entry differs, and icat
    content for the files whose clusters differ."""
    def table(image):
        records = {}
        for entry in image.entries:
            if entry["base"].startswith(STORE_FOLDER + "/"):
                continue
            records.setdefault(entry["record"], set()).add("/" + entry["base"])
        records.setdefault(5, set()).add("/")
        return records
    old_records, new_records = table(older), table(newer)
    raw = changed_records(older, newer)
    touched = content_candidates(older, newer) if content else set()
    result = {}
    for record in sorted(set(old_records) | set(new_records)):
        if record not in raw:
            if record in touched and record in old_records and record in new_records:
                if content_hash(older, record) != content_hash(newer, record):
                    result[(record, "modified")] = (new_records[record], old_records[record])
            continue
        was, now = None, None
        if record in old_records:
            was = parse_istat(older.istat(record))
        if record in new_records:
            now = parse_istat(newer.istat(record))
        if was and now and was["sequence"] == now["sequence"]:
            data_changed = (was["size"] != now["size"] or was["resident"] != now["resident"]
                            or (not now["resident"] and was["runs"] != now["runs"]))
            if not data_changed and now["size"] is not None and (now["resident"] or record in touched):
                data_changed = content_hash(older, record) != content_hash(newer, record)
            if data_changed:
                kind = "modified"
            elif was["names"] != now["names"]:
                kind = "renamed"
            elif was["times"] != now["times"] or was["flags"] != now["flags"]:
                kind = "metadata"
            else:
                continue
            result[(record, kind)] = (new_records[record], old_records[record])
            continue
        if was:
            result[(record, "deleted")] = (old_records[record], None)
        if now:
            result[(record, "added")] = (new_records[record], None)
    return result


def content_hash(image, record):
    return image.content_hash(record)


def tolvar(cli, *args, check=True):
    return run([cli] + list(args), check=check)


def check_ls(cli, volume, snapshot, image):
    out = tolvar(cli, "ls", volume, snapshot, "-r", "-l").stdout.decode("utf-8")
    mine = set()
    for line in out.splitlines():
        kind, address, size, when, name = line.split(" ", 4)
        mine.add((name.rstrip("/"), int(address.split("-")[0])))
    theirs = set()
    for entry in image.entries:
        # Named index streams ($O, $Q, $SDH...) are not data streams: ls names
        # the file itself; fls lists only its index streams.
        if entry["stream"] is not None and entry["type"] != 128:
            theirs.add((entry["base"], entry["record"]))
            continue
        theirs.add((entry["path"], entry["record"]))
        theirs.add((entry["base"], entry["record"]))
    missing, extra = theirs - mine, mine - theirs
    if missing or extra:
        raise Failure("ls differs from fls: missing %s, extra %s" % (sorted(missing)[:10], sorted(extra)[:10]))
    print("ls: %d names equal fls's" % len(mine))


# Data streams checked per directory (the scenarios' generated trees hold
# thousands of alike small files).
PER_DIRECTORY = 40
# Paths checked also in upper and lower case.
CASE_SAMPLE = 15


def check_cat(cli, volume, snapshot, image):
    count = 0
    per_directory = {}
    for entry in image.entries:
        directory = entry["base"].rsplit("/", 1)[0] if "/" in entry["base"] else ""
        if per_directory.get(directory, 0) >= PER_DIRECTORY:
            continue
        if entry["directory"] or entry["type"] != 128 or entry["base"].startswith(STORE_FOLDER + "/"):
            continue
        # icat gives nothing for $BadClus:$Bad, a sparse stream of the volume's
        # size; the parser's run lists mark a sparse run by volume offset 0, so
        # the run of $Boot, which starts at cluster 0, reads as zeros.
        if entry["path"] in ("$BadClus:$Bad", "$Boot"):
            continue
        path = "/" + entry["path"]
        address = "%d-128-%d" % (entry["record"], entry["id"])
        expected = image.icat(address)
        for asked in (path, path.upper(), path.lower()) if count < CASE_SAMPLE else (path,):
            got = tolvar(cli, "cat", volume, snapshot, asked).stdout
            if got != expected:
                raise Failure("cat %s: %d bytes differ from icat %s (%d bytes)" % (asked, len(got), address, len(expected)))
        count += 1
        per_directory[directory] = per_directory.get(directory, 0) + 1
    print("cat: %d data streams equal icat's (%d also in other case)" % (count, min(count, CASE_SAMPLE)))


def check_changes(cli, volume, older_id, newer_id, older, newer, body_path=None):
    for content in (False, True):
        flags = ["--content"] if content else []
        document = json.loads(tolvar(cli, "changes", volume, older_id, newer_id, "--json", *flags).stdout)
        mine = {}
        for change in document["changes"]:
            if change["path"].startswith("/" + STORE_FOLDER + "/"):
                continue
            mine[(change["record"], change["change"])] = change
            for field in TIME_FIELDS:
                for key in (field, "old_" + field):
                    value = change[key]
                    if value is not None and not re.match(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{7}Z$", value):
                        raise Failure("%s of record %d is not ISO 8601 UTC: %s" % (key, change["record"], value))
        expected = reference(older, newer, content)
        # $MFT, $MFTMirr, $Bitmap, $LogFile and the like change with every step;
        # the reference sees them as the command does.
        if set(mine) != set(expected):
            raise Failure("changes%s: missing %s, extra %s" % (" --content" if content else "",
                                                              sorted(set(expected) - set(mine)), sorted(set(mine) - set(expected))))
        for key, change in mine.items():
            paths, old_paths = expected[key]
            if change["path"] not in paths:
                raise Failure("record %d: path %s not among %s" % (key[0], change["path"], paths))
            if key[1] == "renamed" and change["old_path"] not in old_paths:
                raise Failure("record %d: old path %s not among %s" % (key[0], change["old_path"], old_paths))
            if key[1] != "renamed" and "old_path" in change:
                raise Failure("record %d: old_path on a %s file" % (key[0], key[1]))
        if content:
            check_nothing_missed(mine, older, newer)
        print("changes%s: %d changes equal the reference from fls, istat and icat" % (" --content" if content else "", len(mine)))
    rows = list(csv.DictReader(io.StringIO(tolvar(cli, "changes", volume, older_id, newer_id, "--csv").stdout.decode())))
    plain = json.loads(tolvar(cli, "changes", volume, older_id, newer_id, "--json").stdout)["changes"]
    if [(r["change"], r["path"], int(r["record"])) for r in rows] != [(c["change"], c["path"], c["record"]) for c in plain]:
        raise Failure("--csv rows differ from --json's changes")
    body = tolvar(cli, "changes", volume, older_id, newer_id, "--bodyfile").stdout
    body_path = body_path or os.path.join(os.path.dirname(older.path), "changes.body")
    with open(body_path, "wb") as handle:
        handle.write(body)
    timeline = run(["mactime", "-b", body_path, "-z", "UTC", "-d"]).stdout.decode("utf-8", "replace")
    for change in plain:
        # mactime leaves out an entry without any time set (NTFS's own files
        # carry 1601-01-01, FILETIME 0).
        when = [change[f] for f in TIME_FIELDS if change[f] is not None or change["old_" + f] is not None]
        if all(w is None or w.startswith("1601-01-01T00:00:00.") for w in when):
            continue
        if change["path"] not in timeline:
            raise Failure("mactime's timeline lacks %s" % change["path"])
    print("bodyfile: mactime puts all %d changes on its timeline" % len(plain))


def check_nothing_missed(mine, older, newer):
    """Every file whose content, size or name differs is in the --content
    list. Content can differ only where the MFT entry (resident values, runs)
    or the file's clusters differ, so those files are the ones hashed."""
    def names(image):
        table = {}
        for entry in image.entries:
            if entry["stream"] is None and not entry["directory"] and not entry["base"].startswith(STORE_FOLDER):
                table.setdefault(entry["record"], set()).add(entry["base"])
        return table
    old_names, new_names = names(older), names(newer)
    suspects = changed_records(older, newer) | content_candidates(older, newer)
    reported = {record for record, _ in mine}
    for record, paths in new_names.items():
        if record not in old_names or paths != old_names[record]:
            changed = True
        elif record in suspects:
            changed = content_hash(older, record) != content_hash(newer, record)
        else:
            changed = False
        if changed and record not in reported:
            raise Failure("record %d (%s) changed but is not listed" % (record, sorted(paths)))
    for record in old_names:
        if record not in new_names and record not in reported:
            raise Failure("record %d was deleted but is not listed" % record)


def check_any_case(cli, volume, older_id, newer_id, image):
    """filemap and --exclude find files given in other case, as in lower case."""
    files = [e for e in image.entries if e["stream"] is None and not e["directory"] and e["type"] == 128
             and not e["path"].startswith("$") and not e["path"].startswith(STORE_FOLDER)][:6]
    for entry in files:
        lower, upper = "/" + entry["path"].lower(), "/" + entry["path"].upper()
        given = tolvar(cli, "filemap", volume, older_id, newer_id, upper).stdout
        if given != tolvar(cli, "filemap", volume, older_id, newer_id, lower).stdout:
            raise Failure("filemap %s differs from filemap %s" % (upper, lower))
    args_upper = sum((["--exclude", "/" + e["path"].upper()] for e in files), [])
    args_lower = sum((["--exclude", "/" + e["path"].lower()] for e in files), [])
    upper = tolvar(cli, "diff", volume, older_id, newer_id, "--json", *args_upper).stdout
    if upper != tolvar(cli, "diff", volume, older_id, newer_id, "--json", *args_lower).stdout:
        raise Failure("diff --exclude in upper case differs from lower case")
    print("any case: filemap and --exclude of %d files in upper case equal lower case" % len(files))


def check_failures(cli, volume, snapshot, image, work):
    completed = tolvar(cli, "cat", volume, snapshot, "/no/such/file.txt", check=False)
    expect(completed, 8, "tolvar: no such file or directory in this snapshot: /no/such/file.txt\n")
    directory = next(e for e in image.entries if e["directory"] and "/" not in e["path"] and not e["path"].startswith("$"))
    completed = tolvar(cli, "cat", volume, snapshot, "/" + directory["path"], check=False)
    expect(completed, 8, "tolvar: is a directory: /%s\n" % directory["path"])
    completed = tolvar(cli, "ls", volume, snapshot, "/no-such-dir", check=False)
    expect(completed, 8, "tolvar: no such file or directory in this snapshot: /no-such-dir\n")
    completed = tolvar(cli, "ls", volume, "00000000-0000-0000-0000-000000000001", check=False)
    if completed.returncode != 2 or b"no shadow copy 00000000-0000-0000-0000-000000000001" not in completed.stderr:
        raise Failure("ls of an unknown snapshot: exit %d, %s" % (completed.returncode, completed.stderr))
    print("failures: missing path, directory to cat and unknown snapshot give their messages and codes")


def expect(completed, code, stderr):
    if completed.returncode != code or completed.stderr.decode() != stderr:
        raise Failure("expected exit %d and %r, got %d and %r" % (code, stderr, completed.returncode, completed.stderr.decode()))


def check_damaged(cli, volume, snapshot, image, work, kept_blocks):
    """A record damaged in the newest snapshot is named, and the rest is
    listed. The record is damaged in the volume image, in a block the newest
    snapshot's store does not keep (so the snapshot reads it from the volume)."""
    cluster_size = int(re.search(r"Cluster Size: (\d+)", run(["fsstat", image.path]).stdout.decode()).group(1))
    runs = [(int(a) * cluster_size, int(n) * cluster_size) for a, n in
            re.findall(r"Starting address: (\d+), length: (\d+)", run(["istat", "-r", image.path, "0"]).stdout.decode())]

    def volume_offset(record):
        position = record * RECORD_SIZE
        for start, length in runs:
            if position < length:
                return start + position
            position -= length
        return None

    victim = None
    for entry in image.entries:
        if entry["stream"] is None and not entry["directory"] and not entry["path"].startswith("$") \
                and "/" not in entry["path"]:
            offset = volume_offset(entry["record"])
            if offset is not None and offset // 16384 * 16384 not in kept_blocks:
                victim, victim_offset = entry, offset
                break
    if victim is None:
        raise Failure("no root file lies in a block the newest store does not keep")
    damaged = os.path.join(work, "damaged.img")
    copy_image(volume, damaged)
    with open(damaged, "r+b") as handle:
        handle.seek(victim_offset)
        handle.write(b"XXXX")
    completed = tolvar(cli, "ls", damaged, snapshot, check=False)
    message = "tolvar: MFT record %d is damaged; left out of the listing\n" % victim["record"]
    if completed.returncode != 9 or completed.stderr.decode() != message:
        raise Failure("damaged record: exit %d, %r" % (completed.returncode, completed.stderr.decode()))
    listed = completed.stdout.decode().splitlines()
    if victim["path"] in listed or len(listed) < 3:
        raise Failure("damaged record: the listing is %s" % listed)
    print("damaged: record %d reported, %d names listed" % (victim["record"], len(listed)))


def built(args):
    os.makedirs(args.work, exist_ok=True)
    prefix = os.path.join(args.work, args.scenario)
    completed = subprocess.run([args.tool, "build", args.scenario, "-o", prefix], env=environment())
    if completed.returncode == SKIP:
        print("SKIP: the image builder cannot make images on this machine")
        return SKIP
    if completed.returncode != 0:
        raise Failure("the image builder failed with %d" % completed.returncode)
    with open(prefix + ".manifest.json") as handle:
        manifest = json.load(handle)
    volume = prefix + ".img"
    snapshots = manifest["snapshots"]
    images = [Image(os.path.join(args.work, s["image"])) for s in snapshots]
    for snapshot, image in zip(snapshots, images):
        check_ls(args.cli, volume, snapshot["shadow_copy_id"], image)
        check_cat(args.cli, volume, snapshot["shadow_copy_id"], image)
    for i in range(len(snapshots) - 1):
        check_changes(args.cli, volume, snapshots[i]["shadow_copy_id"], snapshots[i + 1]["shadow_copy_id"],
                      images[i], images[i + 1])
    check_any_case(args.cli, volume, snapshots[0]["shadow_copy_id"], snapshots[-1]["shadow_copy_id"], images[-1])
    check_failures(args.cli, volume, snapshots[-1]["shadow_copy_id"], images[-1], args.work)
    check_damaged(args.cli, volume, snapshots[-1]["shadow_copy_id"], images[-1], args.work,
                  set(snapshots[-1]["changed_block_offsets"]))
    return 0


# The Windows 10 test disk: its NTFS partition and two shadow copies.
WINDOWS_PARTITION_OFFSET = 1048576
WINDOWS_SNAPSHOTS = ("ec06abc4-bd2f-41cc-a817-921f2046080d", "d1229f1a-31d8-45de-8a72-0d6a3a1f59e8")


def windows(args):
    """The Windows 10 disk as it comes (a whole disk: the command picks the
    partition): each shadow copy read by The Sleuth Kit through libvshadow's
    own mount (vshadowmount), so that no 64 GiB copy is made."""
    if not os.path.exists(args.disk):
        print("SKIP: %s is absent (the store tests' fixture unpacks it)" % args.disk)
        return SKIP
    if not os.path.exists("/dev/fuse"):
        print("SKIP: FUSE is not available here (no /dev/fuse)")
        return SKIP
    for tool in ("vshadowmount", "fusermount3", "fls", "istat", "icat", "ifind", "mactime"):
        if shutil.which(tool) is None:
            print("SKIP: %s is not installed" % tool)
            return SKIP
    mount = os.path.join(args.work, "vshadowmount")
    os.makedirs(mount, exist_ok=True)
    if subprocess.run(["vshadowmount", "-o", str(WINDOWS_PARTITION_OFFSET), args.disk, mount],
                      stdout=subprocess.DEVNULL).returncode != 0:
        print("SKIP: vshadowmount cannot mount here")
        return SKIP
    try:
        images = [Image(os.path.join(mount, "vss%d" % number)) for number in (1, 2)]
        for snapshot, image in zip(WINDOWS_SNAPSHOTS, images):
            check_ls(args.cli, args.disk, snapshot, image)
            check_cat(args.cli, args.disk, snapshot, image)
        check_changes(args.cli, args.disk, WINDOWS_SNAPSHOTS[0], WINDOWS_SNAPSHOTS[1], images[0], images[1],
                      os.path.join(args.work, "changes.body"))
    finally:
        subprocess.run(["fusermount3", "-u", mount])
    return 0


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--cli", required=True)
    parser.add_argument("--work", required=True)
    sub = parser.add_subparsers(dest="mode", required=True)
    b = sub.add_parser("built")
    b.add_argument("--tool", required=True)
    b.add_argument("--scenario", required=True)
    w = sub.add_parser("windows")
    w.add_argument("--disk", required=True)
    args = parser.parse_args()
    try:
        return built(args) if args.mode == "built" else windows(args)
    except Failure as failure:
        print("FAIL: %s" % failure)
        return 1


if __name__ == "__main__":
    sys.exit(main())
