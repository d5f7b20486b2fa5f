"""Finding and loading the tolvar shared library, and the error queue.

The library is looked for, in order: at the path in the environment variable
TOLVAR_LIBRARY; beside this package (a copy of libtolvar.so or tolvar.dll
placed in the package's folder); through the system's loader (the
directories it searches, LD_LIBRARY_PATH among them on Linux).
"""

from __future__ import annotations

import ctypes
import os
import sys
import threading
from typing import List, Optional, Tuple

#: Status codes returned by the exports.
OK = 0
SIZE_RETURNED = 1
END_OF_BLOCKS = 2
E_BLOCK = -1
E_FAILED = -2
E_NOT_FOUND = -3

#: Option bits of Init's flags.
OPTION_NEWEST_PASS = 0x00000001
OPTION_ERROR_QUEUE = 0x20000000

#: Error-queue codes that say a named shadow copy is not in the store.
ERROR_NO_START = 13
ERROR_NO_END = 14

# The longest message the queue keeps, plus room for a terminating NUL.
_MESSAGE_BUFFER_SIZE = 10240

if sys.platform == "win32":
    LIBRARY_NAME = "tolvar.dll"
elif sys.platform == "darwin":
    LIBRARY_NAME = "libtolvar.dylib"
else:
    LIBRARY_NAME = "libtolvar.so"

_lock = threading.Lock()
_loaded: Optional[ctypes.CDLL] = None


def library_candidates() -> List[str]:
    """The names tried, in order, to load the library."""
    candidates = []
    override = os.environ.get("TOLVAR_LIBRARY")
    if override:
        candidates.append(override)
    candidates.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), LIBRARY_NAME))
    candidates.append(LIBRARY_NAME)
    return candidates


def _declare(lib: ctypes.CDLL) -> ctypes.CDLL:
    u64p = ctypes.POINTER(ctypes.c_uint64)
    handle = ctypes.c_void_p
    lib.Init.argtypes = [ctypes.POINTER(handle), ctypes.c_char_p, ctypes.c_char_p, ctypes.c_char_p,
                         ctypes.c_uint64, ctypes.c_uint32]
    lib.Init.restype = ctypes.c_int32
    lib.FreeHandle.argtypes = [handle]
    lib.FreeHandle.restype = None
    lib.GetDiffBitmap.argtypes = [handle, ctypes.c_void_p, u64p]
    lib.GetDiffBitmap.restype = ctypes.c_int32
    lib.GetBlock.argtypes = [handle, ctypes.c_void_p, u64p, u64p, ctypes.c_uint8]
    lib.GetBlock.restype = ctypes.c_int32
    lib.ExcludeFiles.argtypes = [handle, ctypes.POINTER(handle), ctypes.POINTER(ctypes.c_char_p)]
    lib.ExcludeFiles.restype = ctypes.c_int32
    lib.GetFileChangesMap.argtypes = [handle, ctypes.c_char_p, ctypes.c_void_p, u64p]
    lib.GetFileChangesMap.restype = ctypes.c_int32
    lib.GetNextError.argtypes = [ctypes.POINTER(ctypes.c_uint32), ctypes.c_char_p, ctypes.c_uint64]
    lib.GetNextError.restype = ctypes.c_int32
    return lib


def load() -> ctypes.CDLL:
    """The library, loaded on first use and kept for the life of the process.

    Raises OSError naming every place tried when none holds the library.
    """
    global _loaded
    with _lock:
        if _loaded is not None:
            return _loaded
        failures = []
        for candidate in library_candidates():
            # A path that names no file is not worth a load attempt; a bare
            # name goes to the system's loader.
            if os.path.sep in candidate and not os.path.exists(candidate):
                failures.append("%s: no such file" % candidate)
                continue
            try:
                _loaded = _declare(ctypes.CDLL(candidate))
                return _loaded
            except OSError as error:
                failures.append(str(error))
        raise OSError("the tolvar library could not be loaded: " + "; ".join(failures))


def library_path() -> str:
    """The file the loaded library came from (loads it if need be)."""
    return load()._name


def drain_errors() -> List[Tuple[int, str]]:
    """Takes every record off the process-wide error queue, oldest first.

    GetNextError gives the newest record first, so the list is reversed.
    """
    lib = load()
    records = []
    code = ctypes.c_uint32()
    while True:
        buffer = ctypes.create_string_buffer(_MESSAGE_BUFFER_SIZE)
        # One byte less than the buffer: GetNextError writes no terminator.
        if lib.GetNextError(ctypes.byref(code), buffer, _MESSAGE_BUFFER_SIZE - 1) != 1:
            break
        records.append((code.value, buffer.value.decode("utf-8", errors="replace")))
    records.reverse()
    return records
