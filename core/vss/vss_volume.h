// The shadow-copy store of one volume, as its volume header at 0x1E00
// (store_format.h) describes it. Opens the store's records.
#ifndef TOLVAR_CORE_VSS_VSS_VOLUME_H_
#define TOLVAR_CORE_VSS_VSS_VOLUME_H_

#include <cstdint>
#include <memory>

#include "core/vss/guid.h"
#include "core/vss/vss_record.h"
#include "ntfsparsercore/io/i_source.h"

namespace tolvarcore {
namespace vss {

class VssVolume {
 public:
  // Reads and checks the volume header. Never throws: a rejected header
  // (reported) or an empty source (not reported) leaves catalog offset 0
  // and zero identifiers, which later readers take for an absent store.
  explicit VssVolume(std::shared_ptr<ntfsparsercore::io::ISource> source);

  VssVolume(const VssVolume&) = delete;
  VssVolume& operator=(const VssVolume&) = delete;

  virtual uint64_t GetCatalogOffset() const;
  virtual Guid GetVolumeIdentifier() const;
  virtual Guid GetStoreVolumeIdentifier() const;
  // A new record over the volume's source, starting at the page at offset.
  // Never fails: a chain that cannot be walked comes back empty.
  virtual std::shared_ptr<VssRecord> OpenRecord(uint64_t offset) const;
  // The size of the underlying source in bytes.
  virtual uint64_t GetSize() const;
  // The byte source the store is read from: the volume itself.
  std::shared_ptr<ntfsparsercore::io::ISource> GetSource() const { return source_; }
  virtual ~VssVolume();

 private:
  void ReadHeader();

  uint64_t catalogOffset_ = 0;  // 0 until a header was accepted
  Guid volumeIdentifier_;
  Guid storeVolumeIdentifier_;
  std::shared_ptr<ntfsparsercore::io::ISource> source_;
};

}  // namespace vss
}  // namespace tolvarcore

#endif  // TOLVAR_CORE_VSS_VSS_VOLUME_H_
