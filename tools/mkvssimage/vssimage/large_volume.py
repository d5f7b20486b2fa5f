"""Large sparse volumes with a large store, for benchmarks.

The NTFS volume is formatted on a sparse image and only the store files are written:
the bulk of the volume stays a hole. Each snapshot's block list names pseudo-random
blocks of the volume; since their old contents do not matter here, the descriptors
share a small pool of data blocks in turn, which keeps the store files small. Descriptor
number j (in ascending order of original offset) of snapshot k uses pool block
j % SHARED_DATA_BLOCKS, which holds pool_block_contents(k, j % SHARED_DATA_BLOCKS).
"""
import json
import os
import random
import struct
import tempfile

from . import ntfs_facts
from . import scenario as scenarios
from . import store_format as fmt
from .image_builder import (STORE_FILE_SUFFIX, catalog_file_size, derived_identifier, format_volume,
                            preallocate_store_files, round_up, store_file_facts, store_file_name,
                            unused_block_bitmap, with_blocks_set, write_at)
from .store_writer import SnapshotStore, write_catalog, write_store

# Name the derived identifiers hang off.
LARGE_NAME = "large"
# Data blocks the descriptors of one store share.
SHARED_DATA_BLOCKS = 256
# Pages a store needs besides its block list, bitmaps and data pool: header, range list, slack.
EXTRA_PAGES = 4
# Largest sizes the mode is meant for.
MAXIMUM_VOLUME_SIZE = 1 << 40
MAXIMUM_DESCRIPTORS = 1_000_000
# With fill: the unit of volume written around each descriptor's block (the
# command's default backup block), and how much of it is incompressible.
FILL_UNIT = 64 * 1024
FILL_RANDOM_PART = FILL_UNIT // 2


def pool_block_contents(creation_order, pool_index):
    """16 KiB that tell which store and which pool block a read came from."""
    return struct.pack("<Q", (creation_order << 32) | pool_index) * (fmt.BLOCK_SIZE // 8)


class LargeVolumeError(Exception):
    """The requested large volume cannot be made."""


def pool_contents(creation_order, originals):
    """saved_blocks of a large store: the first descriptors fill the pool, the rest share it."""
    saved = dict.fromkeys(originals)
    for pool_index, original in enumerate(originals[:SHARED_DATA_BLOCKS]):
        saved[original] = pool_block_contents(creation_order, pool_index)
    return saved


def split(total, parts):
    """total as parts near-equal counts, larger ones first."""
    return [total // parts + (1 if index < total % parts else 0) for index in range(parts)]


def fill_contents(offset):
    """64 KiB for the volume at offset: half pseudo-random bytes, half text, as changed data tends to be."""
    noise = random.Random(offset).randbytes(FILL_RANDOM_PART)
    line = b"block %016x of a changed file, written after the snapshot was taken\n" % offset
    text = (line * (FILL_UNIT // len(line) + 1))[:FILL_UNIT - FILL_RANDOM_PART]
    return noise + text


def free_fill_units(cluster_bitmap, cluster_size, originals):
    """The 64 KiB units around the original blocks in which every cluster is free."""
    clusters_per_unit = FILL_UNIT // cluster_size
    units = sorted({offset - offset % FILL_UNIT for offset in originals})

    def in_use(cluster):
        return cluster // 8 < len(cluster_bitmap) and cluster_bitmap[cluster // 8] >> (cluster % 8) & 1

    return [unit for unit in units
            if not any(in_use(cluster) for cluster in range(unit // cluster_size,
                                                             unit // cluster_size + clusters_per_unit))]


def with_units_in_use(cluster_bitmap, cluster_size, units):
    """A copy of the cluster bitmap with the clusters of the units marked in use."""
    result = bytearray(cluster_bitmap)
    for unit in units:
        for cluster in range(unit // cluster_size, (unit + FILL_UNIT) // cluster_size):
            if cluster // 8 < len(result):
                result[cluster // 8] |= 1 << (cluster % 8)
    return bytes(result)


def fill_units(image, units):
    """Writes each unit's contents over the volume."""
    descriptor = os.open(image, os.O_WRONLY)
    try:
        for unit in units:
            os.pwrite(descriptor, fill_contents(unit), unit)
    finally:
        os.close(descriptor)


def build_large_volume(prefix, volume_size, cluster_size, descriptors, snapshots, seed, fill=False):
    if not 1 <= snapshots or descriptors < 0:
        raise LargeVolumeError("need at least one snapshot and no negative descriptor count")
    if volume_size > MAXIMUM_VOLUME_SIZE or descriptors > MAXIMUM_DESCRIPTORS:
        raise LargeVolumeError("at most 1 TiB and 1,000,000 descriptors")
    image = prefix + ".img"
    clock = scenarios.clock_seconds({})
    format_volume(image, volume_size, cluster_size, "TOLVARLARGE")
    counts = split(descriptors, snapshots)
    identifiers = [derived_identifier(LARGE_NAME, seed, index + 1, "store") for index in range(snapshots)]
    bitmap_pages = fmt.pages_for(fmt.bitmap_size(volume_size))
    files = [(STORE_FILE_SUFFIX, catalog_file_size(snapshots, cluster_size))]
    for identifier, count in zip(identifiers, counts):
        pages = (fmt.pages_for(count * fmt.DESCRIPTOR_SIZE) + 2 * bitmap_pages
                 + min(count, SHARED_DATA_BLOCKS) + EXTRA_PAGES)
        files.append((store_file_name(identifier), round_up((pages + 1) * fmt.PAGE_SIZE, cluster_size)))
    with tempfile.TemporaryDirectory(prefix="mkvssimage-") as mountpoint:
        described = preallocate_store_files(image, mountpoint, cluster_size, scenarios.clock_text(clock), files)
    catalog, store_files = described[0], described[1:]
    volume_identifier = derived_identifier(LARGE_NAME, seed, "volume")
    write_at(image, fmt.VOLUME_HEADER_OFFSET,
             fmt.encode_volume_header(catalog.blocks[0][0], sum(f.allocated_size for f in store_files),
                                      volume_identifier))

    store_blocks = {offset for store_file in described for offset, _ in store_file.blocks}
    block_count = volume_size // fmt.BLOCK_SIZE
    chooser = random.Random(seed)
    chosen_originals = []
    for count in counts:
        chosen = [block * fmt.BLOCK_SIZE for block in chooser.sample(range(block_count),
                                                                      min(block_count, count + len(store_blocks)))]
        originals = sorted(offset for offset in chosen if offset not in store_blocks)[:count]
        if len(originals) < count:
            raise LargeVolumeError("the volume has too few blocks for %d descriptors" % count)
        chosen_originals.append(originals)
    clusters_in_use = ntfs_facts.cluster_bitmap(image)
    filled = []
    if fill:
        # The filled units count as in use in the stores' bitmaps, or the newest
        # shadow copy would read them as zeros.
        filled = free_fill_units(clusters_in_use, cluster_size, [o for originals in chosen_originals for o in originals])
        clusters_in_use = with_units_in_use(clusters_in_use, cluster_size, filled)
    current = unused_block_bitmap(clusters_in_use, cluster_size, volume_size, store_blocks)
    stores = []
    previous = None
    for index, (identifier, originals, store_file) in enumerate(zip(identifiers, chosen_originals, store_files)):
        store = SnapshotStore(
            store_identifier=identifier,
            shadow_copy_id=derived_identifier(LARGE_NAME, seed, index + 1, "shadow copy"),
            set_id=derived_identifier(LARGE_NAME, seed, index + 1, "set"),
            information_id=derived_identifier(LARGE_NAME, seed, index + 1, "information"),
            creation_order=index + 1, creation_time=clock + index * scenarios.STEP_SECONDS,
            store_file=store_file, saved_blocks=pool_contents(index + 1, originals), current_bitmap=current,
            previous_bitmap=previous, shared_data_blocks=SHARED_DATA_BLOCKS)
        stores.append(store)
        previous = with_blocks_set(current, originals)

    descriptor = os.open(image, os.O_WRONLY)
    try:
        def sink(offset, data):
            os.pwrite(descriptor, data, offset)
        written = [write_store(store, volume_size, sink) for store in stores]
        write_catalog(catalog, volume_size, stores, written, sink)
    finally:
        os.close(descriptor)
    fill_units(image, filled)

    manifest = {
        "mode": "large",
        "image": os.path.basename(image),
        "volume_size": volume_size,
        "cluster_size": cluster_size,
        "volume_identifier": str(volume_identifier),
        "catalog": dict(store_file_facts(catalog, cluster_size), catalog_offset=catalog.blocks[0][0]),
        "shared_data_blocks": SHARED_DATA_BLOCKS,
        "filled_units": len(filled),
        "fill_unit": FILL_UNIT,
        "pool_block_contents": "8-byte little-endian (creation order << 32 | pool index), repeated",
        "snapshots": [{
            "creation_order": store.creation_order,
            "store_identifier": str(store.store_identifier),
            "shadow_copy_id": str(store.shadow_copy_id),
            "set_id": str(store.set_id),
            "creation_time": scenarios.clock_text(store.creation_time),
            "image": None,
            "store_file": store_file_facts(store.store_file, cluster_size),
            "descriptors": result.descriptor_count,
            "store_header_offset": result.store_header_offset,
            "block_list_offset": result.block_list_offset,
            "bitmap_offset": result.bitmap_offset,
            "previous_bitmap_offset": result.previous_bitmap_offset,
        } for store, result in zip(stores, written)],
    }
    path = prefix + ".manifest.json"
    with open(path, "w") as handle:
        json.dump(manifest, handle, indent=1)
        handle.write("\n")
    return path
