#!/usr/bin/python3
"""Times the backup chain's commands against baselines taken in the same run.

    chain_bench.py --cli TOLVAR --tool MKVSSIMAGE [--data DIR] [--work DIR] [--runs N] [--quick]

The input is a large-mode volume of the image builder with --fill: 16 GiB, two
shadow copies of 30,000 descriptors each, and data (half random, half text)
written over the 64 KiB around every changed block, so that the increment from
the older shadow copy to the newer one is about 1.9 GB of real data. It is made
once into DIR (build/bench-data) and kept. --quick uses a 4 GiB volume with a
quarter of the descriptors.

- backup to a .tvi file (plain and --compress) and to a qcow2 overlay, against
  dd copying the same number of bytes (the plain increment, read from the page
  cache) into a new file on the same file system, each case timed in
  alternation with dd (how fast the kernel takes new dirty pages varies from
  one moment to the next on a machine whose memory is all page cache);
- export of the older shadow copy: to standard output (read into /dev/null)
  against reading the volume file with pread in 1 MiB pieces; to a sparse raw
  file against dd copying the volume file into a sparse file; and against
  libvshadow (pyvshadow) reading the same shadow copy in 1 MiB pieces.

Before each timed run the last run's output is removed and the page cache is
written back (sync), untimed, so no run pays for
the one before it. Each figure is the median of --runs (libvshadow: one run);
ratios are baseline time over tolvar's time (above 1: tolvar is faster)."""
import argparse
import json
import os
import statistics
import subprocess
import sys
import time

FULL = ("16G", 60000)
QUICK = ("4G", 15000)
MIB = 1 << 20


def run(words, stdout=subprocess.DEVNULL):
    subprocess.run([str(word) for word in words], check=True, stdout=stdout, stderr=subprocess.DEVNULL)


def timed(function, runs, setup=None):
    """Median seconds of function; setup (removing the last run's output) runs untimed before each."""
    times = []
    for _ in range(runs):
        if setup:
            setup()
        os.sync()
        start = time.perf_counter()
        function()
        times.append(time.perf_counter() - start)
    return statistics.median(times)


def remove(*paths):
    for path in paths:
        if os.path.exists(path):
            os.remove(path)


def make_input(tool, data, size, descriptors):
    prefix = os.path.join(data, "chain-%s-%dk-2" % (size, descriptors // 1000))
    if not os.path.exists(prefix + ".manifest.json"):
        environment = dict(os.environ)
        environment.pop("LD_PRELOAD", None)
        os.makedirs(data, exist_ok=True)
        subprocess.run([tool, "large", "-o", prefix, "-s", size, "-d", str(descriptors), "-n", "2", "--fill"],
                       check=True, env=environment, stdout=subprocess.DEVNULL)
    with open(prefix + ".manifest.json") as handle:
        manifest = json.load(handle)
    snapshots = sorted(manifest["snapshots"], key=lambda snapshot: snapshot["creation_order"])
    return prefix + ".img", [snapshot["shadow_copy_id"] for snapshot in snapshots]


def warm(path):
    with open(path, "rb", buffering=0) as handle:
        while handle.read(8 * MIB):
            pass


def pread_all(path):
    with open(path, "rb", buffering=0) as handle:
        size = os.fstat(handle.fileno()).st_size
        for offset in range(0, size, MIB):
            os.pread(handle.fileno(), MIB, offset)


def vshadow_all(path, index):
    import pyvshadow
    volume = pyvshadow.volume()
    volume.open(path)
    store = volume.get_store(index)
    for offset in range(0, store.volume_size, MIB):
        store.read_buffer_at_offset(min(MIB, store.volume_size - offset), offset)
    volume.close()


def timed_pair(baseline, candidate, runs, setup):
    """Medians of baseline and candidate timed in alternation (one of each per
    round, so that both meet the same state of the page cache); setup runs
    untimed before each, followed by sync."""
    times = ([], [])
    for _ in range(runs):
        for slot, function in enumerate((baseline, candidate)):
            setup()
            os.sync()
            start = time.perf_counter()
            function()
            times[slot].append(time.perf_counter() - start)
    return statistics.median(times[0]), statistics.median(times[1])


def bench_backup(arguments, volume, older, newer):
    work = arguments.work
    names = ("bench.tvi", "bench.new.tvi", "bench.z.tvi", "bench.qcow2")
    tvi, plain, packed, overlay = (os.path.join(work, name) for name in names)
    copy, base = os.path.join(work, "bench.copy"), os.path.join(work, "bench.base.raw")
    run([arguments.cli, "backup", volume, older, newer, tvi])  # what dd copies
    warm(volume)
    warm(tvi)

    def dd():
        run(["dd", "if=" + tvi, "of=" + copy, "bs=1M"])

    def backup(out, extra):
        def once():
            run([arguments.cli, "backup", volume, older, newer, out] + extra)
        return once

    size = os.path.getsize(tvi)
    cases = (("backup .tvi", backup(plain, []), plain),
             ("backup --compress", backup(packed, ["--compress"]), packed),
             ("backup qcow2 overlay", backup(overlay, ["--format", "qcow2", "--base", base]), overlay))
    rows = []
    for label, function, out in cases:
        if out == overlay:
            run([arguments.cli, "export", volume, older, base])
            warm(volume)
        baseline, seconds = timed_pair(dd, function, arguments.runs, lambda: remove(out, copy))
        rows.append((label, seconds, os.path.getsize(out), baseline))
        remove(out)
    print("backup of the older to the newer shadow copy: %d bytes in the .tvi" % size)
    print("each case timed in alternation with dd copying the .tvi (%d bytes) to a new file" % size)
    print("%-24s %9s %14s %9s %12s" % ("case", "seconds", "bytes", "dd", "dd / tolvar"))
    for label, seconds, written, baseline in rows:
        print("%-24s %9.3f %14d %9.3f %12.2f" % (label, seconds, written, baseline, baseline / seconds))
    plain_row, compressed_row = rows[0], rows[1]
    print("compression: %.3f of the plain size, %.0f MB/s of increment against %.0f MB/s plain"
          % (compressed_row[2] / plain_row[2], size / compressed_row[1] / 1e6, size / plain_row[1] / 1e6))
    remove(tvi, plain, packed, overlay, copy, base)


def bench_export(arguments, volume, older):
    out, copy = os.path.join(arguments.work, "bench.export.raw"), os.path.join(arguments.work, "bench.copy.raw")
    warm(volume)

    def to_stdout():
        with open(os.devnull, "wb") as sink:
            run([arguments.cli, "export", volume, older, "-"], stdout=sink)

    def to_file():
        run([arguments.cli, "export", volume, older, out])

    def dd_sparse():
        run(["dd", "if=" + volume, "of=" + copy, "bs=1M", "conv=sparse"])

    streamed = timed(to_stdout, arguments.runs)
    pread = timed(lambda: pread_all(volume), arguments.runs)
    written = timed(to_file, arguments.runs, lambda: remove(out))
    copied = timed(dd_sparse, arguments.runs, lambda: remove(copy))
    vshadow = timed(lambda: vshadow_all(volume, 0), 1)
    size = os.path.getsize(volume)
    print("export of the older shadow copy of a %d-byte volume" % size)
    print("%-36s %9s %16s" % ("case", "seconds", "base / export"))
    print("%-36s %9.3f" % ("tolvar export to - (into /dev/null)", streamed))
    print("%-36s %9.3f %16.2f" % ("  pread of the volume, 1 MiB", pread, pread / streamed))
    print("%-36s %9.3f %16.2f" % ("  libvshadow read of it, 1 MiB", vshadow, vshadow / streamed))
    print("%-36s %9.3f" % ("tolvar export to a sparse raw file", written))
    print("%-36s %9.3f %16.2f" % ("  dd of the volume, conv=sparse", copied, copied / written))
    remove(out, copy)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--cli", required=True)
    parser.add_argument("--tool", required=True)
    parser.add_argument("--data", default="build/bench-data")
    parser.add_argument("--work", default="build/bench-chain")
    parser.add_argument("--runs", type=int, default=3)
    parser.add_argument("--quick", action="store_true")
    arguments = parser.parse_args()
    os.makedirs(arguments.work, exist_ok=True)
    size, descriptors = QUICK if arguments.quick else FULL
    volume, (older, newer) = make_input(arguments.tool, arguments.data, size, descriptors)
    print("input: %s (%s, %d descriptors in two shadow copies, data over the changed blocks)"
          % (volume, size, descriptors))
    bench_backup(arguments, volume, older, newer)
    print()
    bench_export(arguments, volume, older)


if __name__ == "__main__":
    sys.exit(main())
