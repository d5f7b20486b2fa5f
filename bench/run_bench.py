#!/usr/bin/python3
"""Makes the benchmark inputs, runs init_bench, walk_bench and the libvshadow
walk, and prints the figures with their ratios (called by scripts/bench).

Every ratio is between two figures of the same run. Init's is its time over
the time of reading the same store pages with pread (target 1.5 or less);
the walk's is its throughput over that of a pread loop at the same offsets
of the image (target 0.8 or more with compare off).
"""
import argparse
import json
import os
import subprocess
import sys

SKIP = 77
LINE_SIZE = 16384          # one cache line per byte source
STORE_BLOCK = 16384        # bytes per bit of the store bitmaps
SOURCES_WITH_A_LINE = 3    # the volume and the two shadow-copy views

FULL = {
    "init": [(size, descriptors, snapshots) for size in ("64G", "1T")
             for descriptors in (10000, 100000, 1000000) for snapshots in (1, 4)],
    "walk": ("6G", 900000, 3),
    "vshadow": ("16G", 60000, 3),
    "repetitions": 3,
}
# For CTest: every program once on tiny images, one short iteration each.
SMOKE = {
    "init": [("1G", 2000, 1), ("1G", 2000, 2)],
    "walk": ("1G", 3000, 3),
    "vshadow": ("1G", 3000, 3),
    "repetitions": 1,
    "flags": ["--benchmark_min_time=0.001"],
}
QUICK = {
    "init": [("64G", 10000, 1), ("64G", 100000, 4), ("1T", 100000, 4)],
    "walk": ("2G", 240000, 3),
    "vshadow": ("4G", 15000, 3),
    "repetitions": 1,
}


def make_image(tool, data, size, descriptors, snapshots):
    """The prefix of a large-mode image, made unless it is there already."""
    prefix = os.path.join(data, "large-%s-%d-%d" % (size, descriptors, snapshots))
    if not (os.path.exists(prefix + ".img") and os.path.exists(prefix + ".manifest.json")):
        completed = subprocess.run([tool, "large", "-o", prefix, "-s", size, "-d", str(descriptors),
                                    "-n", str(snapshots)], stdout=subprocess.DEVNULL)
        if completed.returncode != 0:
            print("mkvssimage large -s %s -d %d -n %d failed (exit %d)%s" % (
                size, descriptors, snapshots, completed.returncode,
                ": this machine cannot make images (FUSE, ntfs-3g or libfaketime missing)"
                if completed.returncode == SKIP else ""), flush=True)
            sys.exit(SKIP if completed.returncode == SKIP else 1)
    with open(prefix + ".manifest.json") as handle:
        return prefix, json.load(handle)


def case(name, prefix, manifest, older, newer):
    ids = [snapshot["shadow_copy_id"] for snapshot in manifest["snapshots"]]
    return "%s=%s.img,%s,%s" % (name, prefix, ids[older], ids[newer])


def run(program, cases, output, repetitions, extra=()):
    command = [program, "--benchmark_out=" + output, "--benchmark_out_format=json",
               "--benchmark_repetitions=%d" % repetitions] + list(extra) + cases
    print("$ " + " ".join(os.path.basename(part) if part == program else part for part in command[:4]) + " ...",
          flush=True)
    # Google Benchmark's context lines go to stderr; only the program's own summary is shown.
    completed = subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, universal_newlines=True)
    for line in completed.stderr.splitlines():
        if completed.returncode != 0 or "max resident" in line:
            print("  " + line)
    if completed.returncode != 0:
        raise SystemExit("%s exited with %d" % (os.path.basename(program), completed.returncode))
    return figures(output)


def figures(path):
    """name -> the run's figures: the median over repetitions when there were several."""
    with open(path) as handle:
        benchmarks = json.load(handle)["benchmarks"]
    result = {}
    for entry in benchmarks:
        name = entry["run_name"].replace("/real_time", "")
        if entry.get("error_occurred"):
            raise SystemExit("%s failed: %s" % (name, entry.get("error_message")))
        if entry["run_type"] == "aggregate" and entry["aggregate_name"] != "median":
            continue
        if entry["run_type"] == "iteration" and name in result and result[name]["run_type"] == "aggregate":
            continue
        result[name] = entry
    return result


def mib(value):
    return "%.1f" % (value / 1048576.0)


def gbps(entry):
    return entry["bytes_per_second"] / 1e9


def init_table(results, cases, cache):
    print("\nInit (ms, median; %s page cache)  target: ratio <= 1.5" % cache)
    print("%-14s %8s %8s %7s %8s %8s %7s %7s %9s %9s %9s" % (
        "case", "Init", "pread", "ratio", "Init cpu", "pread cpu", "ratio", "pages", "peak MiB", "held MiB",
        "allowed"))
    for name, volume_size in cases:
        tolvar = results["init/%s/tolvar" % name]
        pread = results["init/%s/pread" % name]
        allowed = allowed_bytes(tolvar["bitmap_bytes"], volume_size)
        print("%-14s %8.1f %8.1f %7.2f %8.1f %8.1f %7.2f %7d %9s %9s %9s" % (
            name, tolvar["real_time"], pread["real_time"], tolvar["real_time"] / pread["real_time"],
            tolvar["cpu_time"], pread["cpu_time"], tolvar["cpu_time"] / pread["cpu_time"],
            pread["pages"], mib(tolvar["heap_peak"]), mib(tolvar["heap_held"]), mib(allowed)))
    print("allowed: the changed and comparison bitmaps at the block size, one 16 KiB line per source, the\n"
          "block buffer, and while Init works the four 16 KiB-granular bitmaps it merges.")


def allowed_bytes(bitmap_bytes, volume_size, block_size=65536):
    store_bitmap = -(-volume_size // STORE_BLOCK) // 8
    return 2 * bitmap_bytes + SOURCES_WITH_A_LINE * LINE_SIZE + block_size + 4 * store_bitmap


def walk_table(results, names):
    print("\nGetBlock walk (GB/s over the changed blocks' bytes, median; warm page cache)"
          "  target: compare off >= 0.8 x pread")
    print("%-10s %7s %6s %7s %7s %6s %7s %6s %9s %9s %9s %8s" % (
        "case", "block", "GiB", "pread", "off", "ratio", "on", "ratio", "off cpu", "vs 16K", "returned", "heap B"))
    for name in names:
        for block_size in (4096, 65536, 131072):
            stem = "walk/%s/%d" % (name, block_size)
            pread, off, on = results[stem + "/pread"], results[stem + "/compare_off"], results[stem + "/compare_on"]
            lines = results.get(stem + "/pread_16k")
            print("%-10s %7d %6.2f %7.2f %7.2f %6.2f %7.2f %6.2f %9.2f %9s %9d %8d" % (
                name, block_size, pread["changed_blocks"] * block_size / 2.0**30, gbps(pread), gbps(off),
                gbps(off) / gbps(pread), gbps(on), gbps(on) / gbps(pread), pread["cpu_time"] / off["cpu_time"],
                "%.2f" % (gbps(off) / gbps(lines)) if lines else "-",
                on["returned_blocks"], max(off["walk_heap_peak"], on["walk_heap_peak"])))
    print("ratio: over pread's rate; off cpu: the same ratio from CPU times (steadier on a shared machine);\n"
          "vs 16K: compare off over a pread loop reading each block in 16 KiB pieces, as the walk's line does;\n"
          "returned: blocks GetBlock gave with compare on; heap B: the most heap the walk held beyond what\n"
          "Init left (the views' cache lines and the store tables that the first call reads).")


def vshadow_table(results, vshadow, descriptors):
    print("\nlibvshadow (pyvshadow, 64 KiB reads of the same blocks of the same store; %d descriptors in all)"
          % descriptors)
    print("%-10s %8s %8s %10s %11s %11s %7s" % ("case", "blocks", "GiB", "setup s", "pyvshadow", "tolvar",
                                                "ratio"))
    for name, figures_of in vshadow.items():
        library = gbps(results["walk/%s/65536/compare_off" % name])
        rate = figures_of["bytes"] / figures_of["read_seconds"] / 1e9
        print("%-10s %8d %8.2f %10.2f %11.2f %11.2f %7.2f" % (
            name, figures_of["blocks"], figures_of["bytes"] / 2.0**30, figures_of["setup_seconds"], rate, library,
            library / rate))
    print("GB/s; ratio: tolvar's walk (compare off, one GetBlock per 64 KiB block) over pyvshadow's reads.")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", required=True)
    parser.add_argument("--tool", required=True)
    parser.add_argument("--data", default=None)
    parser.add_argument("--results", default=None)
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--cold", action="store_true",
                        help="also time Init and its baseline on a cold page cache (the image's pages dropped)")
    parser.add_argument("--smoke", action="store_true", help="tiny inputs: checks that every program runs")
    parser.add_argument("--repetitions", type=int, default=None)
    arguments = parser.parse_args()
    plan = SMOKE if arguments.smoke else QUICK if arguments.quick else FULL
    repetitions = arguments.repetitions or plan["repetitions"]
    root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    data = arguments.data or os.path.join(root, "build", "bench-data")
    results_dir = arguments.results or os.path.join(root, "build", "bench-results")
    os.makedirs(data, exist_ok=True)
    os.makedirs(results_dir, exist_ok=True)
    binaries = os.path.join(arguments.build, "bin")

    print("=== inputs (%s)" % data, flush=True)
    init_cases, init_names = [], []
    for size, descriptors, snapshots in plan["init"]:
        prefix, manifest = make_image(arguments.tool, data, size, descriptors, snapshots)
        name = "%s/%dk/%d" % (size, descriptors // 1000, snapshots)
        init_cases.append(case(name, prefix, manifest, 0, snapshots - 1))
        init_names.append((name, manifest["volume_size"]))
    walk_prefix, walk_manifest = make_image(arguments.tool, data, *plan["walk"])
    walk_cases = [case("newest", walk_prefix, walk_manifest, 0, plan["walk"][2] - 1),
                  case("older", walk_prefix, walk_manifest, 0, plan["walk"][2] - 2)]
    vshadow_prefix, vshadow_manifest = make_image(arguments.tool, data, *plan["vshadow"])
    # The newest shadow copy and the one before it, each from the oldest.
    vshadow_stores = {"vs-newest": plan["vshadow"][2] - 1, "vs-older": plan["vshadow"][2] - 2}
    vshadow_cases = [case(name, vshadow_prefix, vshadow_manifest, 0, store) for name, store in vshadow_stores.items()]

    print("=== run (%d repetitions)" % repetitions, flush=True)
    results = run(os.path.join(binaries, "init_bench"), init_cases, os.path.join(results_dir, "init.json"),
                  repetitions, plan.get("flags", []))
    if arguments.cold:
        cold = run(os.path.join(binaries, "init_bench"), init_cases, os.path.join(results_dir, "init-cold.json"),
                   repetitions, plan.get("flags", []) + ["--cold"])
    results.update(run(os.path.join(binaries, "walk_bench"), walk_cases + vshadow_cases,
                       os.path.join(results_dir, "walk.json"), repetitions, plan.get("flags", [])))
    ids = [s["shadow_copy_id"] for s in vshadow_manifest["snapshots"]]
    vshadow = {}
    for name, store in vshadow_stores.items():
        print("$ vshadow_walk.py --store %d" % store, flush=True)
        completed = subprocess.run(["/usr/bin/python3", os.path.join(root, "bench", "vshadow_walk.py"),
                                    "--lib", os.path.join(arguments.build, "lib", "libtolvar.so"),
                                    "--image", vshadow_prefix + ".img", "--older", ids[0], "--newer", ids[store],
                                    "--store", str(store)], check=True, stdout=subprocess.PIPE)
        vshadow[name] = json.loads(completed.stdout)
    with open(os.path.join(results_dir, "vshadow.json"), "w") as handle:
        json.dump(vshadow, handle)

    init_table(results, init_names, "warm")
    if arguments.cold:
        init_table(cold, init_names, "cold")
    walk_table(results, ["newest", "older"] + list(vshadow_stores))
    vshadow_table(results, vshadow, plan["vshadow"][1])
    return 0


if __name__ == "__main__":
    sys.exit(main())
