#!/usr/bin/env python3
"""A minimal backup client of the tolvar library through ctypes: brings an
image of the older shadow copy up to date with the newer one by writing
every changed block into it.

    restore_client.py LIBRARY VOLUME FROM TO IMAGE [BLOCK_SIZE]

LIBRARY is libtolvar.so (or tolvar.dll on Windows). Only the standard library
is used."""
import ctypes
import sys

OK, END_OF_BLOCKS = 0, 2
OPTION_ERROR_QUEUE = 0x20000000


def load(path):
    lib = ctypes.CDLL(path)
    u64p = ctypes.POINTER(ctypes.c_uint64)
    lib.Init.argtypes = [ctypes.POINTER(ctypes.c_void_p), ctypes.c_char_p, ctypes.c_char_p, ctypes.c_char_p,
                         ctypes.c_uint64, ctypes.c_uint32]
    lib.Init.restype = ctypes.c_int32
    lib.GetBlock.argtypes = [ctypes.c_void_p, ctypes.c_void_p, u64p, u64p, ctypes.c_uint8]
    lib.GetBlock.restype = ctypes.c_int32
    lib.FreeHandle.argtypes = [ctypes.c_void_p]
    lib.FreeHandle.restype = None
    lib.GetNextError.argtypes = [ctypes.POINTER(ctypes.c_uint32), ctypes.c_char_p, ctypes.c_uint64]
    lib.GetNextError.restype = ctypes.c_int32
    return lib


def errors(lib):
    """The error queue's messages, oldest first (GetNextError gives the newest first)."""
    records = []
    code = ctypes.c_uint32()
    while True:
        buffer = ctypes.create_string_buffer(10240)
        if lib.GetNextError(ctypes.byref(code), buffer, 10239) != 1:
            return list(reversed(records))
        records.append((code.value, buffer.value.decode("latin-1")))


def main():
    if len(sys.argv) not in (6, 7):
        print(__doc__, file=sys.stderr)
        return 2
    library, volume, older, newer, image = sys.argv[1:6]
    block_size = int(sys.argv[6]) if len(sys.argv) == 7 else 65536
    lib = load(library)
    handle = ctypes.c_void_p()
    status = lib.Init(ctypes.byref(handle), volume.encode(), older.encode(), newer.encode(), block_size,
                      OPTION_ERROR_QUEUE)
    if status != OK:
        for code, text in errors(lib):
            print("error %d: %s" % (code, text), file=sys.stderr)
        print("Init returned %d" % status, file=sys.stderr)
        return 1
    buffer = ctypes.create_string_buffer(block_size)
    size, index = ctypes.c_uint64(), ctypes.c_uint64()
    written = 0
    try:
        with open(image, "r+b") as out:
            while True:
                size.value = block_size
                status = lib.GetBlock(handle, buffer, ctypes.byref(size), ctypes.byref(index), 0)
                if status != OK:
                    break
                out.seek(index.value * block_size)
                out.write(buffer.raw[:size.value])
                written += 1
    finally:
        lib.FreeHandle(handle)
    if status != END_OF_BLOCKS:
        for code, text in errors(lib):
            print("error %d: %s" % (code, text), file=sys.stderr)
        print("the walk ended with %d" % status, file=sys.stderr)
        return 1
    print("%d changed blocks written into %s" % (written, image))
    return 0


if __name__ == "__main__":
    sys.exit(main())
