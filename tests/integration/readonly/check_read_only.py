#!/usr/bin/python3
"""Shows that the library only reads: runs the C client of the exports (Init,
GetDiffBitmap, the GetBlock walk, GetFileChangesMap, ExcludeFiles) under
`strace -f` on a built image, once between two snapshots and once with an
unknown snapshot, and fails when any process of the run opens a file for
writing, writes to anything but its standard output or error, or changes a
file or directory in any other way; the image's bytes must be unchanged.
A control run of a program that does write must be caught by the same
check. Exits 77 when strace or the image builder cannot run here."""
import argparse
import hashlib
import os
import re
import shutil
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "mainuse"))
import tolvar_ctypes as tolvar  # noqa: E402

SKIP = 77
UNKNOWN_ID = "01234567-89ab-cdef-0123-456789abcdef"

# Calls that write data through a descriptor: allowed on 1 and 2 only.
WRITE_CALLS = {"write", "pwrite64", "writev", "pwritev", "pwritev2", "sendfile", "sendfile64",
               "copy_file_range", "splice", "vmsplice", "tee", "ftruncate", "fallocate"}
# Calls that change the file system whatever their arguments.
CHANGE_CALLS = {"creat", "truncate", "rename", "renameat", "renameat2", "unlink", "unlinkat", "mkdir",
                "mkdirat", "rmdir", "link", "linkat", "symlink", "symlinkat", "mknod", "mknodat", "chmod",
                "fchmod", "fchmodat", "chown", "fchown", "fchownat", "lchown", "utime", "utimes",
                "utimensat", "futimesat", "setxattr", "lsetxattr", "fsetxattr", "removexattr",
                "lremovexattr", "fremovexattr"}
OPEN_CALLS = {"open", "openat", "openat2"}
WRITE_FLAGS = ("O_WRONLY", "O_RDWR", "O_CREAT", "O_TRUNC", "O_APPEND")
# Anonymous pipes are not files: writes into them (the sanitizers probe
# memory that way) are allowed while the descriptor is the pipe's.
PIPE_CALLS = {"pipe", "pipe2"}
TRACED = sorted(WRITE_CALLS | CHANGE_CALLS | OPEN_CALLS | PIPE_CALLS | {"dup2", "dup3", "mmap", "close"})

CALL = re.compile(r"^(?:\[pid\s+)?(\d+)\]?\s+([a-z0-9_]+)\((.*)$")


def violations(log_path):
    """Every traced call of the log that writes or could write, one line each."""
    found = []
    pipes = set()  # (process, descriptor) of the pipe ends open now
    with open(log_path, errors="replace") as log:
        for line in log:
            match = CALL.match(line.strip())
            if not match:
                continue
            process, call, arguments = match.group(1), match.group(2), match.group(3)
            descriptor = re.match(r"^(\d+)", arguments)
            if call in PIPE_CALLS:
                ends = re.match(r"^\[(\d+), (\d+)\]", arguments)
                if ends:
                    pipes.update({(process, ends.group(1)), (process, ends.group(2))})
                continue
            if call == "close" and descriptor:
                pipes.discard((process, descriptor.group(1)))
                continue
            if call in WRITE_CALLS and descriptor and (process, descriptor.group(1)) in pipes:
                continue
            if call in CHANGE_CALLS:
                found.append(line.strip())
            elif call in OPEN_CALLS and any(flag in arguments for flag in WRITE_FLAGS):
                found.append(line.strip())
            elif call in WRITE_CALLS and not re.match(r"^[12],", arguments):
                found.append(line.strip())
            elif call in ("dup2", "dup3") and re.match(r"^\d+, [12][,)]", arguments):
                found.append(line.strip())
            elif call == "mmap" and "PROT_WRITE" in arguments and "MAP_SHARED" in arguments:
                found.append(line.strip())
    return found


def traced_run(command, log_path, environment):
    strace = ["strace", "-f", "-qq", "-o", log_path, "-e", "trace=" + ",".join(TRACED)]
    return subprocess.run(strace + command, capture_output=True, text=True, env=environment)


def digest(path):
    sha = hashlib.sha256()
    with open(path, "rb") as handle:
        for chunk in iter(lambda: handle.read(1 << 20), b""):
            sha.update(chunk)
    return sha.hexdigest()


def check_control(work, environment):
    """A program that writes a file must be caught, or the check proves nothing."""
    log_path = os.path.join(work, "control.strace")
    target = os.path.join(work, "control.out")
    run = traced_run(["/bin/sh", "-c", "echo written > '%s'" % target], log_path, environment)
    caught = violations(log_path)
    if run.returncode != 0 or not caught:
        sys.exit("the control run's write was not caught: %r" % caught)
    print("control: %d writing calls caught" % len(caught))


def check_client(name, command, log_path, image, environment, expect_status, expect_text):
    before = (digest(image), os.stat(image).st_mtime_ns)
    run = traced_run(command, log_path, environment)
    print(run.stdout, end="")
    if run.returncode != expect_status or expect_text not in run.stdout:
        sys.exit("%s: the client exited %d (expected %d):\n%s" % (name, run.returncode, expect_status, run.stderr))
    found = violations(log_path)
    if found:
        sys.exit("%s: %d writing calls:\n%s" % (name, len(found), "\n".join(found[:20])))
    if (digest(image), os.stat(image).st_mtime_ns) != before:
        sys.exit("%s: the image changed" % name)
    with open(log_path) as log:
        opened = sum(1 for line in log if re.search(r"\b(open|openat|openat2)\(", line))
    print("%s: no write among %d traced opens; image unchanged" % (name, opened))


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--client", required=True)
    parser.add_argument("--tool", required=True)
    parser.add_argument("--work", required=True)
    arguments = parser.parse_args()
    if shutil.which("strace") is None:
        print("SKIP: strace is not installed")
        sys.exit(SKIP)
    os.makedirs(arguments.work, exist_ok=True)
    environment = tolvar.tool_environment()
    # LeakSanitizer cannot run under ptrace; a sanitized client skips it here.
    environment["ASAN_OPTIONS"] = ":".join(
        part for part in (environment.get("ASAN_OPTIONS", ""), "detect_leaks=0") if part)
    probe = subprocess.run(["strace", "-qq", "-o", os.devnull, "true"], capture_output=True)
    if probe.returncode != 0:
        print("SKIP: strace cannot trace here: %s" % probe.stderr.decode(errors="replace").strip())
        sys.exit(SKIP)

    prefix = os.path.join(arguments.work, "read-only-default")
    snapshots = tolvar.build_default_image(arguments.tool, prefix)
    image = prefix + ".img"

    with tempfile.TemporaryDirectory(dir=arguments.work) as work:
        check_control(work, environment)
        check_client("main use and file exports",
                     [arguments.client, image, snapshots[0]["shadow_copy_id"], snapshots[-1]["shadow_copy_id"],
                      "/documents/report.txt"],
                     os.path.join(work, "client.strace"), image, environment, 0, " 0 failed")
        check_client("unknown snapshot",
                     [arguments.client, image, snapshots[0]["shadow_copy_id"], UNKNOWN_ID, "/documents/report.txt"],
                     os.path.join(work, "unknown.strace"), image, environment, 1, "FAILED: Init opens the handle")


if __name__ == "__main__":
    main()
