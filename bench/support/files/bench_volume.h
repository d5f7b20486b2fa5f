// A sparse NTFS volume image written straight to a temporary file, holding
// the inputs of the file-service benchmarks: large directories with a
// multi-level index, and files whose data runs fill many extension records
// named by an attribute list. Only metadata is written; file data stays a
// hole. Alongside it, the list of metadata pieces that a lookup of each
// target reads, for the plain-read baselines.
#ifndef TOLVAR_BENCH_SUPPORT_FILES_BENCH_VOLUME_H_
#define TOLVAR_BENCH_SUPPORT_FILES_BENCH_VOLUME_H_

#include <cstdint>
#include <string>
#include <vector>

#include "tests/fixtures/ntfs_builder.h"

namespace tolvarbench {

// A run of clusters.
struct ClusterRun {
  uint64_t lcn;       // first cluster
  uint64_t clusters;  // length in clusters
};

// What the image holds.
struct BenchLayout {
  std::vector<uint64_t> directorySizes;  // one directory "/dirN" of N small files each
  std::vector<uint64_t> extentCounts;    // one file "/fragN/file.bin" of N one-cluster extents each
  uint64_t largeFileSize = 0;            // "/large/file.bin": this many bytes ...
  uint64_t largeFileFragments = 0;       // ... in this many equal fragments (0: no such file)
  uint64_t storeChangedBlocks = 0;       // a store of two snapshots, the older one keeping this many 16 KiB
                                         // blocks of the large file changed after it (0: no store)
};

// One piece of metadata on the volume: a byte range read with one call.
struct MetadataPiece {
  uint64_t offset;  // byte offset in the image
  uint64_t size;    // bytes
};

// A path the benchmarks look up, with what its lookup reads.
struct BenchTarget {
  std::string path;                    // path inside the volume, lower case
  std::vector<MetadataPiece> reads;    // records, index blocks and attribute lists the lookup reads
  std::vector<MetadataPiece> extents;  // the file's data runs on the volume (files only)
};

class BenchVolume {
 public:
  static constexpr uint64_t kClusterSize = 4096;
  static constexpr uint64_t kRecordSize = 1024;
  static constexpr uint64_t kSectorSize = 512;
  static constexpr uint64_t kIndexBlockSize = 4096;

  // Writes the image for layout into a new temporary file.
  explicit BenchVolume(const BenchLayout& layout);
  // Removes the file unless Keep() was called.
  ~BenchVolume();
  BenchVolume(const BenchVolume&) = delete;
  BenchVolume& operator=(const BenchVolume&) = delete;

  const std::string& Path() const { return path_; }
  // Leaves the file in place, for inspection with other tools.
  void Keep() { keep_ = true; }
  uint64_t Size() const { return totalClusters_ * kClusterSize; }

  // The last name of /dirN in index order: the one whose lookup reads every entry.
  const BenchTarget& DirectoryTarget(uint64_t size) const;
  const BenchTarget& FragmentedTarget(uint64_t extents) const;
  const BenchTarget& LargeTarget() const { return large_; }
  // Whether the image holds a store with two snapshots, made before and
  // after a change (see ShadowCopyId).
  bool HasStore() const { return hasStore_; }
  // The text identifier of shadow copy 1 (older) or 2 (newer) of the store.
  static std::string ShadowCopyId(uint32_t n);

 private:
  // One entry of a directory index.
  struct IndexItem {
    uint64_t record;     // file record of the entry
    std::string name;    // its name, the key
    int64_t child = -1;  // VCN of the sub-node, or -1
  };

  void Write(uint64_t offset, const tolvartest::Bytes& bytes);
  void WriteRecord(uint64_t number, const tolvartest::Bytes& record);
  uint64_t AllocateRecord() { return nextRecord_++; }
  uint64_t AllocateClusters(uint64_t count);
  uint64_t RecordOffset(uint64_t number) const { return (kMftCluster * kClusterSize) + number * kRecordSize; }

  void WriteBootSector();
  // Lays a store into the space kept free below the MFT.
  void WriteStore(uint64_t changedBlocks);
  void WriteMft(uint64_t recordCount);
  void WriteRoot();
  uint64_t WriteDirectory(const std::string& name, uint64_t childCount, BenchTarget* target);
  uint64_t WriteFileDirectory(const std::string& name, const std::vector<ClusterRun>& runs, uint64_t fileSize,
                              BenchTarget* target);
  // A file whose data runs are spread over extension records when they do
  // not fit in one; appends what its lookup reads to target.
  void WriteNonResidentFile(uint64_t number, uint64_t parent, const std::string& name,
                            const std::vector<ClusterRun>& runs, uint64_t fileSize, BenchTarget* target);
  // Index blocks for the sorted items; returns the items left for the index root.
  std::vector<IndexItem> WriteIndexTree(uint64_t directory, std::vector<IndexItem> items, int64_t* rootChild,
                                        std::vector<tolvartest::Bytes>* blocks);
  void AddRootChildReads(BenchTarget* target, std::size_t rootIndex) const;

  // The MFT starts 16 MiB in; a store's records go below it, from 1 MiB on.
  static constexpr uint64_t kMftCluster = 4096;
  static constexpr uint64_t kRootRecord = 5;
  static constexpr uint64_t kFirstUserRecord = 16;

  std::string path_;                                            // the image file
  bool hasStore_ = false;                                       // a store was written
  bool keep_ = false;                                           // the file outlives the object
  int fd_ = -1;                                                 // open for writing while the image is made
  uint64_t totalClusters_ = 0;                                  // the volume's size in clusters
  uint64_t nextCluster_ = 0;                                    // first cluster not yet handed out
  uint64_t nextRecord_ = kFirstUserRecord;                      // first record number not yet handed out
  std::vector<std::pair<std::string, uint64_t>> rootChildren_;  // the root's entries, in index order
  std::vector<std::pair<uint64_t, BenchTarget>> directories_;   // by directory size
  std::vector<std::pair<uint64_t, BenchTarget>> fragmented_;    // by extent count
  BenchTarget large_;                                           // the large file
};

}  // namespace tolvarbench

#endif  // TOLVAR_BENCH_SUPPORT_FILES_BENCH_VOLUME_H_
