#include "bench/support/files/bench_volume.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include "tests/fixtures/ntfs_image_builder.h"
#include "tests/fixtures/unique_temp_path.h"
#include "tests/fixtures/vss_store_builder.h"

namespace tolvarbench {

using tolvartest::AttributeBytes;
using tolvartest::AttributeFields;
using tolvartest::AttributeListEntryBytes;
using tolvartest::Bytes;
using tolvartest::FileNameAttribute;
using tolvartest::FileNameValue;
using tolvartest::FileRecordBytes;
using tolvartest::FileRecordFields;
using tolvartest::IndexBlockBytes;
using tolvartest::IndexEntryBytes;
using tolvartest::IndexRootAttribute;
using tolvartest::MappingPairs;
using tolvartest::Pair;
using tolvartest::PutBytes;
using tolvartest::PutLe16;
using tolvartest::PutLe32;
using tolvartest::PutLe64;
using tolvartest::ResidentData;

namespace {

constexpr uint32_t kAttributeListType = 0x20;
constexpr uint32_t kFileNameType = 0x30;
constexpr uint32_t kDataType = 0x80;
constexpr uint32_t kIndexAllocationType = 0xA0;
constexpr uint16_t kFlagsDirectory = 0x0003;  // in use, directory
constexpr uint8_t kWin32Namespace = 1;

// Boot sector fields.
constexpr std::size_t kBootOemOffset = 3;
constexpr std::size_t kBootBytesPerSectorOffset = 11;
constexpr std::size_t kBootSectorsPerClusterOffset = 13;
constexpr std::size_t kBootTotalSectorsOffset = 40;
constexpr std::size_t kBootMftClusterOffset = 48;
constexpr std::size_t kBootRecordSizeOffset = 64;
constexpr uint8_t kBootRecordSize1024 = 0xF6;  // 2^10 bytes per record
constexpr std::size_t kBootMarkerOffset = 510;

// Index entry with a file name key.
constexpr std::size_t kEntryHeaderSize = 16;
constexpr std::size_t kEntryLengthOffset = 8;
constexpr std::size_t kEntryKeyLengthOffset = 10;
constexpr std::size_t kEntryFlagsOffset = 12;
constexpr uint32_t kEntryHasSubNode = 0x01;
constexpr uint32_t kEntryLast = 0x02;

// Entries per index block, a typical fill for 15-character names; and
// entries kept in the index root, so that the root has several sub-nodes.
constexpr std::size_t kEntriesPerBlock = 28;
constexpr std::size_t kRootEntries = 3;
// Clusters per run of an index allocation, each run one cluster apart.
constexpr uint64_t kAllocationRunClusters = 256;
// Bytes of mapping pairs put in one attribute record, so that it fits in a
// 1,024-byte record with its header.
constexpr std::size_t kMappingPairsPerRecord = 800;
// The end marker after the last attribute, and the room kept before the record's end.
constexpr std::size_t kEndMarkerRoom = 8;
// Attribute list bytes kept resident in the base record.
constexpr std::size_t kResidentListLimit = 600;

uint8_t UnsignedBytes(uint64_t value) {
  uint8_t n = 1;
  while (n < 8 && (value >> (8 * n)) != 0) ++n;
  return n;
}

uint8_t SignedBytes(int64_t value) {
  for (uint8_t n = 1; n < 8; ++n) {
    const int64_t limit = int64_t{1} << (8 * n - 1);
    if (value >= -limit && value < limit) return n;
  }
  return 8;
}

Pair MakePair(uint64_t clusters, int64_t delta) {
  return Pair{clusters, delta, UnsignedBytes(clusters), SignedBytes(delta)};
}

std::size_t PairBytes(const Pair& p) { return 1 + p.lengthBytes + p.deltaBytes; }

// An index entry for record with the name as its key.
Bytes KeyedEntry(uint64_t record, uint64_t parent, const std::string& name, int64_t child) {
  const Bytes key = FileNameValue(parent, tolvartest::Utf16(name), kWin32Namespace);
  Bytes b(kEntryHeaderSize, 0);
  PutLe64(&b, 0, record | (uint64_t{1} << 48));
  PutBytes(&b, kEntryHeaderSize, key);
  b.resize((b.size() + 7) / 8 * 8);
  uint32_t flags = 0;
  if (child >= 0) {
    flags |= kEntryHasSubNode;
    PutLe64(&b, b.size(), static_cast<uint64_t>(child));
  }
  PutLe16(&b, kEntryLengthOffset, static_cast<uint16_t>(b.size()));
  PutLe16(&b, kEntryKeyLengthOffset, static_cast<uint16_t>(key.size()));
  PutLe32(&b, kEntryFlagsOffset, flags);
  return b;
}

// The end entry of a node, pointing to child when it is not -1.
Bytes EndEntry(int64_t child) {
  Bytes b(kEntryHeaderSize, 0);
  uint32_t flags = kEntryLast;
  if (child >= 0) {
    flags |= kEntryHasSubNode;
    PutLe64(&b, b.size(), static_cast<uint64_t>(child));
  }
  PutLe16(&b, kEntryLengthOffset, static_cast<uint16_t>(b.size()));
  PutLe32(&b, kEntryFlagsOffset, flags);
  return b;
}

// A non-resident attribute record over pairs, covering [startVcn, lastVcn].
Bytes NonResidentRecord(uint32_t type, uint16_t id, const std::string& name, uint64_t startVcn, uint64_t lastVcn,
                        uint64_t allocatedSize, uint64_t dataSize, const std::vector<Pair>& pairs) {
  AttributeFields f;
  f.type = type;
  f.id = id;
  f.name = name;
  f.nonResident = true;
  f.startingVcn = startVcn;
  f.lastVcn = lastVcn;
  f.allocatedSize = allocatedSize;
  f.dataSize = dataSize;
  f.initializedSize = dataSize;
  f.mappingPairs = MappingPairs(pairs);
  return AttributeBytes(f);
}

// The runs cut into pieces whose mapping pairs fit in one attribute
// record; each piece's LCNs are counted from 0, as every record's are.
struct Piece {
  uint64_t startVcn = 0;    // first VCN the piece maps
  uint64_t clusters = 0;    // clusters it maps
  std::vector<Pair> pairs;  // its mapping pairs
};

std::vector<Piece> CutIntoPieces(const std::vector<ClusterRun>& runs) {
  std::vector<Piece> pieces(1);
  std::size_t bytes = 0;
  uint64_t previousLcn = 0;
  uint64_t vcn = 0;
  for (const ClusterRun& run : runs) {
    Pair pair = MakePair(run.clusters, static_cast<int64_t>(run.lcn - previousLcn));
    if (bytes + PairBytes(pair) > kMappingPairsPerRecord) {
      pieces.emplace_back();
      pieces.back().startVcn = vcn;
      pair = MakePair(run.clusters, static_cast<int64_t>(run.lcn));
      bytes = 0;
    }
    pieces.back().pairs.push_back(pair);
    pieces.back().clusters += run.clusters;
    bytes += PairBytes(pair);
    previousLcn = run.lcn;
    vcn += run.clusters;
  }
  return pieces;
}

uint64_t TotalClusters(const std::vector<ClusterRun>& runs) {
  uint64_t total = 0;
  for (const ClusterRun& run : runs) total += run.clusters;
  return total;
}

// The record's bytes; throws when its attributes would not fit before the
// last sector's fix-up bytes.
Bytes CheckedRecord(const FileRecordFields& fields) {
  std::size_t used = fields.firstAttributeOffset + kEndMarkerRoom;
  for (const Bytes& a : fields.attributes) used += a.size();
  if (used > BenchVolume::kRecordSize - kEndMarkerRoom) throw std::runtime_error("a record overflowed");
  return FileRecordBytes(fields);
}

std::string ChildName(uint64_t i) {
  char name[32];
  std::snprintf(name, sizeof name, "file-%06llu.dat", static_cast<unsigned long long>(i));
  return name;
}

}  // namespace

BenchVolume::BenchVolume(const BenchLayout& layout) {
  path_ = tolvartest::UniqueTempPath("tolvar-bench-", ".img");
  fd_ = ::open(path_.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600);
  if (fd_ < 0) throw std::runtime_error("cannot create " + path_);
  // Records: every directory and its files, and a generous bound on the
  // extension records of the fragmented files.
  uint64_t records = kFirstUserRecord + 16;
  for (uint64_t n : layout.directorySizes) records += n + 1;
  for (uint64_t e : layout.extentCounts) records += e / 100 + 4;
  records += layout.largeFileFragments / 100 + 4;
  const uint64_t mftClusters = (records * kRecordSize + kClusterSize - 1) / kClusterSize;
  nextCluster_ = kMftCluster + mftClusters;

  for (uint64_t n : layout.directorySizes) {
    BenchTarget target;
    WriteDirectory("dir" + std::to_string(n), n, &target);
    directories_.emplace_back(n, target);
  }
  for (uint64_t e : layout.extentCounts) {
    const uint64_t base = AllocateClusters(2 * e);
    std::vector<ClusterRun> runs;
    for (uint64_t i = 0; i < e; ++i) runs.push_back(ClusterRun{base + 2 * i, 1});
    BenchTarget target;
    WriteFileDirectory("frag" + std::to_string(e), runs, e * kClusterSize, &target);
    fragmented_.emplace_back(e, target);
  }
  if (layout.largeFileFragments != 0) {
    const uint64_t fragmentClusters = layout.largeFileSize / kClusterSize / layout.largeFileFragments;
    const uint64_t base = AllocateClusters(layout.largeFileFragments * (fragmentClusters + 1));
    std::vector<ClusterRun> runs;
    for (uint64_t i = 0; i < layout.largeFileFragments; ++i) {
      runs.push_back(ClusterRun{base + i * (fragmentClusters + 1), fragmentClusters});
    }
    WriteFileDirectory("large", runs, layout.largeFileSize, &large_);
  }
  if (nextRecord_ > records) throw std::runtime_error("MFT too small");
  WriteRoot();
  WriteMft(records);
  totalClusters_ = nextCluster_ + 16;
  WriteBootSector();
  if (::ftruncate(fd_, static_cast<off_t>(Size())) != 0) throw std::runtime_error("cannot size " + path_);
  if (layout.storeChangedBlocks != 0) WriteStore(layout.storeChangedBlocks);
  ::close(fd_);
  fd_ = -1;
}

BenchVolume::~BenchVolume() {
  if (fd_ >= 0) ::close(fd_);
  if (!keep_) std::remove(path_.c_str());
}

const BenchTarget& BenchVolume::DirectoryTarget(uint64_t size) const {
  for (const auto& d : directories_) {
    if (d.first == size) return d.second;
  }
  throw std::out_of_range("no directory of that size");
}

const BenchTarget& BenchVolume::FragmentedTarget(uint64_t extents) const {
  for (const auto& f : fragmented_) {
    if (f.first == extents) return f.second;
  }
  throw std::out_of_range("no file of that many extents");
}

void BenchVolume::Write(uint64_t offset, const Bytes& bytes) {
  if (::pwrite(fd_, bytes.data(), bytes.size(), static_cast<off_t>(offset)) != static_cast<ssize_t>(bytes.size())) {
    throw std::runtime_error("cannot write " + path_);
  }
}

void BenchVolume::WriteRecord(uint64_t number, const Bytes& record) {
  if (record.size() != kRecordSize) throw std::runtime_error("a record overflowed");
  Write(RecordOffset(number), record);
}

uint64_t BenchVolume::AllocateClusters(uint64_t count) {
  const uint64_t first = nextCluster_;
  nextCluster_ += count;
  return first;
}

void BenchVolume::WriteBootSector() {
  Bytes boot(kSectorSize, 0);
  const char oem[] = "NTFS    ";
  for (int i = 0; i < 8; ++i) boot[kBootOemOffset + i] = static_cast<uint8_t>(oem[i]);
  PutLe16(&boot, kBootBytesPerSectorOffset, kSectorSize);
  boot[kBootSectorsPerClusterOffset] = static_cast<uint8_t>(kClusterSize / kSectorSize);
  PutLe64(&boot, kBootTotalSectorsOffset, totalClusters_ * (kClusterSize / kSectorSize));
  PutLe64(&boot, kBootMftClusterOffset, kMftCluster);
  boot[kBootRecordSizeOffset] = kBootRecordSize1024;
  PutLe16(&boot, kBootMarkerOffset, 0xAA55);
  Write(0, boot);
}

std::string BenchVolume::ShadowCopyId(uint32_t n) { return tolvartest::vss::Id(0x100 + n).ToString(); }

void BenchVolume::WriteStore(uint64_t changedBlocks) {
  constexpr uint64_t kStoreBlock = 16384;
  if (large_.extents.empty()) throw std::runtime_error("a store needs the large file");
  // The blocks are spread over the first half of the large file, so that
  // the old contents the store keeps for them (32 MiB further on, where the
  // store builder puts them) lie inside the volume too.
  const uint64_t first = (large_.extents.front().offset + kStoreBlock - 1) / kStoreBlock * kStoreBlock;
  const uint64_t span = (Size() - first) / 2;
  const uint64_t step = std::max<uint64_t>(span / changedBlocks / kStoreBlock, 1) * kStoreBlock;
  tolvartest::vss::StoreSpec spec;
  spec.volumeSize = Size();
  spec.snapshots = {tolvartest::vss::Snap(1, 10), tolvartest::vss::Snap(2, 20)};
  for (uint64_t i = 0; i < changedBlocks; ++i) {
    spec.snapshots[0].descriptors.push_back(tolvartest::vss::Block(first + i * step));
  }
  tolvartest::vss::StoreWriter writer(Size());
  tolvartest::vss::BuildStore(spec, &writer);
  const uint64_t storeEnd = writer.AllocatePages(1).front();
  if (storeEnd > kMftCluster * kClusterSize) throw std::runtime_error("the store reaches the MFT");
  for (const auto& chunk : writer.Source()->Chunks()) {
    Write(chunk.first * tolvartest::SparseSource::kChunk, chunk.second);
  }
  hasStore_ = true;
}

void BenchVolume::WriteMft(uint64_t recordCount) {
  const uint64_t clusters = (recordCount * kRecordSize + kClusterSize - 1) / kClusterSize;
  FileRecordFields mft;
  mft.attributes.push_back(FileNameAttribute(1, kRootRecord, "$MFT", 3));
  mft.attributes.push_back(NonResidentRecord(kDataType, 2, "", 0, clusters - 1, clusters * kClusterSize,
                                             clusters * kClusterSize,
                                             {MakePair(clusters, static_cast<int64_t>(kMftCluster))}));
  WriteRecord(0, CheckedRecord(mft));
}

void BenchVolume::WriteRoot() {
  // The root lists itself as ".", where every path's walk starts.
  std::vector<Bytes> entries{IndexEntryBytes(kRootRecord, 0)};
  for (const auto& child : rootChildren_) entries.push_back(IndexEntryBytes(child.second, 0));
  entries.push_back(IndexEntryBytes(0, kEntryLast));
  FileRecordFields root;
  root.flags = kFlagsDirectory;
  root.attributes.push_back(FileNameAttribute(1, kRootRecord, ".", 3));
  root.attributes.push_back(IndexRootAttribute(2, kIndexBlockSize, entries));
  WriteRecord(kRootRecord, CheckedRecord(root));
}

void BenchVolume::AddRootChildReads(BenchTarget* target, std::size_t rootIndex) const {
  // The root record, met once as the start and once as its own entry ".".
  target->reads.push_back(MetadataPiece{RecordOffset(kRootRecord), kRecordSize});
  target->reads.push_back(MetadataPiece{RecordOffset(kRootRecord), kRecordSize});
  for (std::size_t i = 0; i <= rootIndex; ++i) {
    target->reads.push_back(MetadataPiece{RecordOffset(rootChildren_[i].second), kRecordSize});
  }
}

uint64_t BenchVolume::WriteDirectory(const std::string& name, uint64_t childCount, BenchTarget* target) {
  const uint64_t directory = AllocateRecord();
  const std::size_t rootIndex = rootChildren_.size();
  rootChildren_.emplace_back(name, directory);
  std::vector<IndexItem> items;
  for (uint64_t i = 0; i < childCount; ++i) {
    IndexItem item;
    item.record = AllocateRecord();
    item.name = ChildName(i);
    FileRecordFields child;
    child.attributes.push_back(FileNameAttribute(0, directory, item.name, kWin32Namespace));
    child.attributes.push_back(ResidentData(1, Bytes(16, 0x5A)));
    WriteRecord(item.record, CheckedRecord(child));
    items.push_back(item);
  }
  const std::vector<IndexItem> children = items;
  int64_t rootChild = -1;
  std::vector<Bytes> blocks;
  const std::vector<IndexItem> rootItems = WriteIndexTree(directory, std::move(items), &rootChild, &blocks);

  FileRecordFields record;
  record.flags = kFlagsDirectory;
  record.attributes.push_back(FileNameAttribute(1, kRootRecord, name, kWin32Namespace));
  std::vector<Bytes> rootEntries;
  for (const IndexItem& item : rootItems)
    rootEntries.push_back(KeyedEntry(item.record, directory, item.name, item.child));
  rootEntries.push_back(EndEntry(rootChild));
  record.attributes.push_back(IndexRootAttribute(2, kIndexBlockSize, rootEntries));

  AddRootChildReads(target, rootIndex);
  if (!blocks.empty()) {
    std::vector<ClusterRun> runs;
    for (uint64_t done = 0; done < blocks.size(); done += kAllocationRunClusters) {
      const uint64_t clusters = std::min<uint64_t>(kAllocationRunClusters, blocks.size() - done);
      runs.push_back(ClusterRun{AllocateClusters(clusters + 1), clusters});
    }
    uint64_t vcn = 0;
    for (const ClusterRun& run : runs) {
      for (uint64_t i = 0; i < run.clusters; ++i, ++vcn) {
        Write((run.lcn + i) * kClusterSize, blocks[vcn]);
        target->reads.push_back(MetadataPiece{(run.lcn + i) * kClusterSize, kIndexBlockSize});
      }
    }
    const std::vector<Piece> pieces = CutIntoPieces(runs);
    if (pieces.size() != 1) throw std::runtime_error("index allocation too fragmented");
    const uint64_t bytes = blocks.size() * kIndexBlockSize;
    record.attributes.push_back(
        NonResidentRecord(kIndexAllocationType, 3, "$I30", 0, blocks.size() - 1, bytes, bytes, pieces[0].pairs));
  }
  WriteRecord(directory, CheckedRecord(record));
  // The last child in index order: its lookup reads every child record.
  for (const IndexItem& child : children)
    target->reads.push_back(MetadataPiece{RecordOffset(child.record), kRecordSize});
  target->path = "/" + name + "/" + (children.empty() ? std::string() : children.back().name);
  return directory;
}

std::vector<BenchVolume::IndexItem> BenchVolume::WriteIndexTree(uint64_t directory, std::vector<IndexItem> level,
                                                                int64_t* rootChild, std::vector<Bytes>* blocks) {
  // Each pass packs a level into blocks of kEntriesPerBlock entries and
  // lifts the entry after each block to the level above, pointing to it;
  // the last block of a level hangs off the end entry above.
  int64_t tail = -1;
  while (level.size() > kRootEntries) {
    std::vector<IndexItem> above;
    std::size_t i = 0;
    while (i < level.size()) {
      const std::size_t end = std::min(i + kEntriesPerBlock, level.size());
      std::vector<Bytes> entries;
      for (std::size_t k = i; k < end; ++k) {
        entries.push_back(KeyedEntry(level[k].record, directory, level[k].name, level[k].child));
      }
      const bool lifted = end < level.size();
      entries.push_back(EndEntry(lifted ? level[end].child : tail));
      const int64_t vcn = static_cast<int64_t>(blocks->size());
      blocks->push_back(IndexBlockBytes(kIndexBlockSize, kSectorSize, static_cast<uint64_t>(vcn), entries));
      if (lifted) {
        IndexItem separator = level[end];
        separator.child = vcn;
        above.push_back(separator);
        i = end + 1;
      } else {
        tail = vcn;
        i = end;
      }
    }
    level.swap(above);
  }
  *rootChild = tail;
  return level;
}

uint64_t BenchVolume::WriteFileDirectory(const std::string& name, const std::vector<ClusterRun>& runs,
                                         uint64_t fileSize, BenchTarget* target) {
  const uint64_t directory = AllocateRecord();
  const uint64_t file = AllocateRecord();
  const std::size_t rootIndex = rootChildren_.size();
  rootChildren_.emplace_back(name, directory);
  FileRecordFields record;
  record.flags = kFlagsDirectory;
  record.attributes.push_back(FileNameAttribute(1, kRootRecord, name, kWin32Namespace));
  record.attributes.push_back(
      IndexRootAttribute(2, kIndexBlockSize, {KeyedEntry(file, directory, "file.bin", -1), EndEntry(-1)}));
  WriteRecord(directory, CheckedRecord(record));
  AddRootChildReads(target, rootIndex);
  WriteNonResidentFile(file, directory, "file.bin", runs, fileSize, target);
  target->path = "/" + name + "/file.bin";
  for (const ClusterRun& run : runs)
    target->extents.push_back(MetadataPiece{run.lcn * kClusterSize, run.clusters * kClusterSize});
  return directory;
}

void BenchVolume::WriteNonResidentFile(uint64_t number, uint64_t parent, const std::string& name,
                                       const std::vector<ClusterRun>& runs, uint64_t fileSize, BenchTarget* target) {
  const uint64_t clusters = TotalClusters(runs);
  const uint64_t allocated = clusters * kClusterSize;
  const std::vector<Piece> pieces = CutIntoPieces(runs);
  FileRecordFields base;
  base.attributes.push_back(FileNameAttribute(1, parent, name, kWin32Namespace));
  target->reads.push_back(MetadataPiece{RecordOffset(number), kRecordSize});
  if (pieces.size() == 1) {
    base.attributes.push_back(
        NonResidentRecord(kDataType, 2, "", 0, clusters - 1, allocated, fileSize, pieces[0].pairs));
    WriteRecord(number, CheckedRecord(base));
    return;
  }
  // The data runs go to extension records, one piece each, named by an
  // attribute list in the base record.
  Bytes list = AttributeListEntryBytes(kFileNameType, 0, number, 1);
  std::vector<MetadataPiece> extensionReads;
  for (const Piece& piece : pieces) {
    const uint64_t extension = AllocateRecord();
    FileRecordFields record;
    record.baseRecord = number;
    record.attributes.push_back(NonResidentRecord(kDataType, 0, "", piece.startVcn, piece.startVcn + piece.clusters - 1,
                                                  allocated, fileSize, piece.pairs));
    WriteRecord(extension, CheckedRecord(record));
    PutBytes(&list, list.size(), AttributeListEntryBytes(kDataType, piece.startVcn, extension, 0));
    extensionReads.push_back(MetadataPiece{RecordOffset(extension), kRecordSize});
  }
  if (list.size() <= kResidentListLimit) {
    AttributeFields f;
    f.type = kAttributeListType;
    f.id = 2;
    f.value = list;
    base.attributes.push_back(AttributeBytes(f));
  } else {
    const uint64_t listClusters = (list.size() + kClusterSize - 1) / kClusterSize;
    const uint64_t lcn = AllocateClusters(listClusters);
    Write(lcn * kClusterSize, list);
    base.attributes.push_back(NonResidentRecord(kAttributeListType, 2, "", 0, listClusters - 1,
                                                listClusters * kClusterSize, list.size(),
                                                {MakePair(listClusters, static_cast<int64_t>(lcn))}));
    target->reads.push_back(MetadataPiece{lcn * kClusterSize, list.size()});
  }
  WriteRecord(number, CheckedRecord(base));
  target->reads.insert(target->reads.end(), extensionReads.begin(), extensionReads.end());
}

}  // namespace tolvarbench
