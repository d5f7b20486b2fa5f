// NTFS values that more than one part of the parser reads: attribute type
// codes, the file reference, well-known file records, and the headers of
// index nodes and index entries, which the index root and the index blocks
// share. Each structure's own field offsets stay beside the code that reads
// it; these are the ones with more than one reader.
#ifndef TOLVAR_NTFSPARSERCORE_NTFS_FORMAT_H_
#define TOLVAR_NTFSPARSERCORE_NTFS_FORMAT_H_

#include <cstdint>

namespace ntfsparsercore {
namespace format {

// ---------------------------------------------------------------------------
// Attribute type codes.

constexpr uint32_t kAttributeStandardInformation = 0x10;
constexpr uint32_t kAttributeAttributeList = 0x20;
constexpr uint32_t kAttributeFileName = 0x30;
constexpr uint32_t kAttributeData = 0x80;
constexpr uint32_t kAttributeIndexRoot = 0x90;
constexpr uint32_t kAttributeIndexAllocation = 0xA0;
constexpr uint32_t kAttributeBitmap = 0xB0;

// ---------------------------------------------------------------------------
// File references: a record number in the low 48 bits, the record's
// sequence number in the high 16.

constexpr uint64_t kFileReferenceRecordMask = 0x0000FFFFFFFFFFFFull;
constexpr unsigned kFileReferenceSequenceShift = 48;

inline uint64_t RecordNumberOf(uint64_t fileReference) { return fileReference & kFileReferenceRecordMask; }

// Well-known file records.
constexpr uint64_t kRootDirectoryRecord = 5;

// ---------------------------------------------------------------------------
// Index node header: heads the entries of an index root and of an index
// block. Entry offsets count from the node header's own start.

constexpr uint64_t kNodeHeaderSize = 16;
constexpr uint64_t kNodeEntriesOffset = 0x00;  // 4 bytes: the first entry
constexpr uint64_t kNodeIndexLength = 0x04;    // 4 bytes: bytes in use, from the node header
constexpr uint64_t kNodeAllocatedSize = 0x08;  // 4 bytes: bytes allocated, from the node header
constexpr uint64_t kNodeFlags = 0x0C;          // 1 byte: 1 when the node has sub-nodes

// ---------------------------------------------------------------------------
// Index entry header: every entry of a node starts with it; its key (a file
// name value in directories) follows, and an entry with a sub-node ends
// with the sub-node's VCN.

constexpr uint64_t kEntryHeaderSize = 16;
constexpr uint64_t kEntryFileReference = 0x00;  // 8 bytes: the file the entry names
constexpr uint64_t kEntryLength = 0x08;         // 2 bytes: step to the next entry
constexpr uint64_t kEntryKeyLength = 0x0A;      // 2 bytes: length of the key
constexpr uint64_t kEntryFlags = 0x0C;          // 4 bytes: kEntryFlag* bits
constexpr uint64_t kEntryKey = 0x10;            // the key

constexpr uint32_t kEntryFlagHasSubNode = 0x01;  // the entry's last 8 bytes name a sub-node VCN
constexpr uint32_t kEntryFlagLast = 0x02;        // the entry ends the node and names no file
constexpr uint64_t kSubNodeVcnSize = 8;

static_assert(kEntryFlags + 4 == kEntryHeaderSize, "the entry header ends with its flags");
static_assert(kEntryKey == kEntryHeaderSize, "the key follows the header");

}  // namespace format
}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_NTFS_FORMAT_H_
