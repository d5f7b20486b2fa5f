#!/usr/bin/python3
"""Times `tolvar changes` against the full comparison of both MFTs, in the same run.

    changes_bench.py --cli TOLVAR --baseline CHANGES_BASELINE --tool MKVSSIMAGE [--data DIR] [--runs N] [--quick]

The input is made once by the image builder into DIR (build/bench-data) and kept:
a 4 GiB NTFS volume with 1,000 directories of 1,000 empty files (over 1,001,000
MFT records with the directories and system files), a shadow copy, then every
file of --changed-directories directories changed (appends, rewrites,
deletions, new files; 5: 0.5 % of the files), a second shadow copy. --quick:
100 x 1,000 files.

`tolvar changes FROM TO` finds the changes from the MFT records in the blocks
the stores mark changed; the baseline (`changes_baseline --full`) opens the same
two shadow copies the same way and compares every record of both MFTs. The
command is timed twice: with its table (kind, record, sizes and path of each
change: what the baseline prints, so the two do the same work) and with --json
(every change's eight times besides). All three report the same changes
(checked). Each figure is the median of --runs; peak
memory is the largest resident set of a run (GNU time's maximum resident set size)."""
import argparse
import json
import os
import statistics
import subprocess
import sys
import tempfile
import time

FULL = (1000, 1000)
QUICK = (100, 1000)


def scenario(directories, files, changed_directories):
    """The image builder's scenario: the files, a snapshot, every file of some directories changed, a snapshot.

    Files written together sit side by side in the MFT, and changes come in such groups
    (a folder rewritten, a build's output, a mailbox): here whole directories, spread over
    the MFT; five of the full input's are 0.5 % of its files."""
    first = [{"op": "many", "path": "d%04d" % number, "count": files, "size": 0} for number in range(directories)]
    changed = []
    for number in range(0, directories, directories // changed_directories)[:changed_directories]:
        folder = "d%04d" % number
        for entry in range(files):
            name = "%s/entry%05d.txt" % (folder, entry)
            kind = entry % 4
            if kind == 0:
                changed.append({"op": "append", "path": name, "size": 3000})
            elif kind == 1:
                changed.append({"op": "delete", "path": name})
            elif kind == 2:
                changed.append({"op": "write", "path": name, "size": 500})
            else:
                changed.append({"op": "write", "path": "%s/new%05d.txt" % (folder, entry), "size": 200})
    return {"name": "changes_%dk_%d" % (directories * files // 1000, changed_directories), "label": "CHANGES", "volume_size": "4G",
            "cluster_size": 4096, "clock": "2025-01-02 03:04:05",
            "steps": [{"ops": first}, {"snapshot": {}}, {"ops": changed}, {"snapshot": {}}]}


def make_input(tool, data, directories, files, changed_directories):
    prefix = os.path.join(data, "changes-%dk-%d" % (directories * files // 1000, changed_directories))
    if not os.path.exists(prefix + ".manifest.json"):
        os.makedirs(data, exist_ok=True)
        with open(prefix + ".scenario.json", "w") as handle:
            json.dump(scenario(directories, files, changed_directories), handle)
        environment = dict(os.environ)
        environment.pop("LD_PRELOAD", None)
        started = time.monotonic()
        subprocess.run([tool, "build", prefix + ".scenario.json", "-o", prefix], check=True, env=environment,
                       stdout=subprocess.DEVNULL)
        print("made %s in %.0f s" % (prefix + ".img", time.monotonic() - started))
        for number in (1, 2):
            os.remove("%s.snapshot%d.img" % (prefix, number))
    with open(prefix + ".manifest.json") as handle:
        manifest = json.load(handle)
    snapshots = sorted(manifest["snapshots"], key=lambda snapshot: snapshot["creation_order"])
    return prefix + ".img", [snapshot["shadow_copy_id"] for snapshot in snapshots]


def timed(words, runs):
    """Median seconds, the largest resident set of a run (MiB, from GNU time) and the last run's output."""
    times, peaks, output = [], [], b""
    for _ in range(runs):
        with tempfile.NamedTemporaryFile("r") as report:
            started = time.perf_counter()
            completed = subprocess.run(["/usr/bin/time", "-f", "%M", "-o", report.name] + words, check=True,
                                       stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
            times.append(time.perf_counter() - started)
            peaks.append(int(report.read().split()[-1]) / 1024)
        output = completed.stdout
    return statistics.median(times), max(peaks), output


def keys(changes):
    return sorted((change["record"], change["change"], change["path"]) for change in changes)


def table_keys(output):
    """The table's lines (kind, record-sequence, old size, new size, path[, (was old path)]) as keys."""
    rows = [line.split("\t") for line in output.decode().splitlines()]
    return sorted((int(row[1].split("-")[0]), row[0], row[4]) for row in rows)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--cli", required=True)
    parser.add_argument("--baseline", required=True)
    parser.add_argument("--tool", required=True)
    parser.add_argument("--data", default="build/bench-data")
    parser.add_argument("--runs", type=int, default=3)
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--changed-directories", type=int, default=5,
                        help="directories of 1,000 files changed between the shadow copies (5: 0.5 %% of the files)")
    arguments = parser.parse_args()
    directories, files = QUICK if arguments.quick else FULL
    volume, (older, newer) = make_input(arguments.tool, arguments.data, directories, files,
                                        arguments.changed_directories)
    full, full_peak, full_out = timed([arguments.baseline, volume, older, newer, "--full"], arguments.runs)
    listed, listed_peak, listed_out = timed([arguments.cli, "changes", volume, older, newer], arguments.runs)
    found, found_peak, found_out = timed([arguments.cli, "changes", volume, older, newer, "--json"], arguments.runs)
    changes = json.loads(found_out)["changes"]
    baseline = json.loads(full_out)
    if keys(changes) != keys(baseline["changes"]) or table_keys(listed_out) != keys(baseline["changes"]):
        print("they differ: %d changes in the JSON, %d in the table, against %d"
              % (len(changes), len(table_keys(listed_out)), len(baseline["changes"])))
        return 1
    print("%d MFT records, %d of them in changed blocks and compared by changes (%.2f %%); %d changes found"
          % (baseline["records"], baseline["records_in_changed_blocks"],
             100.0 * baseline["records_in_changed_blocks"] / baseline["records"], len(changes)))
    print("%-44s %9s %12s %10s" % ("case", "seconds", "full / it", "peak MiB"))
    print("%-44s %9.3f %12s %10.0f" % ("full comparison of both MFTs (baseline)", full, "", full_peak))
    print("%-44s %9.3f %12.1f %10.0f" % ("tolvar changes (table)", listed, full / listed, listed_peak))
    print("%-44s %9.3f %12.1f %10.0f" % ("tolvar changes --json", found, full / found, found_peak))
    return 0


if __name__ == "__main__":
    sys.exit(main())
