#include "bench/support/files/bench_handle.h"

#include <stdexcept>

#include "ntfsparsercore/io/source_factory.h"
#include "tolvar/tolvar.h"

namespace tolvarbench {

namespace {

// A block processor whose result is set directly instead of computed from a store.
class GivenResultProcessor : public tolvarcore::BlockProcessor {
 public:
  using BlockProcessor::BlockProcessor;
  using BlockProcessor::SetResult;
};

std::shared_ptr<ntfsparsercore::io::ISource> OpenDevice(const std::string& path) {
  ntfsparsercore::io::SourceFactory factory;
  std::unique_ptr<ntfsparsercore::io::ISource> file = factory.Open(path.c_str());
  if (!file) throw std::runtime_error("cannot open " + path);
  return factory.CreateCacheProxy(std::move(file), BenchHandle::kLineSize);
}

}  // namespace

BenchHandle::BenchHandle(const std::string& path, uint64_t volumeSize, uint64_t blockSize, uint64_t changedEvery) {
  const uint64_t blocks = volumeSize / blockSize;
  changed_ = std::make_shared<tolvarcore::BitMap>((blocks + 7) / 8);
  // Past the last block the step ends the loop rather than wrapping round.
  for (uint64_t b = 0; b<blocks; b = changedEvery> blocks - b ? blocks : b + changedEvery) changed_->Set(b);
  auto processor = std::make_unique<GivenResultProcessor>(blockSize, 0);
  processor->SetResult(changed_, std::make_shared<tolvarcore::BitMap>(changed_->SizeInBytes()), OpenDevice(path),
                       OpenDevice(path));
  handle_ = new TrackingHandle();
  handle_->blockProcessor = std::move(processor);
}

BenchHandle::~BenchHandle() { FreeHandle(handle_); }

}  // namespace tolvarbench
