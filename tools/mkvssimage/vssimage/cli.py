"""Command line: mkvssimage build | large | list."""
import argparse
import os
import sys
import time

from . import scenario as scenarios
from .fuse_mount import MountUnavailable, missing_tools

# Exit status when this machine cannot make images (what CTest counts as a skip).
SKIP_STATUS = 77


def main(argv=None):
    parser = argparse.ArgumentParser(prog="mkvssimage",
                                     description="Makes NTFS volume images that carry a shadow-copy store.")
    commands = parser.add_subparsers(dest="command", required=True)

    build = commands.add_parser("build", help="build an image from a scenario")
    build.add_argument("scenario", nargs="?", default="default", help="built-in name or JSON file")
    build.add_argument("--output", "-o", required=True,
                       help="path prefix: writes PREFIX.img, PREFIX.snapshotN.img, PREFIX.manifest.json")
    build.add_argument("--cluster-size", "-c", type=scenarios.parse_size, help="overrides the scenario's")
    build.add_argument("--volume-size", "-s", type=scenarios.parse_size, help="overrides the scenario's")

    large = commands.add_parser("large", help="a sparse volume with a large store, for benchmarks")
    large.add_argument("--output", "-o", required=True, help="path prefix: writes PREFIX.img, PREFIX.manifest.json")
    large.add_argument("--volume-size", "-s", type=scenarios.parse_size, default="1T")
    large.add_argument("--cluster-size", "-c", type=scenarios.parse_size, default=4096)
    large.add_argument("--descriptors", "-d", type=int, default=1000000, help="descriptors over all stores")
    large.add_argument("--snapshots", "-n", type=int, default=4)
    large.add_argument("--seed", type=int, default=1)
    large.add_argument("--fill", action="store_true",
                       help="write data (half random, half text) over the free 64 KiB around each changed block")

    commands.add_parser("list", help="list the built-in scenarios")
    arguments = parser.parse_args(argv)

    if arguments.command == "list":
        print("\n".join(scenarios.built_in_names()))
        return 0
    try:
        return run_command(arguments)
    except MountUnavailable as error:
        print("mkvssimage: cannot mount NTFS images here: %s" % error, file=sys.stderr)
        return SKIP_STATUS
    except Exception as error:  # noqa: BLE001 - every failure ends as one line and status 1
        print("mkvssimage: %s: %s" % (type(error).__name__, error), file=sys.stderr)
        return 1


def run_command(arguments):
    started = time.monotonic()
    # Both commands format a volume and write its store files through a FUSE mount.
    missing = missing_tools()
    if missing:
        print("mkvssimage: cannot mount NTFS images here, missing: %s" % ", ".join(missing), file=sys.stderr)
        return SKIP_STATUS
    if arguments.command == "build":
        from .image_builder import ImageBuilder
        scenario = scenarios.load(arguments.scenario)
        prepare_prefix(arguments.output)
        manifest = ImageBuilder(scenario, arguments.output, arguments.cluster_size, arguments.volume_size).build()
    else:
        from .large_volume import build_large_volume
        prepare_prefix(arguments.output)
        manifest = build_large_volume(arguments.output, arguments.volume_size, arguments.cluster_size,
                                      arguments.descriptors, arguments.snapshots, arguments.seed, arguments.fill)
    print("%s (%.2f s)" % (manifest, time.monotonic() - started))
    return 0


def prepare_prefix(prefix):
    directory = os.path.dirname(os.path.abspath(prefix))
    os.makedirs(directory, exist_ok=True)
