// Computes, once per handle, which blocks of the volume changed between the
// start and the end shadow copy of a snapshot sequence, and serves the walk
// over those blocks.
#ifndef TOLVAR_CORE_BLOCK_PROCESSOR_H_
#define TOLVAR_CORE_BLOCK_PROCESSOR_H_

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "common/aligned_bytes.h"
#include "core/bit_map.h"
#include "core/worker_result.h"
#include "ntfsparsercore/io/i_source.h"

namespace tolvarcore {

class VolumeProvider;
namespace vss {
class VssVolume;
namespace service {
class VssContext;
}
}  // namespace vss

class BlockProcessor {
 public:
  // Store bitmaps have one bit per this many bytes of the volume.
  // Valid block sizes: multiples of kMinBlockSize up to kMaxBlockSize.
  static constexpr uint64_t kMinBlockSize = 4096;
  static constexpr uint64_t kMaxBlockSize = 131072;
  // Option bit: the end snapshot's index record adds one more pass.
  static constexpr uint32_t kNewestPassFlag = 0x00000001;

  // Allocates the comparison buffer only for a valid block size.
  BlockProcessor(uint64_t blockSize, uint32_t flags);

  // Shares the bitmaps and shadow-copy sources of other, with a cursor of
  // its own starting at block 0 and a buffer of its own.
  BlockProcessor(const BlockProcessor& other);
  BlockProcessor& operator=(const BlockProcessor&) = delete;

  // Builds the changed-block and comparison bitmaps between the two
  // shadow copies that identifiers names (from, to), and opens both shadow
  // copies. kOk, or kBadArgument with the reason on the error queue.
  virtual WorkerResult Compute(vss::service::VssContext& context, VolumeProvider& volumeProvider,
                               const std::shared_ptr<vss::VssVolume>& volume,
                               const std::shared_ptr<vss::VssVolume>& storage,
                               const std::pair<std::string, std::string>& identifiers);

  // Reads the next changed block from the newer shadow copy into buffer.
  // Returns kOk with its index in *index, kEnd when there is none, or
  // kBadArgument when *size is below the block size (then *size is set to
  // it) or a read falls short (the walk then ends). With compare, blocks
  // marked for comparison that read the same in both shadow copies are
  // skipped.
  virtual WorkerResult NextBlock(uint8_t* buffer, uint64_t* size, bool compare, uint64_t* index);

  // Copies the changed bitmap's bytes; the caller has checked the room.
  virtual void CopyBitmap(void* buffer) const;
  virtual uint64_t GetBlockSize() const;
  virtual std::shared_ptr<BitMap> GetBitmap() const;
  virtual std::shared_ptr<ntfsparsercore::io::ISource> GetNewerSource() const;
  virtual std::shared_ptr<ntfsparsercore::io::ISource> GetOlderSource() const;
  virtual ~BlockProcessor();

  static bool IsValidBlockSize(uint64_t blockSize);

 protected:
  // What Compute produces; tests of the walk set it directly.
  void SetResult(std::shared_ptr<BitMap> changed, std::shared_ptr<BitMap> comparison,
                 std::shared_ptr<ntfsparsercore::io::ISource> olderSource,
                 std::shared_ptr<ntfsparsercore::io::ISource> newerSource);

 private:
  bool SameInOlder(const uint8_t* block, uint64_t index);

  uint64_t cursor_ = 0;                                       // next block of the walk
  bool walkEnded_ = false;                                    // the walk has ended, or a read failed
  uint64_t blockSize_;                                        // the handle's block size in bytes
  uint32_t flags_;                                            // Init's option word
  std::shared_ptr<BitMap> changed_;                           // the changed-block bitmap
  std::shared_ptr<BitMap> comparison_;                        // blocks compared with the older shadow copy when asked
  std::shared_ptr<ntfsparsercore::io::ISource> olderSource_;  // the start shadow copy
  std::shared_ptr<ntfsparsercore::io::ISource> newerSource_;  // the end shadow copy
  tolvarcommon::AlignedArray blockBuffer_;  // scratch block for comparisons; none for an invalid block size
};

}  // namespace tolvarcore

#endif  // TOLVAR_CORE_BLOCK_PROCESSOR_H_
