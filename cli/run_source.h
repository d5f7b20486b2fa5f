// A non-resident value as a byte source that reads each run where it lies
// and stops at the value's size, whatever the cluster size: the command
// reads the MFT through it, so that records at the end of an MFT whose size
// is not a whole number of clusters, and records that straddle two runs,
// read like any other.
#ifndef TOLVAR_CLI_RUN_SOURCE_H_
#define TOLVAR_CLI_RUN_SOURCE_H_

#include <cstdint>
#include <vector>

#include "ntfsparsercore/i_volume.h"
#include "ntfsparsercore/io/i_source.h"
#include "ntfsparsercore/run_list.h"

namespace tolvarcli {

class RunSource : public ntfsparsercore::io::ISource {
 public:
  // The volume is borrowed and outlives the source.
  RunSource(ntfsparsercore::IVolume* volume, ntfsparsercore::RunList runs, uint64_t size);

  // Sparse runs read as zeros; a read stops at the size, at the end of the
  // runs, or where the volume delivers less than asked.
  uint64_t Read(void* buffer, uint64_t size, uint64_t offset) override;
  uint64_t GetSize() override { return size_; }

 private:
  ntfsparsercore::IVolume* volume_;
  ntfsparsercore::RunList runs_;
  std::vector<uint64_t> starts_;  // position in the value where each run starts
  uint64_t size_;                 // the value's size
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_RUN_SOURCE_H_
