#include <xxhash.h>

#include "cli/block_hash.h"

namespace tolvarcli {

struct BlockHash::State {
  XXH3_state_t* xxh = XXH3_createState();
  ~State() { XXH3_freeState(xxh); }
};

bool BlockHash::Available() { return true; }

uint64_t BlockHash::Of(const void* data, std::size_t size) { return XXH3_64bits(data, size); }

BlockHash::BlockHash() : state_(new State) { XXH3_64bits_reset(state_->xxh); }

BlockHash::~BlockHash() = default;

void BlockHash::Update(const void* data, std::size_t size) { XXH3_64bits_update(state_->xxh, data, size); }

uint64_t BlockHash::Value() const { return XXH3_64bits_digest(state_->xxh); }

}  // namespace tolvarcli
