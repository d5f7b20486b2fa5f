#!/usr/bin/python3
"""Runs the C client of the main use on the default built image, between its
first and last snapshot, with the file exports on a file that both hold (the path lookup compares
with the names on disk folded to lower case, so the path is given in lower
case). Exits 77 when the image cannot be built here."""
import argparse
import os
import subprocess
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import tolvar_ctypes as tolvar  # noqa: E402


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--client", required=True)
    parser.add_argument("--tool", required=True)
    parser.add_argument("--work", required=True)
    arguments = parser.parse_args()
    prefix = arguments.work + "/c-client-default"
    snapshots = tolvar.build_default_image(arguments.tool, prefix)
    client = subprocess.run([arguments.client, prefix + ".img", snapshots[0]["shadow_copy_id"],
                             snapshots[-1]["shadow_copy_id"], "/documents/report.txt"])
    sys.exit(client.returncode)


if __name__ == "__main__":
    main()
