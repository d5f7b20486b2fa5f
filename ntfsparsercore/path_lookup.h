// Finding a file by its path: directory listings from the index root and
// index blocks, file names from the file name attributes, and the walk
// from the root directory down the path's components.
#ifndef TOLVAR_NTFSPARSERCORE_PATH_LOOKUP_H_
#define TOLVAR_NTFSPARSERCORE_PATH_LOOKUP_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ntfsparsercore/io/ntfs_file.h"
#include "ntfsparsercore/mft_record.h"
#include "ntfsparsercore/ntfs_volume.h"

namespace ntfsparsercore {

// The regular file at path ("/dir/name", components compared with the
// on-disk names folded to lower case), as a new NtfsFile; null when a
// component is not found (no message) or after a message (level 2).
std::unique_ptr<io::NtfsFile> FindFile(const std::shared_ptr<NtfsVolume>& volume, const std::string& path);

// The record numbers of a directory's index entries in index order (each
// sub-node's entries before the entry pointing to it); not sorted, not unique.
std::vector<uint64_t> ListDirectory(const std::shared_ptr<MftRecord>& record);

// The record's name in UTF-8, preferring the POSIX, then Win32, then
// Win32-and-DOS, then DOS namespace; empty when it has none.
std::string GetFileName(const std::shared_ptr<MftRecord>& record);

}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_PATH_LOOKUP_H_
