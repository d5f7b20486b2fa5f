"""Unit tests of the image builder's store encoding and block layout (no images needed)."""
import struct
import unittest
import uuid

from vssimage import store_format as fmt
from vssimage.image_builder import aligned_blocks, unused_block_bitmap, with_blocks_set
from vssimage.store_writer import SnapshotStore, StoreFile, StoreSpaceError, encode_ranges, write_store


class AlignedBlocksTest(unittest.TestCase):
    def test_blocks_start_on_16_kib_boundaries_inside_the_clusters(self):
        # 512-byte clusters 10..109: bytes 5120..56320 hold blocks at 16384 and 32768.
        blocks = aligned_blocks(list(range(10, 110)), 512)
        self.assertEqual(blocks, [(16384, 16384 - 5120), (32768, 32768 - 5120)])

    def test_a_block_may_span_two_runs_that_touch_on_the_volume(self):
        clusters = [4, 5] + [6, 7]
        self.assertEqual(aligned_blocks(clusters, 4096), [(16384, 0)])

    def test_a_backward_run_keeps_its_offset_in_the_file(self):
        clusters = [8, 9, 10, 11, 0, 1, 2, 3]
        self.assertEqual(aligned_blocks(clusters, 4096), [(32768, 0), (0, 16384)])

    def test_large_clusters_hold_several_blocks(self):
        self.assertEqual(aligned_blocks([3], 65536), [(196608 + i * 16384, i * 16384) for i in range(4)])


class RangesTest(unittest.TestCase):
    def test_contiguous_blocks_merge_and_gaps_split(self):
        blocks = [(0x10000, 0xC000), (0x14000, 0x10000), (0x20000, 0x14000)]
        payload = encode_ranges(blocks)
        self.assertEqual([struct.unpack_from("<QQQ", payload, i) for i in range(0, len(payload), 24)],
                         [(0x10000, 0xC000, 0x8000), (0x20000, 0x14000, 0x4000)])


class RecordTest(unittest.TestCase):
    def test_pages_chain_by_own_and_next_offsets(self):
        payload = bytes(range(256)) * 100
        pages = fmt.encode_record(fmt.RECORD_BLOCK_LIST, payload, [(0x8000, 0x4000), (0x20000, 0x8000)])
        first, second = pages[0][1], pages[1][1]
        self.assertEqual(first[:16], fmt.STORE_IDENTIFIER.bytes_le)
        self.assertEqual(struct.unpack_from("<IIQQQ", first, 16), (1, 3, 0x4000, 0x8000, 0x20000))
        self.assertEqual(struct.unpack_from("<QQ", second, 32), (0x20000, 0))
        self.assertEqual(first[128:] + second[128:128 + len(payload) - 16256], payload)

    def test_payload_larger_than_its_pages_is_refused(self):
        with self.assertRaises(ValueError):
            fmt.encode_record(fmt.RECORD_BITMAP, bytes(16257), [(0, 0)])

    def test_volume_header_fields(self):
        header = fmt.encode_volume_header(0x123000, 0, uuid.UUID(int=5))
        self.assertEqual(struct.unpack_from("<IIQQQQQ", header, 16), (1, 1, 0x1E00, 0x1E00, 0, 0x123000, 0))
        self.assertEqual(header[64:80], header[80:96])


class BitmapTest(unittest.TestCase):
    def test_block_is_unused_only_when_all_its_clusters_are_free(self):
        # 4 KiB clusters: block 0 = clusters 0..3, block 1 = 4..7, block 2 = 8..11.
        clusters = bytes([0b00000001, 0b00000000])
        bitmap = unused_block_bitmap(clusters, 4096, 3 * 16384, store_blocks=set())
        self.assertEqual(bitmap, bytes([0b110]))

    def test_store_blocks_count_as_unused(self):
        bitmap = unused_block_bitmap(bytes([0xFF, 0xFF]), 4096, 3 * 16384, store_blocks={16384})
        self.assertEqual(bitmap, bytes([0b010]))

    def test_previous_bitmap_adds_the_blocks_kept(self):
        self.assertEqual(with_blocks_set(bytes([0b001]), [32768]), bytes([0b101]))


class StoreWriterTest(unittest.TestCase):
    def make_store(self, block_count, saved):
        store_file = StoreFile(path="/s", file_reference=0x40, allocated_size=block_count * 16384,
                               blocks=[(0x100000 + i * 16384, i * 16384) for i in range(block_count)])
        ids = [uuid.UUID(int=i) for i in range(1, 5)]
        return SnapshotStore(store_identifier=ids[0], shadow_copy_id=ids[1], set_id=ids[2], information_id=ids[3],
                             creation_order=1, creation_time=0, store_file=store_file, saved_blocks=saved,
                             current_bitmap=bytes(8))

    def test_descriptors_point_at_the_saved_contents(self):
        written = {}
        saved = {0x8000: b"\x11" * 16384, 0x0: b"\x22" * 16384}
        result = write_store(self.make_store(10, saved), 1 << 20, lambda offset, data: written.update({offset: data}))
        descriptors = written[result.block_list_offset][128:]
        first = struct.unpack_from(fmt.DESCRIPTOR_LAYOUT, descriptors, 0)
        second = struct.unpack_from(fmt.DESCRIPTOR_LAYOUT, descriptors, 32)
        self.assertEqual(first[0], 0x0)
        self.assertEqual(second[0], 0x8000)
        self.assertEqual(written[first[2]], saved[0x0])
        self.assertEqual(written[second[2]], saved[0x8000])
        self.assertEqual(first[1], first[2] - 0x100000)
        self.assertEqual(descriptors[64:96], bytes(32))
        self.assertEqual(struct.unpack_from("<Q", written[result.store_header_offset], 48)[0],
                         64 + 2 * (2 + 2 * len("TOLVAR-TEST")))

    def test_an_overlay_follows_its_plain_descriptor_and_not_used_ones_sort_in(self):
        written = {}
        store = self.make_store(10, {0x4000: b"\x01" * 16384, 0xC000: b"\x02" * 16384})
        store.overlays = {0x4000: (0x3, b"\x03" * 16384)}
        store.not_used = [0x8000]
        result = write_store(store, 1 << 20, lambda offset, data: written.update({offset: data}))
        payload = written[result.block_list_offset][128:]
        entries = [struct.unpack_from(fmt.DESCRIPTOR_LAYOUT, payload, i * 32) for i in range(4)]
        self.assertEqual([(e[0], e[3], e[4]) for e in entries],
                         [(0x4000, 0, 0), (0x4000, 2, 0x3), (0x8000, 4, 0), (0xC000, 0, 0)])
        self.assertEqual(written[entries[1][2]], b"\x03" * 16384)
        self.assertEqual(result.descriptor_count, 4)

    def test_a_forwarder_names_its_target_and_keeps_no_data_block(self):
        written = {}
        store = self.make_store(10, {0x4000: b"\x01" * 16384, 0xC000: b"\x02" * 16384})
        store.forwarders = {0xC000: 0x40000}
        result = write_store(store, 1 << 20, lambda offset, data: written.update({offset: data}))
        payload = written[result.block_list_offset][128:]
        entries = [struct.unpack_from(fmt.DESCRIPTOR_LAYOUT, payload, i * 32) for i in range(3)]
        self.assertEqual(entries[1], (0xC000, 0x40000, 0, 1, 0))
        self.assertEqual(entries[2], (0, 0, 0, 0, 0))
        self.assertEqual(result.data_blocks, 1)
        self.assertNotIn(b"\x02" * 16384, written.values())

    def test_too_small_a_store_file_is_reported(self):
        saved = {i * 16384: None for i in range(8)}
        with self.assertRaises(StoreSpaceError):
            write_store(self.make_store(6, saved), 1 << 20, lambda offset, data: None)


if __name__ == "__main__":
    unittest.main()
