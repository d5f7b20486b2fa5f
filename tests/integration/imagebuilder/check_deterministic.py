#!/usr/bin/python3
"""Builds one scenario (or one large volume) twice into separate folders; every output file
must be byte-identical."""
import argparse
import filecmp
import os
import shutil
import subprocess
import sys

SKIP = 77


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--tool", required=True)
    parser.add_argument("--scenario", help="built-in name or file")
    parser.add_argument("--large", help="arguments of the large mode, as one string, instead of a scenario")
    parser.add_argument("--work", required=True)
    arguments = parser.parse_args()
    folders = [os.path.join(arguments.work, name) for name in ("first", "second")]
    for folder in folders:
        shutil.rmtree(folder, ignore_errors=True)
        os.makedirs(folder)
        if arguments.large is not None:
            command = [arguments.tool, "large", "-o", os.path.join(folder, "large")] + arguments.large.split()
        else:
            command = [arguments.tool, "build", arguments.scenario, "-o",
                       os.path.join(folder, os.path.basename(arguments.scenario))]
        completed = subprocess.run(command)
        if completed.returncode != 0:
            return SKIP if completed.returncode == SKIP else 1
    names = sorted(os.listdir(folders[0]))
    if names != sorted(os.listdir(folders[1])) or not names:
        print("FAIL: the two builds wrote different files: %s / %s" % (names, sorted(os.listdir(folders[1]))))
        return 1
    differing = [name for name in names
                 if not filecmp.cmp(os.path.join(folders[0], name), os.path.join(folders[1], name), shallow=False)]
    if differing:
        print("FAIL: not byte-identical: %s" % ", ".join(differing))
        return 1
    print("byte-identical: %s" % ", ".join(names))
    return 0


if __name__ == "__main__":
    sys.exit(main())
