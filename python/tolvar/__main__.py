"""``python -m tolvar ARGUMENTS...``: the tolvar command.

Hands ARGUMENTS over to the tolvar command that the package finds (see
:mod:`tolvar._listing`), with this process's standard streams, and exits with
its exit code: ``python -m tolvar list VOLUME`` and ``python -m tolvar diff
VOLUME FROM TO`` print what ``tolvar list`` and ``tolvar diff`` print. Exits
127 when no tolvar command is found.
"""

from __future__ import annotations

import subprocess
import sys
from typing import List, Optional

from ._errors import TolvarError
from ._listing import find_command

#: The exit code when there is no tolvar command to hand over to.
EXIT_NO_COMMAND = 127


def main(arguments: Optional[List[str]] = None) -> int:
    """Runs the tolvar command with arguments (default: this process's)."""
    words = sys.argv[1:] if arguments is None else arguments
    try:
        command = find_command()
    except (TolvarError, OSError) as error:
        print("tolvar: %s" % error, file=sys.stderr)
        return EXIT_NO_COMMAND
    return subprocess.call([command, *words])


if __name__ == "__main__":
    sys.exit(main())
