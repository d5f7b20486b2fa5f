"""Unit tests of the tool's staged writes and of the same-bytes comparison (no mounts needed)."""
import os
import subprocess
import tempfile
import unittest

import check_deterministic
from vssimage import fuse_writes


class StagedWritesTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory(prefix="mkvssimage-unit-")
        self.addCleanup(self.folder.cleanup)

    def path(self, name):
        return os.path.join(self.folder.name, name)

    def read(self, name):
        with open(self.path(name), "rb") as handle:
            return handle.read()

    def test_write_file_holds_the_data_also_beyond_one_staging_chunk(self):
        data = bytes(range(256)) * (fuse_writes.STAGING_CHUNK // 256 + 7)
        fuse_writes.write_file(self.path("a"), data)
        self.assertEqual(self.read("a"), data)

    def test_write_file_replaces_a_longer_file(self):
        fuse_writes.write_file(self.path("a"), b"x" * 10000)
        fuse_writes.write_file(self.path("a"), b"short")
        self.assertEqual(self.read("a"), b"short")

    def test_pwrite_lands_at_an_odd_offset_and_leaves_the_rest(self):
        fuse_writes.write_file(self.path("a"), b"." * 5000)
        descriptor = os.open(self.path("a"), os.O_WRONLY)
        try:
            fuse_writes.pwrite(descriptor, memoryview(b"abc"), 1000)
            fuse_writes.pwrite(descriptor, b"end", 6000)
        finally:
            os.close(descriptor)
        expected = b"." * 1000 + b"abc" + b"." * 3997 + bytes(1000) + b"end"
        self.assertEqual(self.read("a"), expected)

    def test_write_zeros_writes_every_byte(self):
        fuse_writes.write_zeros(self.path("z"), 3 * 4096 + 5)
        self.assertEqual(self.read("z"), bytes(3 * 4096 + 5))
        # Written, not a hole: the file owns blocks for its data.
        self.assertGreaterEqual(os.stat(self.path("z")).st_blocks * 512, 3 * 4096)


class DifferingOffsetsTest(unittest.TestCase):
    SIZE = 64 << 20

    def setUp(self):
        self.folder = tempfile.TemporaryDirectory(prefix="mkvssimage-unit-")
        self.addCleanup(self.folder.cleanup)
        self.first = os.path.join(self.folder.name, "first")
        self.second = os.path.join(self.folder.name, "second")
        with open(self.first, "wb") as handle:
            handle.truncate(self.SIZE)
            handle.seek(81920)
            handle.write(b"FILE" * 256)
        subprocess.run(["cp", "--sparse=always", self.first, self.second], check=True)

    def poke(self, path, offset, data):
        with open(path, "r+b") as handle:
            handle.seek(offset)
            handle.write(data)

    def offsets(self):
        return check_deterministic.differing_offsets(self.first, self.second, check_deterministic.SHOWN_OFFSETS)

    def test_equal_sparse_files_show_no_offsets(self):
        self.assertEqual(self.offsets(), [])

    def test_a_byte_in_data_and_bytes_in_a_hole_of_one_file_are_found_in_order(self):
        self.poke(self.second, 40 << 20, b"\x01\x02")
        self.poke(self.second, 81969, b"\x57")
        self.assertEqual(self.offsets(), [81969, 40 << 20, (40 << 20) + 1])

    def test_data_written_as_zeros_over_a_hole_is_no_difference(self):
        self.poke(self.second, 20 << 20, bytes(8192))
        self.assertEqual(self.offsets(), [])

    def test_a_longer_file_differs_where_the_shorter_ends(self):
        with open(self.second, "r+b") as handle:
            handle.truncate(self.SIZE + 4096)
        self.assertEqual(self.offsets(), [self.SIZE])

    def test_at_most_the_limit_is_shown(self):
        self.poke(self.second, 100, b"\xff" * 100)
        self.assertEqual(self.offsets(), list(range(100, 100 + check_deterministic.SHOWN_OFFSETS)))


if __name__ == "__main__":
    unittest.main()
