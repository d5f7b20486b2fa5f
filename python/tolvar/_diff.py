"""The changed blocks between two shadow copies: a tracking handle."""

from __future__ import annotations

import ctypes
import os
from typing import Iterable, Iterator, Optional, Tuple, Union

from . import _library
from ._errors import NotFoundError, TolvarError

PathText = Union[str, "os.PathLike[str]"]

#: Bytes of the volume in one block when none is given.
DEFAULT_BLOCK_SIZE = 65536


def _text(value: PathText) -> bytes:
    return os.fsencode(value) if isinstance(value, os.PathLike) else value.encode("utf-8")


def _count_set_bits(bitmap: bytes) -> int:
    return bin(int.from_bytes(bitmap, "little")).count("1")


class Diff:
    """A tracking handle: the blocks that changed on a volume from an older
    shadow copy to a newer one.

    Made by :func:`tolvar.open` or :meth:`exclude`. Use it as a context
    manager, or call :meth:`close`, to free the handle. One thread at a time.
    """

    def __init__(self, handle: ctypes.c_void_p, block_size: int) -> None:
        self._handle: Optional[ctypes.c_void_p] = handle
        self._block_size = block_size

    # Life of the handle -----------------------------------------------------

    def close(self) -> None:
        """Frees the handle. Calling it again does nothing."""
        if self._handle is not None:
            _library.load().FreeHandle(self._handle)
            self._handle = None

    @property
    def closed(self) -> bool:
        """True once the handle has been freed."""
        return self._handle is None

    def __enter__(self) -> "Diff":
        return self

    def __exit__(self, *exc_info: object) -> None:
        self.close()

    def __del__(self) -> None:
        try:
            self.close()
        except Exception:
            pass

    def _live(self) -> ctypes.c_void_p:
        if self._handle is None:
            raise ValueError("the tolvar handle is closed")
        return self._handle

    # What changed ---------------------------------------------------------

    @property
    def block_size(self) -> int:
        """Bytes of the volume in one block."""
        return self._block_size

    @property
    def bitmap(self) -> bytes:
        """The changed-block bitmap: bit i (least significant first in byte
        i // 8) is set when block i changed. Read afresh on every access, as
        :meth:`exclude` clears bits in the bitmap both handles share."""
        lib = _library.load()
        handle = self._live()
        _library.drain_errors()
        size = ctypes.c_uint64(0)
        status = lib.GetDiffBitmap(handle, None, ctypes.byref(size))
        if status != _library.SIZE_RETURNED:
            raise TolvarError("GetDiffBitmap returned %d" % status, status, _library.drain_errors())
        buffer = ctypes.create_string_buffer(size.value)
        status = lib.GetDiffBitmap(handle, buffer, ctypes.byref(size))
        if status != _library.OK:
            raise TolvarError("GetDiffBitmap returned %d" % status, status, _library.drain_errors())
        return buffer.raw[:size.value]

    @property
    def changed_count(self) -> int:
        """The number of changed blocks: the set bits of :attr:`bitmap`."""
        return _count_set_bits(self.bitmap)

    def changed_blocks(self, compare: bool = False,
                       copy: bool = False) -> Iterator[Tuple[int, Union[bytes, memoryview]]]:
        """Walks the changed blocks in ascending order, read from the newer
        shadow copy, as ``(index, data)``; block i starts at byte
        ``i * block_size`` of the volume.

        With ``compare``, blocks that read the same in both shadow copies may
        be skipped. Each call reads through one buffer: ``data`` is a
        memoryview of it, valid until the next block is read; pass
        ``copy=True`` for a bytes object of its own per block. A handle walks
        once: after the walk has ended, further calls yield nothing.

        Raises TolvarError when a block cannot be read (the walk ends).
        """
        lib = _library.load()
        buffer = ctypes.create_string_buffer(self._block_size)
        view = memoryview(buffer).cast("B")
        size = ctypes.c_uint64()
        index = ctypes.c_uint64()
        while True:
            handle = self._live()
            size.value = self._block_size
            _library.drain_errors()
            status = lib.GetBlock(handle, buffer, ctypes.byref(size), ctypes.byref(index), 1 if compare else 0)
            if status == _library.END_OF_BLOCKS:
                return
            if status != _library.OK:
                raise TolvarError("GetBlock returned %d" % status, status, _library.drain_errors())
            data = view[:size.value]
            yield index.value, (bytes(data) if copy else data)

    def exclude(self, paths: Iterable[PathText]) -> "Diff":
        """A new handle whose changed blocks leave out the blocks of the files
        at paths (inside the volume, from its root, in lower case, e.g.
        ``/documents/report.txt``) in the newer shadow copy.

        The bits are cleared in the bitmap this handle shares with the new
        one. The new handle walks from block 0 and must be closed too.
        Raises NotFoundError when a path is not in the newer shadow copy
        (nothing is excluded then).
        """
        encoded = [_text(path) for path in paths]
        array = (ctypes.c_char_p * (len(encoded) + 1))(*encoded, None)
        made = ctypes.c_void_p()
        _library.drain_errors()
        status = _library.load().ExcludeFiles(self._live(), ctypes.byref(made), array)
        if status != _library.OK:
            raise _file_error("ExcludeFiles", status)
        return Diff(made, self._block_size)

    def file_change_map(self, path: PathText) -> bytes:
        """The change map of the file at path (as for :meth:`exclude`): bit i
        (least significant first in byte i // 8) is set when the file's
        block i (its bytes from ``i * block_size``) changed. Raises
        NotFoundError when the file is not in the newer shadow copy."""
        lib = _library.load()
        handle = self._live()
        encoded = _text(path)
        size = ctypes.c_uint64(0)
        _library.drain_errors()
        status = lib.GetFileChangesMap(handle, encoded, None, ctypes.byref(size))
        if status != _library.SIZE_RETURNED:
            raise _file_error("GetFileChangesMap", status)
        buffer = ctypes.create_string_buffer(max(size.value, 1))
        status = lib.GetFileChangesMap(handle, encoded, buffer, ctypes.byref(size))
        if status != _library.OK:
            raise _file_error("GetFileChangesMap", status)
        return buffer.raw[:size.value]


def _file_error(call: str, status: int) -> TolvarError:
    kind = NotFoundError if status == _library.E_NOT_FOUND else TolvarError
    return kind("%s returned %d" % (call, status), status, _library.drain_errors())


def open(volume: PathText, from_id: str, to_id: str, block_size: int = DEFAULT_BLOCK_SIZE,
         extra_pass: bool = False) -> Diff:
    """Opens a tracking handle on volume (a raw volume image or block device;
    ``\\\\.\\C:`` on Windows) between shadow copy from_id (older) and to_id
    (newer), each as :func:`tolvar.list_shadow_copies` gives it.

    block_size is a multiple of 4096 from 4096 to 131072; extra_pass adds one
    more pass over the newest shadow copy's store. Use the result as a
    context manager: ``with tolvar.open(...) as diff:``.

    Raises NotFoundError when the volume does not exist or a shadow copy is
    not in its store, TolvarError for every other failure.
    """
    handle = ctypes.c_void_p()
    flags = _library.OPTION_ERROR_QUEUE | (_library.OPTION_NEWEST_PASS if extra_pass else 0)
    lib = _library.load()
    _library.drain_errors()
    status = lib.Init(ctypes.byref(handle), _text(volume), from_id.encode("ascii", errors="replace"),
                      to_id.encode("ascii", errors="replace"), block_size, flags)
    if status != _library.OK:
        messages = _library.drain_errors()
        missing = any(code in (_library.ERROR_NO_START, _library.ERROR_NO_END) for code, _ in messages)
        missing = missing or not os.path.exists(volume)
        raise (NotFoundError if missing else TolvarError)("Init returned %d" % status, status, messages)
    return Diff(handle, block_size)
