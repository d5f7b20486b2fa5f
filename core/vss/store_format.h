// The shadow-copy store's on-disk layout, in one place: every offset, size,
// record type and magic value that the store reader, the store-backed
// shadow-copy source and the test builder use, named as the format names
// them. All numbers are little-endian; identifiers are GUIDs in their
// on-disk byte order. The image builder's tools/mkvssimage/vssimage/
// store_format.py holds the same table for the Python writer.
//
// A store is a set of records, each a chain of 16 KiB pages. Every page
// starts with a 128-byte page header; the rest of the page is payload. The
// volume header at 0x1E00 names the catalog, whose entries name, for each
// shadow copy, its store header, block list, block range list and bitmaps.
#ifndef TOLVAR_CORE_VSS_STORE_FORMAT_H_
#define TOLVAR_CORE_VSS_STORE_FORMAT_H_

#include <cstdint>

namespace tolvarcore {
namespace vss {
namespace format {

// ---------------------------------------------------------------------------
// Identifier, pages and blocks.

// The identifier that heads the volume header and every store page,
// 3808876b-c176-4e48-b7ae-04046e6cc752, in its on-disk byte order.
constexpr uint8_t kStoreIdentifierBytes[16] = {0x6b, 0x87, 0x08, 0x38, 0x76, 0xc1, 0x48, 0x4e,
                                               0xb7, 0xae, 0x04, 0x04, 0x6e, 0x6c, 0xc7, 0x52};

constexpr uint64_t kPageSize = 16384;                               // one store page
constexpr uint64_t kPageHeaderSize = 128;                           // the header at the start of every page
constexpr uint64_t kPagePayloadSize = kPageSize - kPageHeaderSize;  // 16256 (0x3F80) bytes of payload per page

// The unit of the block list, the store data blocks and the store bitmaps:
// one descriptor or one bitmap bit covers this many bytes of the volume.
constexpr uint64_t kBlockSize = 16384;
constexpr unsigned kBlockShift = 14;  // offset >> kBlockShift is the block number
static_assert(uint64_t{1} << kBlockShift == kBlockSize, "the block shift names the block size");

// ---------------------------------------------------------------------------
// Record types, in the page header's record type field.

constexpr uint32_t kRecordVolumeHeader = 1;
constexpr uint32_t kRecordCatalog = 2;
constexpr uint32_t kRecordBlockList = 3;
constexpr uint32_t kRecordStoreHeader = 4;
constexpr uint32_t kRecordBlockRangeList = 5;
constexpr uint32_t kRecordBitmap = 6;

// ---------------------------------------------------------------------------
// Page header: the first 128 bytes of every page of a record.

constexpr uint64_t kPageIdentifier = 0;       // 16 bytes: kStoreIdentifierBytes
constexpr uint64_t kPageVersion = 16;         // 4 bytes: 1
constexpr uint64_t kPageRecordType = 20;      // 4 bytes: kRecord*
constexpr uint64_t kPageRelativeOffset = 24;  // 8 bytes: the page's offset within its record
constexpr uint64_t kPageOwnOffset = 32;       // 8 bytes: the page's own volume offset
constexpr uint64_t kPageNextOffset = 40;      // 8 bytes: the next page's volume offset, 0 at the end
constexpr uint64_t kPageStoreInfoSize = 48;   // 8 bytes: the store information's size, first page only

// The reader takes the first 52 bytes of a page header in one read: the
// fields it checks and the link to the next page, and the low half of the
// store information size.
constexpr uint64_t kPageHeaderReadSize = 52;
static_assert(kPageNextOffset + 8 <= kPageHeaderReadSize, "one read covers the link to the next page");
static_assert(kPageHeaderReadSize <= kPageHeaderSize, "the read stays inside the page header");

// ---------------------------------------------------------------------------
// Volume header: one sector at 0x1E00, inside the NTFS boot file's first
// 8 KiB, laid out like a page header up to its own offset.

constexpr uint64_t kVolumeHeaderOffset = 0x1E00;
constexpr uint64_t kVolumeHeaderSize = 512;

constexpr uint64_t kHeaderIdentifier = 0;              // 16 bytes: kStoreIdentifierBytes
constexpr uint64_t kHeaderVersion = 16;                // 4 bytes: 1
constexpr uint64_t kHeaderRecordType = 20;             // 4 bytes: kRecordVolumeHeader
constexpr uint64_t kHeaderOwnOffset = 24;              // 8 bytes: kVolumeHeaderOffset
constexpr uint64_t kHeaderOwnOffsetAgain = 32;         // 8 bytes: kVolumeHeaderOffset once more
constexpr uint64_t kHeaderCatalogOffset = 48;          // 8 bytes: the catalog's first page, 0 without a store
constexpr uint64_t kHeaderMaximumSize = 56;            // 8 bytes: the largest size the store may grow to
constexpr uint64_t kHeaderVolumeIdentifier = 64;       // 16 bytes: the volume's identifier
constexpr uint64_t kHeaderStoreVolumeIdentifier = 80;  // 16 bytes: the identifier of the volume holding the store

// The reader takes the header up to the end of the store volume identifier.
constexpr uint64_t kVolumeHeaderReadSize = kHeaderStoreVolumeIdentifier + 16;  // 96
static_assert(kVolumeHeaderReadSize <= kVolumeHeaderSize, "the read stays inside the header sector");
static_assert(kVolumeHeaderOffset % 512 == 0, "the header is a whole sector");

// ---------------------------------------------------------------------------
// Catalog: the payload of the catalog record, a list of 128-byte entries,
// each an 8-byte type followed by its body.

constexpr uint64_t kCatalogEntrySize = 128;
constexpr uint64_t kEntryType = 0;  // 8 bytes: kCatalogEntry*
constexpr uint64_t kEntryBody = 8;  // the body follows the type

constexpr uint64_t kCatalogEntryEnd = 0;          // ends the catalog
constexpr uint64_t kCatalogEntryUnused = 1;       // a free slot, passed over
constexpr uint64_t kCatalogEntryDefinition = 2;   // a shadow copy's definition
constexpr uint64_t kCatalogEntryDeclaration = 3;  // where a shadow copy's store records lie

// Body of a definition entry (offsets from the body's start).
constexpr uint64_t kDefinitionVolumeSize = 0;       // 8 bytes: the volume's size in bytes
constexpr uint64_t kDefinitionStoreIdentifier = 8;  // 16 bytes: the store's identifier, its name
constexpr uint64_t kDefinitionCreationOrder = 24;   // 8 bytes: ascending with the shadow copies' age
constexpr uint64_t kDefinitionFlags = 32;           // 8 bytes: the store's flags
constexpr uint64_t kDefinitionCreationTime = 40;    // 8 bytes: FILETIME (100 ns since 1601, UTC)
constexpr uint64_t kDefinitionBodySize = 48;

// Body of a declaration entry (offsets from the body's start).
constexpr uint64_t kDeclarationBlockListOffset = 0;        // 8 bytes: first page of the block list
constexpr uint64_t kDeclarationStoreIdentifier = 8;        // 16 bytes: the store's identifier, the lookup key
constexpr uint64_t kDeclarationStoreHeaderOffset = 24;     // 8 bytes: first page of the store header record
constexpr uint64_t kDeclarationBlockRangeListOffset = 32;  // 8 bytes: first page of the block range list
constexpr uint64_t kDeclarationBitmapOffset = 40;          // 8 bytes: first page of the bitmap
constexpr uint64_t kDeclarationFileReference = 48;         // 8 bytes: NTFS file reference of the store file
constexpr uint64_t kDeclarationAllocatedSize = 56;         // 8 bytes: bytes allocated to the store file
constexpr uint64_t kDeclarationPreviousBitmapOffset = 64;  // 8 bytes: first page of the previous bitmap, or 0
constexpr uint64_t kDeclarationBodySize = 72;

static_assert(kDefinitionCreationTime + 8 == kDefinitionBodySize, "the definition body ends with its time");
static_assert(kDeclarationPreviousBitmapOffset + 8 == kDeclarationBodySize, "the declaration body ends there");
static_assert(kEntryBody + kDeclarationBodySize <= kCatalogEntrySize, "a body fits its entry");
static_assert(kPagePayloadSize / kCatalogEntrySize == 127, "127 entries per catalog page");

// ---------------------------------------------------------------------------
// Store information: the payload of a shadow copy's store header record.

constexpr uint64_t kInfoIdentifier = 0;        // 16 bytes: an identifier of the store information
constexpr uint64_t kInfoShadowCopyId = 16;     // 16 bytes: the shadow copy ID
constexpr uint64_t kInfoShadowCopySetId = 32;  // 16 bytes: the shadow copy set ID
constexpr uint64_t kInfoSnapshotContext = 48;  // 4 bytes: the snapshot context
constexpr uint64_t kInfoProviderValue = 52;    // 4 bytes
constexpr uint64_t kInfoAttributeFlags = 56;   // 4 bytes: the shadow copy's attribute flags
constexpr uint64_t kInfoMachineNames = 64;     // two length-prefixed UTF-16 names follow

// The head of the store information that the snapshot code reads: the
// identifiers, up to the snapshot context.
constexpr uint64_t kInfoHeadSize = kInfoSnapshotContext;  // 48

// ---------------------------------------------------------------------------
// Block descriptors: the payload of a block list record, 32 bytes each.

constexpr uint64_t kDescriptorSize = 32;
constexpr uint64_t kDescriptorOriginalOffset = 0;     // 8 bytes: volume offset of the block described
constexpr uint64_t kDescriptorRelativeOffset = 8;     // 8 bytes: offset within the store; a forwarder's target
constexpr uint64_t kDescriptorStoreDataOffset = 16;   // 8 bytes: volume offset of the old contents
constexpr uint64_t kDescriptorFlags = 24;             // 4 bytes: kDescriptorFlag* bits
constexpr uint64_t kDescriptorAllocationBitmap = 28;  // 4 bytes: an overlay's kept sectors

constexpr uint32_t kDescriptorFlagForwarder = 0x1;  // the old contents are another block's
constexpr uint32_t kDescriptorFlagOverlay = 0x2;    // only the sectors of the allocation bitmap are kept
constexpr uint32_t kDescriptorFlagNotUsed = 0x4;    // the descriptor describes nothing

// One bit of an overlay's allocation bitmap covers one sector of the block.
constexpr uint64_t kOverlaySectorSize = 512;
constexpr uint64_t kOverlaySectors = 32;

static_assert(kDescriptorAllocationBitmap + 4 == kDescriptorSize, "the descriptor ends with its bitmap");
static_assert(kOverlaySectorSize * kOverlaySectors == kBlockSize, "the allocation bitmap covers one block");
static_assert(kPagePayloadSize / kDescriptorSize == 508, "508 descriptors per block-list page");

}  // namespace format
}  // namespace vss
}  // namespace tolvarcore

#endif  // TOLVAR_CORE_VSS_STORE_FORMAT_H_
