#include "ntfsparsercore/mft_table.h"

#include <set>

#include "ntfsparsercore/mft_record.h"

namespace ntfsparsercore {

MftTable::MftTable(IVolume* volume, std::shared_ptr<io::ISource> source,
                   std::shared_ptr<attributes::readers::ReadersFactory> readersFactory, uint64_t baseOffset,
                   uint64_t recordSize)
    : volume_(volume),
      source_(std::move(source)),
      readersFactory_(std::move(readersFactory)),
      baseOffset_(baseOffset),
      recordSize_(recordSize) {}

std::shared_ptr<MftRecord> MftTable::ReadRecord(uint64_t recordNumber) {
  return std::make_shared<MftRecord>(readersFactory_, volume_, this, source_, baseOffset_ + recordSize_ * recordNumber,
                                     recordNumber);
}

std::shared_ptr<MftRecord> MftTable::GetRecord(uint64_t recordNumber, bool followBase) {
  std::shared_ptr<MftRecord> record = ReadRecord(recordNumber);
  if (!followBase) return record;
  // Base references that lead in a circle (damaged records only) would be
  // followed forever: a number met before ends the chain at the record in hand.
  std::set<uint64_t> seen{recordNumber};
  for (;;) {
    const uint64_t base = record->GetBaseRecordNumber();
    if (base == 0 || base == record->GetRecordNumber()) return record;
    if (!seen.insert(base).second) return record;
    record = ReadRecord(base);
  }
}

}  // namespace ntfsparsercore
