"""On-disk layout of the shadow-copy store: constants and record encoders.

Every structure is little-endian. GUIDs are written in their on-disk
(little-endian) byte order, that is uuid.UUID.bytes_le.
"""
import struct
import uuid

# The identifier that heads the volume header and every store page.
STORE_IDENTIFIER = uuid.UUID("3808876b-c176-4e48-b7ae-04046e6cc752")

# Size of one store page and of one store data block.
PAGE_SIZE = 16384
# Size of the header at the start of every store page.
PAGE_HEADER_SIZE = 128
# Bytes of record payload carried by one page.
PAGE_PAYLOAD_SIZE = PAGE_SIZE - PAGE_HEADER_SIZE
# Granularity of the store's block map and bitmaps.
BLOCK_SIZE = 16384

# Volume offset of the store's volume header (inside the boot file's 8 KiB).
VOLUME_HEADER_OFFSET = 0x1E00
VOLUME_HEADER_SIZE = 512

# Record types, as found in the page header's record type field.
RECORD_VOLUME_HEADER = 1
RECORD_CATALOG = 2
RECORD_BLOCK_LIST = 3
RECORD_STORE_HEADER = 4
RECORD_BLOCK_RANGE_LIST = 5
RECORD_BITMAP = 6

# Page header fields.
PAGE_IDENTIFIER = 0
PAGE_VERSION = 16
PAGE_RECORD_TYPE = 20
PAGE_RELATIVE_OFFSET = 24
PAGE_OWN_OFFSET = 32
PAGE_NEXT_OFFSET = 40
PAGE_STORE_INFO_SIZE = 48

# Volume header fields.
HEADER_IDENTIFIER = 0
HEADER_VERSION = 16
HEADER_RECORD_TYPE = 20
HEADER_OWN_OFFSET = 24
HEADER_OWN_OFFSET_AGAIN = 32
HEADER_CATALOG_OFFSET = 48
HEADER_MAXIMUM_SIZE = 56
HEADER_VOLUME_IDENTIFIER = 64
HEADER_STORE_VOLUME_IDENTIFIER = 80

# Catalog entries.
CATALOG_ENTRY_SIZE = 128
CATALOG_END = 0
CATALOG_DEFINITION = 2
CATALOG_DECLARATION = 3
ENTRY_TYPE = 0
DEFINITION_VOLUME_SIZE = 8
DEFINITION_STORE_IDENTIFIER = 16
DEFINITION_CREATION_ORDER = 32
DEFINITION_FLAGS = 40
DEFINITION_CREATION_TIME = 48
DECLARATION_BLOCK_LIST_OFFSET = 8
DECLARATION_STORE_IDENTIFIER = 16
DECLARATION_STORE_HEADER_OFFSET = 32
DECLARATION_BLOCK_RANGE_LIST_OFFSET = 40
DECLARATION_BITMAP_OFFSET = 48
DECLARATION_FILE_REFERENCE = 56
DECLARATION_ALLOCATED_SIZE = 64
DECLARATION_PREVIOUS_BITMAP_OFFSET = 72

# Store information, the payload of the store header record.
INFO_IDENTIFIER = 0
INFO_SHADOW_COPY_ID = 16
INFO_SHADOW_COPY_SET_ID = 32
INFO_SNAPSHOT_CONTEXT = 48
INFO_PROVIDER_VALUE = 52
INFO_ATTRIBUTE_FLAGS = 56
INFO_MACHINE_NAMES = 64

# Block descriptors of the block list.
DESCRIPTOR_SIZE = 32
DESCRIPTOR_LAYOUT = "<QQQII"

# Descriptor flags.
DESCRIPTOR_FORWARDER = 0x1
DESCRIPTOR_OVERLAY = 0x2
DESCRIPTOR_NOT_USED = 0x4
# Bytes covered by one bit of an overlay's allocation bitmap.
OVERLAY_SECTOR_SIZE = 512

# Entries of the block range list: volume offset, store offset, size.
RANGE_ENTRY_SIZE = 24
RANGE_ENTRY_LAYOUT = "<QQQ"

# Seconds between the FILETIME epoch (1601) and the Unix epoch.
FILETIME_UNIX_EPOCH = 11644473600


def guid_bytes(value):
    """On-disk bytes of a GUID given as uuid.UUID."""
    return value.bytes_le


def filetime(unix_seconds):
    """FILETIME (100 ns units since 1601) of a Unix time in seconds."""
    return (int(unix_seconds) + FILETIME_UNIX_EPOCH) * 10_000_000


def encode_page_header(record_type, relative_offset, own_offset, next_offset, store_info_size=0):
    """The 128-byte header of one store page."""
    header = bytearray(PAGE_HEADER_SIZE)
    header[PAGE_IDENTIFIER:PAGE_IDENTIFIER + 16] = guid_bytes(STORE_IDENTIFIER)
    struct.pack_into("<II", header, PAGE_VERSION, 1, record_type)
    struct.pack_into("<QQQ", header, PAGE_RELATIVE_OFFSET, relative_offset, own_offset, next_offset)
    struct.pack_into("<Q", header, PAGE_STORE_INFO_SIZE, store_info_size)
    return bytes(header)


def encode_record(record_type, payload, pages, store_info_size=0):
    """Splits a record's payload over its pages.

    pages: list of (volume offset, relative offset) in chain order; there must be
    room for the payload. Returns a list of (volume offset, 16 KiB page bytes).
    """
    needed = pages_for(len(payload))
    if needed > len(pages):
        raise ValueError("record of %d bytes needs %d pages, got %d" % (len(payload), needed, len(pages)))
    written = []
    for index, (volume_offset, relative_offset) in enumerate(pages):
        next_offset = pages[index + 1][0] if index + 1 < len(pages) else 0
        chunk = payload[index * PAGE_PAYLOAD_SIZE:(index + 1) * PAGE_PAYLOAD_SIZE]
        page = encode_page_header(record_type, relative_offset, volume_offset, next_offset,
                                  store_info_size if index == 0 else 0)
        page += chunk + bytes(PAGE_PAYLOAD_SIZE - len(chunk))
        written.append((volume_offset, page))
    return written


def pages_for(payload_size):
    """Number of pages a record of payload_size bytes occupies (at least one)."""
    return max(1, -(-payload_size // PAGE_PAYLOAD_SIZE))


def encode_volume_header(catalog_offset, maximum_size, volume_identifier):
    """The store's volume header sector written at VOLUME_HEADER_OFFSET."""
    header = bytearray(VOLUME_HEADER_SIZE)
    header[HEADER_IDENTIFIER:HEADER_IDENTIFIER + 16] = guid_bytes(STORE_IDENTIFIER)
    struct.pack_into("<II", header, HEADER_VERSION, 1, RECORD_VOLUME_HEADER)
    struct.pack_into("<QQ", header, HEADER_OWN_OFFSET, VOLUME_HEADER_OFFSET, VOLUME_HEADER_OFFSET)
    struct.pack_into("<QQ", header, HEADER_CATALOG_OFFSET, catalog_offset, maximum_size)
    header[HEADER_VOLUME_IDENTIFIER:HEADER_VOLUME_IDENTIFIER + 16] = guid_bytes(volume_identifier)
    header[HEADER_STORE_VOLUME_IDENTIFIER:HEADER_STORE_VOLUME_IDENTIFIER + 16] = guid_bytes(volume_identifier)
    return bytes(header)


def encode_definition(volume_size, store_identifier, creation_order, flags, creation_time):
    """A catalog entry of type 2: the snapshot's definition."""
    entry = bytearray(CATALOG_ENTRY_SIZE)
    struct.pack_into("<QQ", entry, ENTRY_TYPE, CATALOG_DEFINITION, volume_size)
    entry[DEFINITION_STORE_IDENTIFIER:DEFINITION_STORE_IDENTIFIER + 16] = guid_bytes(store_identifier)
    struct.pack_into("<QQQ", entry, DEFINITION_CREATION_ORDER, creation_order, flags, creation_time)
    return bytes(entry)


def encode_declaration(store_identifier, block_list_offset, store_header_offset, range_list_offset,
                       bitmap_offset, file_reference, allocated_size, previous_bitmap_offset):
    """A catalog entry of type 3: where the snapshot's store records lie."""
    entry = bytearray(CATALOG_ENTRY_SIZE)
    struct.pack_into("<QQ", entry, ENTRY_TYPE, CATALOG_DECLARATION, block_list_offset)
    entry[DECLARATION_STORE_IDENTIFIER:DECLARATION_STORE_IDENTIFIER + 16] = guid_bytes(store_identifier)
    struct.pack_into("<QQQQQQ", entry, DECLARATION_STORE_HEADER_OFFSET, store_header_offset,
                     range_list_offset, bitmap_offset, file_reference, allocated_size,
                     previous_bitmap_offset)
    return bytes(entry)


def encode_store_information(identifier, shadow_copy_id, set_id, context, provider_value,
                             attribute_flags, machine_name):
    """Payload of the store header record."""
    info = bytearray(INFO_MACHINE_NAMES)
    info[INFO_IDENTIFIER:INFO_IDENTIFIER + 16] = guid_bytes(identifier)
    info[INFO_SHADOW_COPY_ID:INFO_SHADOW_COPY_ID + 16] = guid_bytes(shadow_copy_id)
    info[INFO_SHADOW_COPY_SET_ID:INFO_SHADOW_COPY_SET_ID + 16] = guid_bytes(set_id)
    struct.pack_into("<IIII", info, INFO_SNAPSHOT_CONTEXT, context, provider_value, attribute_flags, 0)
    name = machine_name.encode("utf-16-le")
    # The operating machine name, then the service machine name: the same machine.
    for _ in range(2):
        info += struct.pack("<H", len(name)) + name
    return bytes(info)


def encode_descriptor(original_offset, relative_offset, store_data_offset, flags=0, overlay_bitmap=0):
    """One 32-byte block descriptor of a block list."""
    return struct.pack(DESCRIPTOR_LAYOUT, original_offset, relative_offset, store_data_offset,
                       flags, overlay_bitmap)


def encode_range(volume_offset, relative_offset, size):
    """One 24-byte entry of a block range list."""
    return struct.pack(RANGE_ENTRY_LAYOUT, volume_offset, relative_offset, size)


def bitmap_size(volume_size):
    """Bytes of a store bitmap: one bit per 16 KiB block of the volume."""
    blocks = -(-volume_size // BLOCK_SIZE)
    return -(-blocks // 8)
