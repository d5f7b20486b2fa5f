"""The exceptions the package raises."""

from __future__ import annotations

from typing import Iterable, List, Tuple

# The records that the exception's text quotes; all of them are in messages.
_SHOWN_MESSAGES = 3


class TolvarError(Exception):
    """A call into tolvar failed.

    Attributes:
        status: the status code the failing call returned (for example -2,
            bad argument or failure to open; -3, not found), or, for
            failures of the tolvar command, -2.
        messages: the error queue's records for the failure as
            ``(code, text)`` pairs, oldest first (code 1: a read or open
            failed, 2: input of the wrong kind, 3: an on-disk structure of
            the wrong type, 12: the store is inconsistent, 13 and 14: the
            older or newer shadow copy is not in the store).
    """

    def __init__(self, what: str, status: int, messages: Iterable[Tuple[int, str]] = ()) -> None:
        self.status = status
        self.messages: List[Tuple[int, str]] = list(messages)
        text = what
        if self.messages:
            shown = ["error %d: %s" % record for record in self.messages[:_SHOWN_MESSAGES]]
            more = len(self.messages) - len(shown)
            text += ": " + "; ".join(shown) + (" (and %d more)" % more if more else "")
        super().__init__(text)


class NotFoundError(TolvarError, FileNotFoundError):
    """What was asked for does not exist: the volume, a shadow copy in its
    store, or a file in the newer shadow copy (status -3).

    It is also a FileNotFoundError, so ``except FileNotFoundError`` catches it.
    """
