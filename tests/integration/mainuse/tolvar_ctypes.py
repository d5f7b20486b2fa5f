"""The exports of the tolvar shared library through ctypes, for tests."""
import ctypes
import os

OK, SIZE_RETURNED, END_OF_BLOCKS = 0, 1, 2
E_BLOCK, E_FAILED, E_NOT_FOUND = -1, -2, -3
OPTION_NEWEST_PASS = 0x00000001
OPTION_ERROR_QUEUE = 0x20000000


class Library:
    def __init__(self, path):
        lib = ctypes.CDLL(path)
        u64p = ctypes.POINTER(ctypes.c_uint64)
        lib.Init.argtypes = [ctypes.POINTER(ctypes.c_void_p), ctypes.c_char_p, ctypes.c_char_p,
                             ctypes.c_char_p, ctypes.c_uint64, ctypes.c_uint32]
        lib.Init.restype = ctypes.c_int32
        lib.FreeHandle.argtypes = [ctypes.c_void_p]
        lib.FreeHandle.restype = None
        lib.GetDiffBitmap.argtypes = [ctypes.c_void_p, ctypes.c_void_p, u64p]
        lib.GetDiffBitmap.restype = ctypes.c_int32
        lib.GetBlock.argtypes = [ctypes.c_void_p, ctypes.c_void_p, u64p, u64p, ctypes.c_uint8]
        lib.GetBlock.restype = ctypes.c_int32
        lib.ExcludeFiles.argtypes = [ctypes.c_void_p, ctypes.POINTER(ctypes.c_void_p), ctypes.c_void_p]
        lib.ExcludeFiles.restype = ctypes.c_int32
        lib.GetFileChangesMap.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_void_p, u64p]
        lib.GetFileChangesMap.restype = ctypes.c_int32
        lib.GetNextError.argtypes = [ctypes.POINTER(ctypes.c_uint32), ctypes.c_void_p, ctypes.c_uint64]
        lib.GetNextError.restype = ctypes.c_int32
        self.lib = lib

    def init(self, volume, older, newer, block_size, flags=OPTION_ERROR_QUEUE):
        """(status, handle)"""
        handle = ctypes.c_void_p()
        status = self.lib.Init(ctypes.byref(handle), volume.encode(), older.encode(), newer.encode(),
                               block_size, flags)
        return status, handle

    def free(self, handle):
        self.lib.FreeHandle(handle)

    def bitmap(self, handle):
        size = ctypes.c_uint64(0)
        status = self.lib.GetDiffBitmap(handle, None, ctypes.byref(size))
        if status != SIZE_RETURNED:
            raise RuntimeError("GetDiffBitmap size query returned %d" % status)
        buffer = ctypes.create_string_buffer(size.value)
        status = self.lib.GetDiffBitmap(handle, buffer, ctypes.byref(size))
        if status != OK:
            raise RuntimeError("GetDiffBitmap returned %d" % status)
        return buffer.raw[:size.value]

    def exclude(self, handle, paths):
        """(status, new handle) of ExcludeFiles with paths."""
        array = (ctypes.c_char_p * (len(paths) + 1))(*[path.encode() for path in paths], None)
        made = ctypes.c_void_p()
        status = self.lib.ExcludeFiles(handle, ctypes.byref(made), array)
        return status, made

    def file_map(self, handle, path):
        """The change map of path: the size query, then the map."""
        size = ctypes.c_uint64(0)
        status = self.lib.GetFileChangesMap(handle, path.encode(), None, ctypes.byref(size))
        if status != SIZE_RETURNED:
            raise RuntimeError("GetFileChangesMap size query returned %d" % status)
        if size.value == 0:
            return b""
        buffer = ctypes.create_string_buffer(size.value)
        status = self.lib.GetFileChangesMap(handle, path.encode(), buffer, ctypes.byref(size))
        if status != OK:
            raise RuntimeError("GetFileChangesMap returned %d" % status)
        return buffer.raw[:size.value]

    def blocks(self, handle, block_size, compare=False):
        """Walks GetBlock to its end: yields (index, bytes); returns with the final status."""
        buffer = ctypes.create_string_buffer(block_size)
        index = ctypes.c_uint64(0)
        while True:
            size = ctypes.c_uint64(block_size)
            status = self.lib.GetBlock(handle, buffer, ctypes.byref(size), ctypes.byref(index), 1 if compare else 0)
            if status != OK:
                self.last_walk_status = status
                return
            if size.value != block_size:
                raise RuntimeError("GetBlock gave %d bytes for a block of %d" % (size.value, block_size))
            yield index.value, buffer.raw[:block_size]

    def errors(self):
        """Drains the error queue: [(code, text)], newest first."""
        records = []
        code = ctypes.c_uint32(0)
        while True:
            buffer = ctypes.create_string_buffer(10240)
            if self.lib.GetNextError(ctypes.byref(code), buffer, 10239) != 1:
                return records
            records.append((code.value, buffer.value.decode("latin-1")))


def set_bits(bitmap):
    """The indices of the set bits, ascending."""
    bits = []
    for byte_index, byte in enumerate(bitmap):
        if byte:
            for bit in range(8):
                if byte >> bit & 1:
                    bits.append(byte_index * 8 + bit)
    return bits


def changed_bitmap_length(volume_size, block_size):
    """Bytes of a handle's changed-block bitmap for a volume and block size."""
    blocks = -(-volume_size // 16384)
    store_bytes = max(-(-blocks // 8), 1)
    return max(-(-(store_bytes * 131072 // block_size) // 8), 1)


def tool_environment():
    """The environment for programs the tests start: without the sanitizer
    runtimes that a sanitized test preloads into Python for the library."""
    environment = dict(os.environ)
    environment.pop("LD_PRELOAD", None)
    return environment


def build_default_image(tool, prefix):
    """Builds the image builder's `default` scenario at prefix and returns its
    snapshots from the manifest; exits 77 when images cannot be made here."""
    import json
    import subprocess
    import sys
    built = subprocess.run([tool, "build", "default", "-o", prefix], env=tool_environment())
    if built.returncode == 77:
        print("SKIP: the image builder cannot make images on this machine")
        sys.exit(77)
    if built.returncode != 0:
        sys.exit("the image builder failed with %d" % built.returncode)
    with open(prefix + ".manifest.json") as handle:
        return json.load(handle)["snapshots"]
