"""Lays out and encodes the store: what goes into which 16 KiB block of the store files."""
import struct
from dataclasses import dataclass, field
from typing import Dict, List, Optional, Tuple
import uuid

from . import store_format as fmt


@dataclass
class StoreFile:
    """A preallocated file under "System Volume Information" that holds store pages."""
    # Path inside the volume.
    path: str
    # NTFS file reference (record number | sequence << 48).
    file_reference: int
    # Allocated size of the file's data in bytes.
    allocated_size: int
    # 16 KiB-aligned volume blocks lying wholly inside the file: (volume offset, offset in file).
    blocks: List[Tuple[int, int]]
    # The file's clusters as (first cluster, count) runs, for the manifest.
    cluster_runs: List[Tuple[int, int]] = field(default_factory=list)


@dataclass
class SnapshotStore:
    """Everything the writer needs to know about one snapshot's store."""
    # The GUID in the store file's name and in the catalog.
    store_identifier: uuid.UUID
    # The caller's snapshot identifier.
    shadow_copy_id: uuid.UUID
    # The snapshot set identifier.
    set_id: uuid.UUID
    # Identifier at the head of the store information (not used by readers).
    information_id: uuid.UUID
    # 1 for the oldest snapshot.
    creation_order: int
    # Unix time of the snapshot.
    creation_time: int
    # The file that holds this store.
    store_file: StoreFile
    # Old contents of each 16 KiB block the next step changed: volume offset -> bytes
    # (None: leave the data block unwritten, for images whose bulk stays sparse).
    saved_blocks: Dict[int, Optional[bytes]]
    # Current bitmap: a set bit marks a block not in use when the snapshot was taken.
    current_bitmap: bytes
    # Previous bitmap, or None for a store without one.
    previous_bitmap: Optional[bytes] = None
    # Store information fields copied from a Windows 10 store.
    context: int = 0x0D
    provider_value: int = 2
    attribute_flags: int = 0x0042000D
    machine_name: str = "TOLVAR-TEST"
    # Catalog definition flags.
    definition_flags: int = 0x40
    # Blocks described by a plain descriptor followed by an overlay: volume offset ->
    # (allocation bitmap, overlay data block). Each bit of the bitmap stands for 512 bytes
    # whose old contents come from the overlay's data block rather than the plain one.
    overlays: Dict[int, Tuple[int, bytes]] = field(default_factory=dict)
    # Blocks described by a forwarder: volume offset -> offset of the block of the next newer
    # state that holds the same contents.
    forwarders: Dict[int, int] = field(default_factory=dict)
    # Volume offsets of extra descriptors flagged "not used", which readers skip.
    not_used: List[int] = field(default_factory=list)
    # When set, the descriptors share this many data blocks in turn instead of one each
    # (large benchmark volumes whose saved contents do not matter).
    shared_data_blocks: Optional[int] = None


@dataclass
class WrittenStore:
    """Where one store's records landed, for the manifest."""
    store_header_offset: int = 0
    block_list_offset: int = 0
    block_range_list_offset: int = 0
    bitmap_offset: int = 0
    previous_bitmap_offset: int = 0
    descriptor_count: int = 0
    data_blocks: int = 0
    blocks_used: int = 0
    blocks_available: int = 0


class StoreSpaceError(Exception):
    """A store file is too small for what its snapshot must keep."""


class BlockAllocator:
    """Hands out a store file's aligned blocks in file order."""

    def __init__(self, store_file):
        self._blocks = store_file.blocks
        self._path = store_file.path
        self._next = 0

    def peek(self, skip, count):
        """The blocks that take() would hand out after skipping skip blocks."""
        return self._blocks[self._next + skip:self._next + skip + count]

    def take(self, count):
        if self._next + count > len(self._blocks):
            raise StoreSpaceError("%s: %d blocks of 16 KiB are not enough; raise the scenario's store_size"
                                  % (self._path, len(self._blocks)))
        taken = self._blocks[self._next:self._next + count]
        self._next += count
        return taken

    @property
    def used(self):
        return self._next


def write_store(snapshot, volume_size, sink):
    """Encodes one snapshot's store into its store file's blocks.

    sink(volume_offset, data) receives every page and data block. Returns a WrittenStore.
    """
    allocator = BlockAllocator(snapshot.store_file)
    result = WrittenStore(blocks_available=len(snapshot.store_file.blocks))
    originals = sorted(offset for offset in snapshot.saved_blocks if offset not in snapshot.forwarders)
    descriptor_count = (len(originals) + len(snapshot.overlays) + len(snapshot.forwarders)
                        + len(snapshot.not_used))
    descriptor_pages = fmt.pages_for(descriptor_count * fmt.DESCRIPTOR_SIZE)
    bitmap_pages = fmt.pages_for(fmt.bitmap_size(volume_size))

    # Same order as Windows: store header, block list, block range list, then the rest.
    header_pages = allocator.take(1)
    list_pages = allocator.take(descriptor_pages)
    data_block_count = len(originals) + len(snapshot.overlays)
    if snapshot.shared_data_blocks is not None:
        data_block_count = min(data_block_count, snapshot.shared_data_blocks)
    range_page_count = range_pages_needed(allocator, data_block_count)
    range_pages = allocator.take(range_page_count)
    data_blocks = allocator.take(data_block_count)
    range_payload = encode_ranges(data_blocks)
    bitmap_pages_taken = allocator.take(bitmap_pages)
    previous_pages = allocator.take(bitmap_pages) if snapshot.previous_bitmap is not None else []

    information = fmt.encode_store_information(
        snapshot.information_id, snapshot.shadow_copy_id, snapshot.set_id, snapshot.context,
        snapshot.provider_value, snapshot.attribute_flags, snapshot.machine_name)
    emit(sink, fmt.encode_record(fmt.RECORD_STORE_HEADER, information, header_pages, len(information)))

    descriptors = encode_block_list(snapshot, originals, data_blocks, sink)
    emit(sink, fmt.encode_record(fmt.RECORD_BLOCK_LIST, descriptors, list_pages))
    emit(sink, fmt.encode_record(fmt.RECORD_BLOCK_RANGE_LIST, range_payload, range_pages))
    emit(sink, fmt.encode_record(fmt.RECORD_BITMAP, snapshot.current_bitmap, bitmap_pages_taken))
    if previous_pages:
        emit(sink, fmt.encode_record(fmt.RECORD_BITMAP, snapshot.previous_bitmap, previous_pages))

    result.store_header_offset = header_pages[0][0]
    result.block_list_offset = list_pages[0][0]
    result.block_range_list_offset = range_pages[0][0]
    result.bitmap_offset = bitmap_pages_taken[0][0]
    result.previous_bitmap_offset = previous_pages[0][0] if previous_pages else 0
    result.descriptor_count = descriptor_count
    result.data_blocks = len(data_blocks)
    result.blocks_used = allocator.used
    return result


def encode_block_list(snapshot, originals, data_blocks, sink):
    """Block list payload; the old contents go to the data blocks through sink on the way.

    Plain descriptors use the data blocks in turn (more than once when they are shared),
    overlays the data blocks after them."""
    entries = []
    for number, original in enumerate(originals):
        data_offset, relative_offset = data_blocks[number % len(data_blocks)]
        entries.append(fmt.encode_descriptor(original, relative_offset, data_offset))
        contents = snapshot.saved_blocks[original]
        if contents is not None:
            sink(data_offset, contents)
    overlay_blocks = data_blocks[len(originals):]
    for original, (data_offset, relative_offset) in zip(sorted(snapshot.overlays), overlay_blocks):
        allocation, contents = snapshot.overlays[original]
        entries.append(fmt.encode_descriptor(original, relative_offset, data_offset,
                                             fmt.DESCRIPTOR_OVERLAY, allocation))
        sink(data_offset, contents)
    # A forwarder's relative offset is the target block's original offset; it keeps no data.
    for original, target in snapshot.forwarders.items():
        entries.append(fmt.encode_descriptor(original, target, 0, fmt.DESCRIPTOR_FORWARDER))
    # Not-used descriptors point at the first data block; readers must not look there.
    unused_target = data_blocks[0] if data_blocks else (0, 0)
    for original in snapshot.not_used:
        entries.append(fmt.encode_descriptor(original, unused_target[1], unused_target[0],
                                             fmt.DESCRIPTOR_NOT_USED))
    # By original offset; for one block the plain descriptor comes before its overlay.
    entries.sort(key=lambda entry: struct.unpack_from("<Q", entry)[0])
    return b"".join(entries)


def range_pages_needed(allocator, data_block_count):
    """Pages the block range list needs when the data blocks follow it directly."""
    count = 1
    while True:
        ranges = encode_ranges(allocator.peek(count, data_block_count))
        needed = fmt.pages_for(len(ranges))
        if needed <= count:
            return count
        count = needed


def encode_ranges(data_blocks):
    """Block range list payload: runs of data blocks contiguous on the volume and in the file."""
    ranges = []
    for volume_offset, relative_offset in data_blocks:
        if ranges:
            start, relative, size = ranges[-1]
            if start + size == volume_offset and relative + size == relative_offset:
                ranges[-1] = (start, relative, size + fmt.BLOCK_SIZE)
                continue
        ranges.append((volume_offset, relative_offset, fmt.BLOCK_SIZE))
    return b"".join(fmt.encode_range(*entry) for entry in ranges)


def write_catalog(catalog_file, volume_size, snapshots, written, sink):
    """Encodes the catalog: per snapshot a definition, then its declaration, oldest first.

    Returns the catalog's volume offset.
    """
    payload = bytearray()
    for snapshot, store in zip(snapshots, written):
        payload += fmt.encode_definition(volume_size, snapshot.store_identifier, snapshot.creation_order,
                                         snapshot.definition_flags, fmt.filetime(snapshot.creation_time))
        payload += fmt.encode_declaration(
            snapshot.store_identifier, store.block_list_offset, store.store_header_offset,
            store.block_range_list_offset, store.bitmap_offset, snapshot.store_file.file_reference,
            snapshot.store_file.allocated_size, store.previous_bitmap_offset)
    # A zeroed entry (type 0) ends the catalog, as Windows leaves it.
    payload += bytes(fmt.CATALOG_ENTRY_SIZE)
    page_count = fmt.pages_for(len(payload))
    if page_count > len(catalog_file.blocks):
        raise StoreSpaceError("%s: %d catalog pages needed, %d available"
                              % (catalog_file.path, page_count, len(catalog_file.blocks)))
    # The catalog fills every aligned block of its file, like the 64 KiB catalog Windows keeps.
    pages = catalog_file.blocks
    emit(sink, fmt.encode_record(fmt.RECORD_CATALOG, bytes(payload), pages))
    return pages[0][0]


def emit(sink, pages):
    for volume_offset, data in pages:
        sink(volume_offset, data)
