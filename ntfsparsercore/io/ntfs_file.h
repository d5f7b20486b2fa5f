// The unnamed data stream of one file as a byte source, with its layout on
// the volume.
#ifndef TOLVAR_NTFSPARSERCORE_IO_NTFS_FILE_H_
#define TOLVAR_NTFSPARSERCORE_IO_NTFS_FILE_H_

#include <cstdint>
#include <memory>

#include "ntfsparsercore/attribute.h"
#include "ntfsparsercore/attributes/readers/i_reader.h"
#include "ntfsparsercore/io/i_source.h"

namespace ntfsparsercore {

class MftRecord;

namespace io {

class NtfsFile : public ISource {
 public:
  // The file's first unnamed data attribute and its reader. A null record,
  // one not in use or one without an unnamed data attribute gives an empty
  // file.
  explicit NtfsFile(const std::shared_ptr<MftRecord>& record);

  // Reads through the reader, cut to end at GetSize(); 0 without a reader
  // or from an offset past the end.
  uint64_t Read(void* buffer, uint64_t size, uint64_t offset) override;
  // The data stream's size; 0 without a reader.
  uint64_t GetSize() override;

  // The stream's pieces on the volume (non-resident streams); empty without a reader.
  virtual attributes::readers::ExtentList GetExtents();
  // The attribute's flags; resident, not compressed, not sparse without one.
  virtual bool IsResident();
  virtual bool IsCompressed();
  virtual bool IsSparse();

 private:
  std::unique_ptr<Attribute> attribute_;                  // copy of the unnamed data attribute; null when none
  std::shared_ptr<attributes::readers::IReader> reader_;  // its reader; null together with attribute_
};

}  // namespace io
}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_IO_NTFS_FILE_H_
