// The 64-bit hash of version 2 and 3 increment files: XXH3-64 (libxxhash), for
// each block's fingerprints and over the whole file. block_hash_xxhash.cpp
// holds it where the library is found (Linux); block_hash_unavailable.cpp
// says it is missing elsewhere, and such a build writes and reads only
// version 1 increments.
#ifndef TOLVAR_CLI_BLOCK_HASH_H_
#define TOLVAR_CLI_BLOCK_HASH_H_

#include <cstddef>
#include <cstdint>
#include <memory>

namespace tolvarcli {

class BlockHash {
 public:
  // Whether this build has the hash.
  static bool Available();
  // The hash of size bytes at data.
  static uint64_t Of(const void* data, std::size_t size);

  // A running hash over many pieces.
  BlockHash();
  ~BlockHash();
  BlockHash(const BlockHash&) = delete;
  BlockHash& operator=(const BlockHash&) = delete;
  void Update(const void* data, std::size_t size);
  uint64_t Value() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_BLOCK_HASH_H_
