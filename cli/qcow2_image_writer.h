// A qcow2 image (version 3), written by hand: the header cluster first (a
// hole until Commit fills it), then each data cluster as it is put, then
// at Commit the L2 tables, the L1 table, the refcount table and blocks, and
// finally the header. Clusters no block covers are unallocated: they read
// from the backing file when there is one, else as zeros. Needs an output
// that can seek: a regular file or a block device.
#ifndef TOLVAR_CLI_QCOW2_IMAGE_WRITER_H_
#define TOLVAR_CLI_QCOW2_IMAGE_WRITER_H_

#include <memory>
#include <string>

#include "cli/image_writer.h"
#include "cli/output_file.h"
#include "cli/qcow2_cluster_map.h"
#include "cli/qcow2_header.h"

namespace tolvarcli {

class Qcow2ImageWriter : public ImageWriter {
 public:
  // clusterSize: a power of two from 4,096 to 2 MiB; every Put starts at a
  // cluster's start, and a last partial cluster reads as zeros after the
  // bytes put. backingFile as the image should name it
  // (empty for none) and its format ("raw" or "qcow2").
  Qcow2ImageWriter(std::string path, uint64_t clusterSize, std::string backingFile = "",
                   std::string backingFormat = "");

  bool Open(uint64_t size) override;
  bool Put(uint64_t offset, const uint8_t* data, std::size_t size) override;
  bool PutZeros(uint64_t offset, uint64_t size) override;
  bool Commit() override;
  std::string WritingName() const override { return out_.WritingName(); }
  bool IsStandardOutput() const override { return out_.IsStandardOutput(); }
  bool Fits() const override { return out_.CanSeek(); }

  // True for a cluster size the writer takes.
  static bool IsClusterSize(uint64_t size);

 private:
  OutputFile out_;                        // the target
  Qcow2Header header_;                    // filled in at Commit
  uint64_t clusterSize_;                  // bytes per cluster
  std::unique_ptr<Qcow2ClusterMap> map_;  // made by Open
  uint64_t nextHost_ = 0;                 // where the next data cluster goes
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_QCOW2_IMAGE_WRITER_H_
