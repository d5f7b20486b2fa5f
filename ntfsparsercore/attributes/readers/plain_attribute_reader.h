// Reader of a resident or uncompressed non-resident attribute value.
#ifndef TOLVAR_NTFSPARSERCORE_ATTRIBUTES_READERS_PLAIN_ATTRIBUTE_READER_H_
#define TOLVAR_NTFSPARSERCORE_ATTRIBUTES_READERS_PLAIN_ATTRIBUTE_READER_H_

#include <cstdint>
#include <vector>

#include "common/error_queue.h"
#include "ntfsparsercore/attribute.h"
#include "ntfsparsercore/attributes/readers/i_reader.h"
#include "ntfsparsercore/i_volume.h"
#include "ntfsparsercore/run_list.h"

namespace ntfsparsercore {
namespace attributes {
namespace readers {

class PlainAttributeReader : public IReader {
 public:
  // The volume is borrowed and must outlive the reader; the attribute is copied.
  PlainAttributeReader(IVolume* volume, const Attribute& attribute);

  // Resident values are read from the first record's value. Non-resident
  // values walk the run list; a read that starts inside a run may take up
  // to that run's whole length from where it starts, running on past the
  // run's end on the volume. Sparse runs read as zeros.
  uint64_t Read(void* buffer, uint64_t size, uint64_t offset) override;
  uint64_t GetSize() override;
  // One extent per run (logical size = stored size), the last one cut to
  // end at the value size. The resident flag is not looked at.
  ExtentList GetExtents() override;

  const Attribute& GetAttribute() const { return attribute_; }

 private:
  uint64_t ReadResident(uint8_t* buffer, uint64_t size, uint64_t offset);
  uint64_t ReadRuns(uint8_t* buffer, uint64_t size, uint64_t offset);
  // The run list, decoded from the attribute's records on first use. Each
  // later use reports again what decoding reported, as decoding the same
  // records anew would, and gives the same runs; unless a device read
  // failed while decoding, in which case the next use decodes anew.
  const RunList& Runs();

  IVolume* volume_;                                        // reads volume bytes; its cluster size scales runs
  Attribute attribute_;                                    // the attribute being read
  bool decoded_ = false;                                   // runs_ holds the run list, to be used again
  RunList runs_;                                           // the runs, in record order
  std::vector<uint64_t> runEnds_;                          // byte position in the value where each run ends
  std::vector<tolvarcommon::ErrorRecord> decodeMessages_;  // what decoding the run list reported
};

}  // namespace readers
}  // namespace attributes
}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_ATTRIBUTES_READERS_PLAIN_ATTRIBUTE_READER_H_
