#!/usr/bin/python3
"""Times reading a rebuilt shadow copy through tolvar mount, against the same
reads through libvshadow's vshadowmount and in-process, in one run:

    mount_bench.py --build BUILD --tool MKVSSIMAGE [--data DIR] [--size 4G] [--descriptors 15000]

The input is a large-mode image of the image builder with three shadow
copies; the oldest is read (its reads pass through every newer store). Each
figure is one sequential pass in 1 MiB reads over the whole file, on a fresh
mount (tolvar's twice: served with direct I/O, its default, and through the
page cache with --page-cache) (nothing of the file in the page cache; the image itself is read once
first, so both mounts find it cached alike). The in-process pass reads the
same view behind the same cache without FUSE (mount_view_bench): the mount's
own cost is the difference. Last, mount_view_bench times threads reading the
view at once against the same reads serialised behind one lock.
Exits 77 when FUSE or vshadowmount is missing."""
import argparse
import mmap
import json
import os
import shutil
import subprocess
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from run_bench import make_image  # noqa: E402

SKIP = 77
CHUNK = 1 << 20


def read_through(path):
    """Bytes read and seconds taken, in 1 MiB reads into one buffer (a new
    buffer per read would cost more than some of the readers timed). The
    buffer is page-aligned, as dd's is: the kernel copies into one that is
    not (a bytearray starts 16 bytes past a cache line) at a fraction of the
    speed on the benchmark VM, which would cap every reader alike."""
    buffer = mmap.mmap(-1, CHUNK)
    started = time.perf_counter()
    total = 0
    with open(path, "rb", buffering=0) as handle:
        while True:
            count = handle.readinto(buffer)
            if not count:
                break
            total += count
    return total, time.perf_counter() - started


def through_mount(command, unmount, mount_point, name):
    os.makedirs(mount_point, exist_ok=True)
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
    try:
        return read_through(os.path.join(mount_point, name))
    finally:
        subprocess.run(unmount, check=True)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", required=True)
    parser.add_argument("--tool", required=True)
    parser.add_argument("--data")
    parser.add_argument("--size", default="4G")
    parser.add_argument("--descriptors", type=int, default=15000)
    arguments = parser.parse_args()
    if not os.path.exists("/dev/fuse") or shutil.which("vshadowmount") is None:
        print("SKIP: FUSE or vshadowmount (libvshadow-utils) is missing")
        return SKIP
    data = arguments.data or os.path.join(os.path.dirname(os.path.abspath(arguments.build)), "bench-data")
    os.makedirs(data, exist_ok=True)
    prefix, _ = make_image(arguments.tool, data, arguments.size, arguments.descriptors, 3)
    image = prefix + ".img"
    read_through(image)
    tolvar = os.path.join(arguments.build, "bin", "tolvar")
    ours_point, theirs_point = prefix + ".tolvar-mnt", prefix + ".vshadow-mnt"
    ours = through_mount([tolvar, "mount", image, ours_point], [tolvar, "umount", ours_point], ours_point, "vss1")
    cached = through_mount([tolvar, "mount", image, ours_point, "--page-cache"], [tolvar, "umount", ours_point],
                           ours_point, "vss1")
    theirs = through_mount(["vshadowmount", image, theirs_point], ["fusermount3", "-u", theirs_point], theirs_point,
                           "vss1")
    program = os.path.join(arguments.build, "bin", "mount_view_bench")
    inside = json.loads(subprocess.run([program, "sequential", image, "0"], stdout=subprocess.PIPE,
                                       check=True).stdout)
    threads = [json.loads(subprocess.run([program, "threads", image, "0", str(count)], stdout=subprocess.PIPE,
                                         check=True).stdout) for count in (2, 4)]

    def rate(total, seconds):
        return total / seconds / 1e9

    print("\nsequential 1 MiB reads of the oldest of 3 shadow copies (%s, %d descriptors), GB/s"
          % (arguments.size, arguments.descriptors))
    print("%-28s %8s %8s" % ("reader", "GB/s", "seconds"))
    print("%-28s %8.3f %8.2f" % ("tolvar mount", rate(*ours), ours[1]))
    print("%-28s %8.3f %8.2f" % ("tolvar mount --page-cache", rate(*cached), cached[1]))
    print("%-28s %8.3f %8.2f" % ("vshadowmount", rate(*theirs), theirs[1]))
    print("%-28s %8.3f %8.2f" % ("in-process view + cache", rate(inside["bytes"], inside["seconds"]),
                                 inside["seconds"]))
    print("tolvar mount / vshadowmount: %.2f; tolvar mount / in-process: %.2f"
          % (rate(*ours) / rate(*theirs), rate(*ours) / rate(inside["bytes"], inside["seconds"])))
    print("\nthreads reading 128 KiB pieces of the view at once, against the same reads serialised")
    print("%-8s %12s %12s %7s" % ("threads", "serialised", "concurrent", "ratio"))
    for figure in threads:
        print("%-8d %12.3f %12.3f %7.2f" % (figure["threads"], rate(figure["bytes"], figure["serialised_seconds"]),
                                            rate(figure["bytes"], figure["concurrent_seconds"]),
                                            figure["serialised_seconds"] / figure["concurrent_seconds"]))
    print("GB/s; ratio: concurrent over serialised throughput.")
    return 0


if __name__ == "__main__":
    sys.exit(main())
