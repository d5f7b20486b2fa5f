#!/usr/bin/python3
"""Times the backup chain's commands against baselines taken in the same run.

    chain_bench.py --cli TOLVAR --tool MKVSSIMAGE --work DIR [--windows-volume VOLUME] [--runs N]

- backup to a .tvi file (plain and --compress) and to a qcow2 overlay, against
  dd copying the same number of bytes (the plain increment, read from the page
  cache) into a file on the same file system;
- export of a snapshot (raw, sparse) against reading the volume file with
  pread in 1 MiB pieces, and against libvshadow (pyvshadow) reading the same
  snapshot in 1 MiB pieces.

Each figure is the median of --runs; ratios are baseline time over tolvar's
time (above 1: tolvar is faster). The Windows 10 volume is used for backup when
given (the image builder's volumes change too few blocks to time), the image
builder's default volume otherwise and for export."""
import argparse
import json
import os
import statistics
import subprocess
import sys
import time


def timed(function, runs):
    times = []
    for _ in range(runs):
        start = time.perf_counter()
        function()
        times.append(time.perf_counter() - start)
    return statistics.median(times)


def run(words):
    subprocess.run([str(word) for word in words], check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


def pread_all(path):
    with open(path, "rb", buffering=0) as handle:
        size = os.fstat(handle.fileno()).st_size
        for offset in range(0, size, 1 << 20):
            os.pread(handle.fileno(), 1 << 20, offset)


def vshadow_all(path, index):
    import pyvshadow
    volume = pyvshadow.volume()
    volume.open(path)
    store = volume.get_store(index)
    for offset in range(0, store.volume_size, 1 << 20):
        store.read_buffer_at_offset(min(1 << 20, store.volume_size - offset), offset)
    volume.close()


def bench_backup(arguments, volume, older, newer):
    work = arguments.work
    tvi = os.path.join(work, "bench.tvi")
    run([arguments.cli, "backup", volume, older, newer, tvi])
    size = os.path.getsize(tvi)
    copy = os.path.join(work, "bench.copy")
    dd = timed(lambda: run(["dd", "if=" + tvi, "of=" + copy, "bs=1M"]), arguments.runs)
    rows = []
    for label, extra, out in (("backup .tvi", [], tvi), ("backup --compress", ["--compress"],
                                                              os.path.join(work, "bench.z.tvi"))):
        seconds = timed(lambda: run([arguments.cli, "backup", volume, older, newer, out] + extra), arguments.runs)
        rows.append((label, seconds, os.path.getsize(out)))
    base = os.path.join(work, "bench.base.raw")
    run([arguments.cli, "export", volume, older, base])
    overlay = os.path.join(work, "bench.qcow2")
    seconds = timed(lambda: run([arguments.cli, "backup", volume, older, newer, overlay, "--format", "qcow2", "--base",
                                 base]), arguments.runs)
    rows.append(("backup qcow2", seconds, os.path.getsize(overlay)))
    print("backup of %d bytes (.tvi); dd of the same bytes from the page cache: %.3f s" % (size, dd))
    print("%-20s %9s %12s %14s" % ("case", "seconds", "bytes", "dd / tolvar"))
    for label, seconds, written in rows:
        print("%-20s %9.3f %12d %14.2f" % (label, seconds, written, dd / seconds))
    print("compression: %.2f of the plain size" % (rows[1][2] / rows[0][2]))
    for path in (tvi, copy, base, overlay, os.path.join(work, "bench.z.tvi")):
        if os.path.exists(path):
            os.remove(path)


def bench_export(arguments, volume, manifest):
    snapshots = sorted(manifest["snapshots"], key=lambda snapshot: snapshot["creation_order"])
    index = len(snapshots) - 1
    out = os.path.join(arguments.work, "bench.export.raw")
    export = timed(lambda: run([arguments.cli, "export", volume, snapshots[index]["shadow_copy_id"], out]),
                   arguments.runs)
    pread = timed(lambda: pread_all(volume), arguments.runs)
    vshadow = timed(lambda: vshadow_all(volume, index), arguments.runs)
    size = os.path.getsize(volume)
    print("export of the newest snapshot of a %d-byte volume (raw, sparse)" % size)
    print("%-28s %9s %14s" % ("case", "seconds", "base / export"))
    print("%-28s %9.3f" % ("tolvar export", export))
    print("%-28s %9.3f %14.2f" % ("pread of the volume", pread, pread / export))
    print("%-28s %9.3f %14.2f" % ("libvshadow read of it", vshadow, vshadow / export))
    os.remove(out)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--cli", required=True)
    parser.add_argument("--tool", required=True)
    parser.add_argument("--work", required=True)
    parser.add_argument("--windows-volume")
    parser.add_argument("--runs", type=int, default=3)
    arguments = parser.parse_args()
    os.makedirs(arguments.work, exist_ok=True)
    prefix = os.path.join(arguments.work, "default")
    environment = dict(os.environ)
    environment.pop("LD_PRELOAD", None)
    subprocess.run([arguments.tool, "build", "default", "-o", prefix], check=True, env=environment,
                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    with open(prefix + ".manifest.json") as handle:
        manifest = json.load(handle)
    if arguments.windows_volume and os.path.exists(arguments.windows_volume):
        bench_backup(arguments, arguments.windows_volume, "ec06abc4-bd2f-41cc-a817-921f2046080d",
                     "d1229f1a-31d8-45de-8a72-0d6a3a1f59e8")
    else:
        snapshots = sorted(manifest["snapshots"], key=lambda snapshot: snapshot["creation_order"])
        bench_backup(arguments, prefix + ".img", snapshots[0]["shadow_copy_id"], snapshots[-1]["shadow_copy_id"])
    bench_export(arguments, prefix + ".img", manifest)


if __name__ == "__main__":
    sys.exit(main())
