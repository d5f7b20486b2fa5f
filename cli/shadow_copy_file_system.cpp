#include "cli/shadow_copy_file_system.h"

#include <algorithm>

namespace tolvarcli {

namespace {

constexpr uint64_t kFileTimeUnitsPerSecond = 10000000;       // FILETIME counts 100 ns
constexpr uint64_t kFileTimeAt1970 = 116444736000000000ull;  // 1970-01-01 as a FILETIME
constexpr uint64_t kNanosecondsPerUnit = 100;
const char kShadowCopyPrefix[] = "vss";

// The shadow copy number in a name "vssN" (N from 1, no leading zero), or 0.
std::size_t ShadowCopyNumber(const std::string& name) {
  const std::string prefix = kShadowCopyPrefix;
  if (name.size() <= prefix.size() || name.compare(0, prefix.size(), prefix) != 0) return 0;
  const std::string digits = name.substr(prefix.size());
  if (digits[0] == '0' || digits.size() > 9) return 0;
  if (!std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; })) return 0;
  return static_cast<std::size_t>(std::stoul(digits));
}

}  // namespace

ShadowCopyFileSystem::Time ShadowCopyFileSystem::FromFileTime(uint64_t fileTime) {
  if (fileTime < kFileTimeAt1970) return Time{};
  const uint64_t units = fileTime - kFileTimeAt1970;
  return Time{static_cast<int64_t>(units / kFileTimeUnitsPerSecond),
              static_cast<int64_t>(units % kFileTimeUnitsPerSecond * kNanosecondsPerUnit)};
}

ShadowCopyFileSystem::ShadowCopyFileSystem(File volume) { files_.push_back(std::move(volume)); }

void ShadowCopyFileSystem::AddShadowCopy(const std::string& id, File file) {
  files_.push_back(std::move(file));
  ids_.push_back(id);
}

ShadowCopyFileSystem::Node ShadowCopyFileSystem::Lookup(const std::string& path) const {
  if (path.empty() || path[0] != '/') return Node{};
  const std::string byId = std::string("/") + kByIdName;
  if (path == "/" || path == byId) return Node{Node::kDirectory, 0};
  if (path == std::string("/") + kVolumeName) return Node{Node::kFile, 0};
  if (path.compare(0, byId.size() + 1, byId + "/") == 0) {
    const auto it = std::find(ids_.begin(), ids_.end(), path.substr(byId.size() + 1));
    if (it != ids_.end()) return Node{Node::kFile, static_cast<std::size_t>(it - ids_.begin()) + 1};
    return Node{};
  }
  const std::size_t number = ShadowCopyNumber(path.substr(1));
  if (number >= 1 && number <= ids_.size()) return Node{Node::kFile, number};
  return Node{};
}

std::vector<std::string> ShadowCopyFileSystem::List(const std::string& path) const {
  if (path == std::string("/") + kByIdName) return ids_;
  std::vector<std::string> names;
  if (path != "/") return names;
  for (std::size_t number = 1; number <= ids_.size(); ++number) {
    names.push_back(kShadowCopyPrefix + std::to_string(number));
  }
  names.push_back(kVolumeName);
  names.push_back(kByIdName);
  return names;
}

int64_t ShadowCopyFileSystem::Read(std::size_t index, void* buffer, uint64_t size, uint64_t offset) const {
  const File& file = files_[index];
  if (offset >= file.size) return 0;
  const uint64_t wanted = std::min(size, file.size - offset);
  std::unique_lock<std::mutex> turn(readMutex_, std::defer_lock);
  if (serialised_) turn.lock();
  const uint64_t got = file.source->Read(buffer, wanted, offset);
  return got == wanted ? static_cast<int64_t>(got) : -1;
}

}  // namespace tolvarcli
