"""Builds an NTFS image with a shadow-copy store from a scenario."""
import contextlib
import hashlib
import json
import mmap
import os
import re
import subprocess
import tempfile
import uuid

from . import fuse_writes
from . import ntfs_facts
from . import scenario as scenarios
from . import store_format as fmt
from .file_operations import FileOperations, SMALLEST_NON_RESIDENT
from .fuse_mount import FuseError, FuseMount, MountUnavailable
from .store_writer import SnapshotStore, StoreFile, write_catalog, write_store

# Folder that holds the store files, as Windows names it.
STORE_DIRECTORY = "System Volume Information"
# Name of the catalog file, and the suffix of every store file's name.
STORE_FILE_SUFFIX = "{%s}" % fmt.STORE_IDENTIFIER
# Catalog file size, as Windows allocates it.
CATALOG_SIZE = 64 * 1024
# Namespace of the identifiers the tool derives from scenario names.
IDENTIFIER_NAMESPACE = uuid.uuid5(uuid.NAMESPACE_URL, "https://tolvar.invalid/mkvssimage")
# Store blocks every store file gets beyond the estimate of its data blocks and bitmaps:
# store header, block range list and the NTFS metadata (MFT records, indexes, $Bitmap,
# $LogFile) a step touches.
STORE_SLACK_BLOCKS = 64
SECTOR_SIZE = 512
# Fillers of the parts of plain and overlay data blocks that a reader must not show.
PLAIN_FILL = b"\xEE"
OVERLAY_FILL = b"\xDD"
# Block stride between the offsets of not-used descriptors.
NOT_USED_STRIDE = 7919


class BuildError(Exception):
    """The scenario could not be turned into an image."""


def derived_identifier(scenario_name, *parts):
    return uuid.uuid5(IDENTIFIER_NAMESPACE, "/".join((scenario_name,) + tuple(str(p) for p in parts)))


def store_file_name(store_identifier):
    return "{%s}%s" % (store_identifier, STORE_FILE_SUFFIX)


class ImageBuilder:
    """Makes PREFIX.img, PREFIX.snapshotN.img and PREFIX.manifest.json from a scenario."""

    def __init__(self, scenario, prefix, cluster_size=None, volume_size=None):
        # The loaded scenario (a dict).
        self.scenario = scenario
        # Path prefix of everything written.
        self.prefix = prefix
        # Cluster size and volume size: the caller's, else the scenario's.
        self.cluster_size = cluster_size or scenarios.parse_size(scenario.get("cluster_size", 4096))
        self.volume_size = volume_size or scenarios.parse_size(scenario["volume_size"])
        # The image being built.
        self.image = prefix + ".img"
        # Snapshot entries of the scenario, in creation order.
        self.snapshot_steps = [step["snapshot"] for step in scenario["steps"] if "snapshot" in step]
        # Per snapshot: image path, cluster bitmap, creation time.
        self.captured = []
        # Per step: what the manifest says about it.
        self.step_records = []
        # Where the volume is mounted while steps run.
        self.mountpoint = None

    # The whole build --------------------------------------------------------

    def build(self):
        self.format_volume()
        with tempfile.TemporaryDirectory(prefix="mkvssimage-") as mountpoint:
            self.mountpoint = mountpoint
            catalog, store_files = self.preallocate_store_files()
            write_at(self.image, fmt.VOLUME_HEADER_OFFSET,
                     fmt.encode_volume_header(catalog.blocks[0][0], self.maximum_store_size(store_files),
                                              self.volume_identifier()))
            self.run_steps()
        stores = self.describe_stores(catalog, store_files)
        written = self.write_stores(catalog, stores)
        manifest = self.write_manifest(catalog, stores, written)
        release_zero_ranges(self.image)
        return manifest

    def volume_identifier(self):
        return derived_identifier(self.scenario["name"], "volume")

    def maximum_store_size(self, store_files):
        return sum(store.allocated_size for store in store_files)

    def format_volume(self):
        format_volume(self.image, self.volume_size, self.cluster_size,
                      self.scenario.get("label", self.scenario["name"]))

    def clock_at(self, step_index):
        return scenarios.clock_seconds(self.scenario) + step_index * scenarios.STEP_SECONDS

    # Store files --------------------------------------------------------------

    def store_size(self, snapshot_index):
        """Bytes to preallocate for one snapshot's store file."""
        entry = self.snapshot_steps[snapshot_index]
        if "store_size" in entry or "store_size" in self.scenario:
            return scenarios.parse_size(entry.get("store_size", self.scenario.get("store_size")))
        blocks = STORE_SLACK_BLOCKS + 2 * fmt.pages_for(fmt.bitmap_size(self.volume_size))
        for op in self.ops_after_snapshot(snapshot_index):
            blocks += estimated_blocks(op, self.cluster_size)
        if entry.get("overlays"):
            # A split block takes two data blocks.
            blocks *= 2
        blocks += fmt.pages_for(blocks * fmt.DESCRIPTOR_SIZE)
        # One more block for a file whose clusters do not start on a 16 KiB boundary.
        return round_up((blocks + 1) * fmt.BLOCK_SIZE, self.cluster_size)

    def ops_after_snapshot(self, snapshot_index):
        seen = -1
        for step in self.scenario["steps"]:
            if "snapshot" in step:
                seen += 1
                if seen > snapshot_index:
                    return
            elif seen == snapshot_index:
                yield from step["ops"]

    def store_identifier(self, index):
        given = self.snapshot_steps[index].get("store_identifier")
        return uuid.UUID(given) if given else derived_identifier(self.scenario["name"], index + 1, "store")

    def preallocate_store_files(self):
        """Writes the catalog file and one zero-filled store file per snapshot."""
        files = [(STORE_FILE_SUFFIX, catalog_file_size(len(self.snapshot_steps), self.cluster_size))]
        for index in range(len(self.snapshot_steps)):
            files.append((store_file_name(self.store_identifier(index)), self.store_size(index)))
        described = preallocate_store_files(self.image, self.mountpoint, self.cluster_size,
                                            scenarios.clock_text(self.clock_at(0)), files)
        return described[0], described[1:]

    # Steps ----------------------------------------------------------------------

    def run_steps(self):
        for index, step in enumerate(self.scenario["steps"]):
            if "ops" in step:
                self.run_operations(index, step)
            else:
                self.capture_snapshot(index)

    def run_operations(self, index, step):
        operations = FileOperations(self.mountpoint, self.cluster_size)
        with FuseMount(self.image, self.mountpoint, scenarios.clock_text(self.clock_at(index))):
            for number, op in enumerate(step["ops"]):
                operations.run(op, index * 1000 + number)
        record = {"step": index, "kind": "operations", "changed_files": operations.changed}
        if operations.notes:
            record["notes"] = operations.notes
        self.step_records.append(record)

    def capture_snapshot(self, index):
        number = len(self.captured) + 1
        path = "%s.snapshot%d.img" % (self.prefix, number)
        subprocess.run(["cp", "--sparse=always", self.image, path], check=True)
        self.captured.append({"image": path, "cluster_bitmap": ntfs_facts.cluster_bitmap(path),
                              "time": self.clock_at(index)})
        self.step_records.append({"step": index, "kind": "snapshot", "creation_order": number})

    # The store ------------------------------------------------------------------

    def describe_stores(self, catalog, store_files):
        """What each snapshot's store keeps: the blocks the next step changed, bitmaps, descriptor kinds."""
        store_blocks = set()
        for store_file in [catalog] + store_files:
            store_blocks.update(offset for offset, _ in store_file.blocks)
        later_images = [entry["image"] for entry in self.captured[1:]] + [self.image]
        changes = [changed_blocks(entry["image"], later, store_blocks)
                   for entry, later in zip(self.captured, later_images)]
        stores = []
        previous = None
        for index, entry in enumerate(self.captured):
            current = unused_block_bitmap(entry["cluster_bitmap"], self.cluster_size, self.volume_size,
                                          store_blocks)
            store = SnapshotStore(**self.snapshot_identity(index), creation_order=index + 1,
                                  creation_time=entry["time"], store_file=store_files[index],
                                  saved_blocks=changes[index], current_bitmap=current,
                                  previous_bitmap=previous)
            next_changed = changes[index + 1] if index + 1 < len(changes) else {}
            self.choose_descriptor_kinds(store, stores, later_images[index], next_changed, store_blocks)
            stores.append(store)
            previous = with_blocks_set(current, changes[index])
        return stores

    def snapshot_identity(self, index):
        """The identifiers of snapshot index: the scenario's, else derived from its name."""
        given = self.snapshot_steps[index]
        name = self.scenario["name"]

        def identifier(key, label):
            return uuid.UUID(given[key]) if key in given else derived_identifier(name, index + 1, label)

        return {"store_identifier": self.store_identifier(index),
                "shadow_copy_id": identifier("shadow_copy_id", "shadow copy"),
                "set_id": identifier("set_id", "set"),
                "information_id": derived_identifier(name, index + 1, "information")}

    def choose_descriptor_kinds(self, store, older_stores, later_image, next_changed, store_blocks):
        """Overlays, forwarders and not-used descriptors, where the snapshot asks for them."""
        given = self.snapshot_steps[store.creation_order - 1]
        changed = store.saved_blocks
        if given.get("overlays"):
            # libvshadow lays a store's overlays only over reads of that same snapshot; an
            # older snapshot reading through this store sees the plain block alone. So only
            # blocks that every older store keeps itself are split.
            kept_by_all_older = [offset for offset in changed
                                 if all(offset in older.saved_blocks for older in older_stores)]
            store.overlays = split_into_overlays(changed, kept_by_all_older, later_image)
        if given.get("forwarders"):
            candidates = [offset for offset in sorted(changed) if offset not in store.overlays]
            store.forwarders = choose_forwarders(changed, candidates, later_image,
                                                 store_blocks | set(changed) | set(next_changed),
                                                 given["forwarders"])
        store.not_used = not_used_offsets(given.get("not_used_descriptors", 0), self.volume_size)

    def write_stores(self, catalog, stores):
        descriptor = os.open(self.image, os.O_WRONLY)
        try:
            def sink(offset, data):
                os.pwrite(descriptor, data, offset)
            written = [write_store(store, self.volume_size, sink) for store in stores]
            write_catalog(catalog, self.volume_size, stores, written, sink)
        finally:
            os.close(descriptor)
        return written

    # Manifest ---------------------------------------------------------------------

    def write_manifest(self, catalog, stores, written):
        directory = os.path.dirname(os.path.abspath(self.prefix))
        manifest = {
            "scenario": self.scenario["name"],
            "image": os.path.relpath(self.image, directory),
            "volume_size": self.volume_size,
            "cluster_size": self.cluster_size,
            "volume_identifier": str(self.volume_identifier()),
            "volume_header_offset": fmt.VOLUME_HEADER_OFFSET,
            "catalog": dict(store_file_facts(catalog, self.cluster_size), catalog_offset=catalog.blocks[0][0]),
            "snapshots": [],
            "steps": self.step_records,
        }
        for store, store_written, entry in zip(stores, written, self.captured):
            manifest["snapshots"].append({
                "creation_order": store.creation_order,
                "store_identifier": str(store.store_identifier),
                "shadow_copy_id": str(store.shadow_copy_id),
                "set_id": str(store.set_id),
                "creation_time": scenarios.clock_text(store.creation_time),
                "image": os.path.relpath(entry["image"], directory),
                "store_file": store_file_facts(store.store_file, self.cluster_size),
                "store_header_offset": store_written.store_header_offset,
                "block_list_offset": store_written.block_list_offset,
                "block_range_list_offset": store_written.block_range_list_offset,
                "bitmap_offset": store_written.bitmap_offset,
                "previous_bitmap_offset": store_written.previous_bitmap_offset,
                "descriptors": store_written.descriptor_count,
                "overlay_descriptors": len(store.overlays),
                "not_used_descriptors": len(store.not_used),
                "forwarder_descriptors": len(store.forwarders),
                "changed_block_offsets": sorted(store.saved_blocks),
                "store_blocks_used": store_written.blocks_used,
                "store_blocks_available": store_written.blocks_available,
            })
        path = self.prefix + ".manifest.json"
        with open(path, "w") as handle:
            json.dump(manifest, handle, indent=1)
            handle.write("\n")
        return path


def release_zero_ranges(path):
    """Gives the disk space of the image's all-zero ranges back (the store files are written
    as zeros through ntfs-3g); the image reads the same. Where the file system cannot punch
    holes the image simply keeps its space."""
    subprocess.run(["fallocate", "--dig-holes", path], check=False, stderr=subprocess.DEVNULL)


def store_file_facts(store_file, cluster_size):
    return {
        "path": store_file.path,
        "file_reference": store_file.file_reference,
        "allocated_size": store_file.allocated_size,
        "cluster_runs": [list(run) for run in store_file.cluster_runs],
        "byte_ranges": [[first * cluster_size, count * cluster_size] for first, count in store_file.cluster_runs],
    }


# Helpers ------------------------------------------------------------------------------

def catalog_file_size(snapshot_count, cluster_size):
    """Bytes of the catalog file: 64 KiB as on Windows, more for many snapshots."""
    entries = 2 * snapshot_count + 1
    size = max(CATALOG_SIZE, fmt.pages_for(entries * fmt.CATALOG_ENTRY_SIZE) * fmt.PAGE_SIZE)
    return round_up(size + alignment_slack(cluster_size), cluster_size)


def format_volume(image, volume_size, cluster_size, label):
    """A fresh NTFS volume filling the image file (sparse), formatted with a zero clock."""
    if volume_size % SECTOR_SIZE or cluster_size % SECTOR_SIZE:
        raise BuildError("volume and cluster sizes must be multiples of %d" % SECTOR_SIZE)
    with open(image, "wb") as handle:
        handle.truncate(volume_size)
    command = ["mkntfs", "-T", "-F", "-Q", "-q", "-s", str(SECTOR_SIZE), "-c", str(cluster_size),
               "-L", label[:32], image]
    completed = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    if completed.returncode != 0:
        raise BuildError("mkntfs failed: %s" % completed.stderr.decode(errors="replace"))


def preallocate_store_files(image, mountpoint, cluster_size, clock, files):
    """Writes zero-filled files (name, size) under the store folder; returns them as StoreFiles.

    This is the first mount of a build: if it cannot be made, the machine cannot mount images."""
    with contextlib.ExitStack() as stack:
        try:
            root = stack.enter_context(FuseMount(image, mountpoint, clock))
        except FuseError as error:
            raise MountUnavailable(str(error)) from error
        os.makedirs(os.path.join(root, STORE_DIRECTORY), exist_ok=True)
        for name, size in files:
            fuse_writes.write_zeros(os.path.join(root, STORE_DIRECTORY, name), size)
    return [describe_store_file(image, "/%s/%s" % (STORE_DIRECTORY, name), cluster_size) for name, _ in files]


def describe_store_file(image, path, cluster_size):
    record = ntfs_facts.record_number(image, path)
    file_reference, clusters = ntfs_facts.unnamed_data_clusters(image, record)
    return StoreFile(path=path, file_reference=file_reference, allocated_size=len(clusters) * cluster_size,
                     blocks=aligned_blocks(clusters, cluster_size), cluster_runs=ntfs_facts.cluster_runs(clusters))


def round_up(value, unit):
    return -(-value // unit) * unit


def alignment_slack(cluster_size):
    """Bytes a file may lose to a first cluster that does not start on a 16 KiB boundary."""
    return max(0, fmt.BLOCK_SIZE - cluster_size)


def estimated_blocks(op, cluster_size):
    """16 KiB blocks an operation may change, to size the store file of the snapshot before it."""
    kind = op.get("op")
    size = op.get("size", 0)
    per_file = 2
    if kind in ("write", "overwrite", "append", "compressed", "stream", "truncate"):
        return -(-size // fmt.BLOCK_SIZE) + per_file
    if kind == "sparse":
        data = sum(length for _, length in op.get("data", [])) or size or op.get("file_size", 1 << 20)
        return -(-data // fmt.BLOCK_SIZE) + per_file
    if kind == "many":
        return -(-op["count"] * (size + 2048) // fmt.BLOCK_SIZE) + per_file
    if kind == "tree":
        directories = sum(op.get("fanout", 2) ** level for level in range(op.get("depth", 2)))
        return -(-directories * op.get("files", 1) * (op.get("size", 1000) + 2048) // fmt.BLOCK_SIZE) + per_file
    if kind == "fragmented":
        chunk = max(cluster_size, SMALLEST_NON_RESIDENT)
        return -(-3 * op["runs"] * chunk // fmt.BLOCK_SIZE) + per_file
    if kind == "delete":
        return op.get("size_hint", 64 * 1024) // fmt.BLOCK_SIZE + per_file
    return per_file


def write_at(path, offset, data):
    descriptor = os.open(path, os.O_WRONLY)
    try:
        os.pwrite(descriptor, data, offset)
    finally:
        os.close(descriptor)


def aligned_blocks(clusters, cluster_size):
    """(volume offset, offset in file) of every 16 KiB-aligned block wholly inside the file."""
    byte_runs = []
    file_offset = 0
    for first, count in ntfs_facts.cluster_runs(clusters):
        byte_runs.append((first * cluster_size, count * cluster_size, file_offset))
        file_offset += count * cluster_size
    # Merge runs that continue each other on the volume, so blocks may straddle run boundaries.
    merged = []
    for start, length, logical in byte_runs:
        if merged and merged[-1][0] + merged[-1][1] == start:
            merged[-1] = (merged[-1][0], merged[-1][1] + length, merged[-1][2])
        else:
            merged.append((start, length, logical))
    blocks = []
    for start, length, logical in merged:
        offset = round_up(start, fmt.BLOCK_SIZE)
        while offset + fmt.BLOCK_SIZE <= start + length:
            blocks.append((offset, logical + offset - start))
            offset += fmt.BLOCK_SIZE
    return blocks


def changed_blocks(older_image, newer_image, excluded):
    """Volume offset -> old contents of every 16 KiB block that differs between two images."""
    changed = {}
    with open(older_image, "rb") as older_file, open(newer_image, "rb") as newer_file:
        with mmap.mmap(older_file.fileno(), 0, access=mmap.ACCESS_READ) as older, \
                mmap.mmap(newer_file.fileno(), 0, access=mmap.ACCESS_READ) as newer:
            for offset in range(0, len(older), fmt.BLOCK_SIZE):
                old = older[offset:offset + fmt.BLOCK_SIZE]
                if old != newer[offset:offset + fmt.BLOCK_SIZE] and offset not in excluded:
                    changed[offset] = old + bytes(fmt.BLOCK_SIZE - len(old))
    return changed


def unused_block_bitmap(cluster_bitmap, cluster_size, volume_size, store_blocks):
    """Store bitmap: a block's bit is set when no cluster in it is in use, or when it holds store pages."""
    block_count = -(-volume_size // fmt.BLOCK_SIZE)
    cluster_count = volume_size // cluster_size
    bitmap = bytearray(b"\xff" * fmt.bitmap_size(volume_size))
    # Bits past the last block stay clear.
    for block in range(block_count, len(bitmap) * 8):
        bitmap[block >> 3] &= ~(1 << (block & 7)) & 0xFF
    # Only the stretches of the cluster bitmap with clusters in use need a closer look.
    for stretch in re.finditer(rb"[^\x00]+", cluster_bitmap):
        for byte_index in range(stretch.start(), stretch.end()):
            value = cluster_bitmap[byte_index]
            for bit in range(8):
                cluster = byte_index * 8 + bit
                if not (value >> bit) & 1 or cluster >= cluster_count:
                    continue
                first = cluster * cluster_size // fmt.BLOCK_SIZE
                last = ((cluster + 1) * cluster_size - 1) // fmt.BLOCK_SIZE
                for block in range(first, min(last, block_count - 1) + 1):
                    bitmap[block >> 3] &= ~(1 << (block & 7)) & 0xFF
    for offset in store_blocks:
        block = offset // fmt.BLOCK_SIZE
        bitmap[block >> 3] |= 1 << (block & 7)
    return bytes(bitmap)


def split_into_overlays(changed, candidates, newer_image):
    """Splits blocks of which only some 512-byte sectors changed into a plain part and an overlay.

    The plain data block keeps the old contents of the unchanged sectors (the changed ones are
    filled with PLAIN_FILL); the overlay's data block keeps the old contents of the changed
    sectors (the rest filled with OVERLAY_FILL), and its allocation bitmap names them. A reader
    must lay the overlay over the plain block to see the old contents. Returns the overlays and
    rewrites the plain blocks in changed."""
    sectors = fmt.BLOCK_SIZE // fmt.OVERLAY_SECTOR_SIZE
    overlays = {}
    with open(newer_image, "rb") as newer:
        for offset in candidates:
            old = changed[offset]
            newer.seek(offset)
            new = newer.read(fmt.BLOCK_SIZE)
            plain, overlay = bytearray(old), bytearray(old)
            bits = 0
            for sector in range(sectors):
                piece = slice(sector * fmt.OVERLAY_SECTOR_SIZE, (sector + 1) * fmt.OVERLAY_SECTOR_SIZE)
                if old[piece] != new[piece]:
                    bits |= 1 << sector
                    plain[piece] = PLAIN_FILL * fmt.OVERLAY_SECTOR_SIZE
                else:
                    overlay[piece] = OVERLAY_FILL * fmt.OVERLAY_SECTOR_SIZE
            if 0 < bits < (1 << sectors) - 1:
                changed[offset] = bytes(plain)
                overlays[offset] = (bits, bytes(overlay))
    return overlays


def choose_forwarders(changed, candidates, newer_image, excluded, limit):
    """Forwarders for up to limit changed blocks whose old contents the newer state holds elsewhere.

    A forwarder sends a reader of block B to block B' of the next newer state. B' is taken
    only where the newer image holds exactly B's old contents, B' itself is not kept by this
    store (a plain descriptor for B' would take the forwarder's place) nor by the next one,
    and no two forwarders share a target. Returns original offset -> target offset."""
    wanted = {hashlib.blake2b(changed[offset], digest_size=16).digest() for offset in candidates}
    holders = {}
    with open(newer_image, "rb") as newer:
        offset = 0
        while True:
            block = newer.read(fmt.BLOCK_SIZE)
            if len(block) < fmt.BLOCK_SIZE:
                break
            digest = hashlib.blake2b(block, digest_size=16).digest()
            if digest in wanted and offset not in excluded:
                holders.setdefault(digest, []).append(offset)
            offset += fmt.BLOCK_SIZE
    forwarders = {}
    for original in candidates:
        if len(forwarders) >= limit:
            break
        targets = holders.get(hashlib.blake2b(changed[original], digest_size=16).digest())
        if targets:
            forwarders[original] = targets.pop(0)
    return forwarders


def not_used_offsets(count, volume_size):
    """count block offsets spread over the volume (a prime stride), for descriptors flagged not used."""
    block_count = volume_size // fmt.BLOCK_SIZE
    return [(number * NOT_USED_STRIDE % block_count) * fmt.BLOCK_SIZE for number in range(count)]


def with_blocks_set(bitmap, offsets):
    """A copy of bitmap with the bits of the given block offsets set."""
    result = bytearray(bitmap)
    for offset in offsets:
        block = offset // fmt.BLOCK_SIZE
        result[block >> 3] |= 1 << (block & 7)
    return bytes(result)
