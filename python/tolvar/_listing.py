"""The shadow copies of a volume, as the tolvar command lists them.

The library's exports have no call that lists shadow copies; the tolvar
command does it (``tolvar list VOLUME --json``) through the same reader of
the store that Init uses. Running the command, rather than reading the
store's catalog a second time in Python, keeps one reader of the store: the
IDs listed are the ones Init accepts, and whatever volumes the command learns
to open, this listing opens too.

The command is looked for, in order: at the path in the environment variable
TOLVAR_COMMAND; beside the loaded library (``../bin/tolvar`` and the
library's own folder, as a build tree and a prefix lay them out); on PATH.
"""

from __future__ import annotations

import datetime
import json
import os
import re
import shutil
import subprocess
import sys
from dataclasses import dataclass
from typing import List, Optional, Sequence

from . import _library
from ._errors import NotFoundError, TolvarError

COMMAND_NAME = "tolvar.exe" if sys.platform == "win32" else "tolvar"

# What the command prints on stderr for each record of the error queue.
_RECORD_LINE = re.compile(r"^tolvar: error (\d+): (.*)$")
# ISO 8601 in UTC as the command prints it, with up to seven fraction digits.
_TIME_TEXT = re.compile(r"^(\d{4})-(\d\d)-(\d\d)T(\d\d):(\d\d):(\d\d)(?:\.(\d{1,7}))?Z$")


@dataclass(frozen=True)
class ShadowCopy:
    """One shadow copy of a volume."""

    #: The ID that :func:`tolvar.open` takes: 36 lower-case hexadecimal
    #: characters with hyphens.
    shadow_copy_id: str
    #: The snapshot set it belongs to.
    set_id: str
    #: The store's identifier in the catalog.
    store_id: str
    #: Bytes of the volume when the shadow copy was made.
    volume_size: int
    #: When it was made, in UTC (timezone-aware; whole microseconds).
    created: datetime.datetime


def parse_time(text: str) -> datetime.datetime:
    """The command's creation time text as a timezone-aware datetime."""
    match = _TIME_TEXT.match(text)
    if match is None:
        raise ValueError("not a time the tolvar command prints: %r" % text)
    year, month, day, hour, minute, second = (int(part) for part in match.groups()[:6])
    microseconds = int((match.group(7) or "0").ljust(7, "0")) // 10
    return datetime.datetime(year, month, day, hour, minute, second, microseconds, tzinfo=datetime.timezone.utc)


def command_candidates() -> List[str]:
    """The paths tried, in order, for the tolvar command."""
    candidates = []
    override = os.environ.get("TOLVAR_COMMAND")
    if override:
        candidates.append(override)
    try:
        loaded = _library.library_path()
    except OSError:
        loaded = ""  # no library: the command may still be on PATH
    if os.path.sep in loaded:
        folder = os.path.dirname(os.path.abspath(loaded))
        candidates.append(os.path.join(folder, os.pardir, "bin", COMMAND_NAME))
        candidates.append(os.path.join(folder, COMMAND_NAME))
    on_path = shutil.which(COMMAND_NAME)
    if on_path:
        candidates.append(on_path)
    return candidates


def find_command() -> str:
    """The tolvar command's path. Raises TolvarError when there is none."""
    for candidate in command_candidates():
        if os.path.isfile(candidate) and os.access(candidate, os.X_OK):
            return os.path.normpath(candidate)
    raise TolvarError("the tolvar command was not found (set TOLVAR_COMMAND to its path)", _library.E_FAILED)


def run_command(arguments: Sequence[str]) -> "subprocess.CompletedProcess[str]":
    """Runs the tolvar command with arguments, capturing its output as text."""
    return subprocess.run([find_command(), *arguments], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                          universal_newlines=True, errors="replace")


def _failure(volume: str, completed: "subprocess.CompletedProcess[str]") -> TolvarError:
    messages = []
    last: Optional[str] = None
    for line in completed.stderr.splitlines():
        match = _RECORD_LINE.match(line)
        if match:
            messages.append((int(match.group(1)), match.group(2)))
        elif line.strip():
            last = line[len("tolvar: "):] if line.startswith("tolvar: ") else line
    kind = NotFoundError if not os.path.exists(volume) else TolvarError
    return kind(last or "tolvar list exited %d" % completed.returncode, _library.E_FAILED, messages)


def list_shadow_copies(volume: "str | os.PathLike[str]") -> List[ShadowCopy]:
    """The shadow copies of volume (a raw volume image or block device;
    ``\\\\.\\C:`` on Windows), in creation order, oldest first.

    Raises NotFoundError when the volume does not exist, TolvarError when its
    store cannot be read (``messages`` then holds the error queue's records).
    """
    path = os.fspath(volume)
    completed = run_command(["list", path, "--json"])
    if completed.returncode != 0:
        raise _failure(path, completed)
    listing = json.loads(completed.stdout)
    return [ShadowCopy(shadow_copy_id=copy["shadow_copy_id"], set_id=copy["set_id"],
                       store_id=copy["store_identifier"], volume_size=int(copy["volume_size"]),
                       created=parse_time(copy["created"])) for copy in listing["shadow_copies"]]
