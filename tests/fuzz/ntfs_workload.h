// What the NTFS fuzz target does with a volume, shared with the seed
// generator so that seeds hold exactly the bytes this work reads: the boot
// sector, the first records with every attribute read through its reader
// (run lists, attribute lists, compressed streams), the root directory's
// listing, and each listed file found by path and read.
#ifndef TOLVAR_TESTS_FUZZ_NTFS_WORKLOAD_H_
#define TOLVAR_TESTS_FUZZ_NTFS_WORKLOAD_H_

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ntfsparsercore/attribute.h"
#include "ntfsparsercore/attributes/readers/i_reader.h"
#include "ntfsparsercore/io/ntfs_file.h"
#include "ntfsparsercore/mft_record.h"
#include "ntfsparsercore/mft_table.h"
#include "ntfsparsercore/ntfs_volume.h"
#include "ntfsparsercore/path_lookup.h"

namespace tolvarfuzz {

class NtfsWorkload {
 public:
  static constexpr uint64_t kCacheBytes = 1 << 20;
  static constexpr uint64_t kRecordsWalked = 40;  // the system files and the first user files
  static constexpr uint64_t kRootRecord = 5;
  static constexpr std::size_t kEntriesFollowed = 16;  // of each directory listed
  static constexpr uint64_t kReadLimit = 16 * 1024;    // bytes read of each stream
  static constexpr uint64_t kReadPiece = 4 * 1024;

  static void Run(const std::shared_ptr<ntfsparsercore::io::ISource>& source) {
    std::shared_ptr<ntfsparsercore::NtfsVolume> volume(ntfsparsercore::NtfsVolume::Create(source, kCacheBytes));
    if (!volume) return;
    ntfsparsercore::MftTable* table = volume->GetMftTable();
    for (uint64_t number = 0; number < kRecordsWalked; ++number) ReadRecord(table->GetRecord(number, true));
    Descend(volume, table->GetRecord(kRootRecord, true), "", 2);
  }

 private:
  static void ReadRecord(const std::shared_ptr<ntfsparsercore::MftRecord>& record) {
    if (!record) return;
    ntfsparsercore::GetFileName(record);
    for (const auto& attribute : record->GetAttributes()) {
      std::shared_ptr<ntfsparsercore::attributes::readers::IReader> reader = attribute->CreateReader();
      if (!reader) continue;
      reader->GetExtents();
      ReadStream(*reader, attribute->GetSize());
    }
  }

  // Lists the directory, finds each entry by its path and reads it; goes
  // depth levels down.
  static void Descend(const std::shared_ptr<ntfsparsercore::NtfsVolume>& volume,
                      const std::shared_ptr<ntfsparsercore::MftRecord>& directory, const std::string& path, int depth) {
    if (!directory || depth == 0) return;
    std::vector<uint64_t> entries = ntfsparsercore::ListDirectory(directory);
    if (entries.size() > kEntriesFollowed) entries.resize(kEntriesFollowed);
    for (uint64_t number : entries) {
      if (number == directory->GetRecordNumber()) continue;
      std::shared_ptr<ntfsparsercore::MftRecord> entry = volume->GetMftTable()->GetRecord(number, true);
      if (!entry) continue;
      std::string name = ntfsparsercore::GetFileName(entry);
      if (name.empty()) continue;
      std::string entryPath = path + "/" + name;
      if (entry->IsDirectory()) {
        Descend(volume, entry, entryPath, depth - 1);
        continue;
      }
      std::unique_ptr<ntfsparsercore::io::NtfsFile> file(ntfsparsercore::FindFile(volume, entryPath));
      if (!file) continue;
      file->GetExtents();
      ReadStream(*file, file->GetSize());
    }
  }

  static void ReadStream(ntfsparsercore::io::ISource& stream, uint64_t size) {
    std::vector<uint8_t> buffer(kReadPiece);
    uint64_t end = std::min(size, kReadLimit);
    for (uint64_t offset = 0; offset < end; offset += kReadPiece) {
      if (stream.Read(buffer.data(), std::min(kReadPiece, end - offset), offset) == 0) break;
    }
  }
};

}  // namespace tolvarfuzz

#endif  // TOLVAR_TESTS_FUZZ_NTFS_WORKLOAD_H_
