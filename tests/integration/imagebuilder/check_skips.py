#!/usr/bin/python3
"""Without a FUSE device, the tool and every image-builder check skip: exit 77 with a message
naming what is missing, and no image written. The missing device is simulated with
MKVSSIMAGE_FUSE_DEVICE, which the tool and the checks honour. Exit 0 pass, 1 fail."""
import argparse
import os
import shutil
import subprocess
import sys

SKIP = 77
MISSING_DEVICE = "/nonexistent/mkvssimage-test/fuse"


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--tool", required=True)
    parser.add_argument("--work", required=True)
    arguments = parser.parse_args()
    here = os.path.dirname(os.path.realpath(__file__))
    work = arguments.work
    # Left-overs of an earlier run must not count as images written by this one.
    shutil.rmtree(work, ignore_errors=True)
    python = sys.executable
    commands = {
        "build": [arguments.tool, "build", "default", "-o", os.path.join(work, "build/default")],
        "large": [arguments.tool, "large", "-o", os.path.join(work, "large/large"), "-s", "1G", "-d", "10", "-n", "1"],
        "check_image": [python, os.path.join(here, "check_image.py"), "--tool", arguments.tool,
                        "--scenario", "default", "--cluster-size", "4096", "--work", os.path.join(work, "image")],
        "check_large": [python, os.path.join(here, "check_large.py"), "--tool", arguments.tool,
                        "--work", os.path.join(work, "checklarge")],
        "check_deterministic": [python, os.path.join(here, "check_deterministic.py"), "--tool", arguments.tool,
                                "--scenario", "default", "--work", os.path.join(work, "deterministic")],
        "check_write_requests": [python, os.path.join(here, "check_write_requests.py"), "--tool", arguments.tool,
                                 "--work", os.path.join(work, "requests")],
    }
    environment = dict(os.environ, MKVSSIMAGE_FUSE_DEVICE=MISSING_DEVICE)
    failures = []
    for name, command in commands.items():
        completed = subprocess.run(command, env=environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        output = completed.stdout.decode(errors="replace")
        if completed.returncode != SKIP:
            failures.append("%s exited with %d, not %d: %s" % (name, completed.returncode, SKIP, output.strip()))
        elif MISSING_DEVICE not in output:
            failures.append("%s skipped without naming the missing device: %s" % (name, output.strip()))
    images = [os.path.join(root, name) for root, _, names in os.walk(work) for name in names if name.endswith(".img")]
    if images:
        failures.append("images written although nothing could be mounted: %s" % ", ".join(images))
    for failure in failures:
        print("FAIL: %s" % failure)
    if not failures:
        print("%d commands skipped with exit %d and named %s" % (len(commands), SKIP, MISSING_DEVICE))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
