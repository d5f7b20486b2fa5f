// A byte source that passes reads on and remembers which 4 KiB chunks they
// touched, so that the seed generator can keep only the bytes a piece of
// work actually read.
#ifndef TOLVAR_TESTS_FUZZ_RECORDING_SOURCE_H_
#define TOLVAR_TESTS_FUZZ_RECORDING_SOURCE_H_

#include <cstdint>
#include <memory>
#include <set>

#include "ntfsparsercore/io/i_source.h"
#include "tests/fixtures/sparse_source.h"

namespace tolvarfuzz {

class RecordingSource : public ntfsparsercore::io::ISource {
 public:
  explicit RecordingSource(std::shared_ptr<ntfsparsercore::io::ISource> inner) : inner_(std::move(inner)) {}

  uint64_t Read(void* buffer, uint64_t size, uint64_t offset) override {
    uint64_t count = inner_->Read(buffer, size, offset);
    for (uint64_t at = offset - offset % kChunk; at < offset + count; at += kChunk) touched_.insert(at / kChunk);
    return count;
  }
  uint64_t GetSize() override { return inner_->GetSize(); }

  // The touched chunks below limit, copied into a sparse source of
  // min(size, limit) bytes.
  std::shared_ptr<tolvartest::SparseSource> Touched(uint64_t limit) {
    uint64_t size = std::min(inner_->GetSize(), limit);
    auto sparse = std::make_shared<tolvartest::SparseSource>(size);
    std::vector<uint8_t> chunk(kChunk);
    for (uint64_t index : touched_) {
      if (index * kChunk >= size) break;
      uint64_t count = inner_->Read(chunk.data(), std::min(kChunk, size - index * kChunk), index * kChunk);
      sparse->Write(index * kChunk, chunk.data(), count);
    }
    return sparse;
  }

 private:
  static constexpr uint64_t kChunk = tolvartest::SparseSource::kChunk;
  std::shared_ptr<ntfsparsercore::io::ISource> inner_;  // the bytes read
  std::set<uint64_t> touched_;                          // chunk numbers read from
};

}  // namespace tolvarfuzz

#endif  // TOLVAR_TESTS_FUZZ_RECORDING_SOURCE_H_
