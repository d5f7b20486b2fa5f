// The set bits of a map (bit i least significant first in byte i / 8) as
// ranges of block numbers, and those ranges as the command prints them.
#ifndef TOLVAR_CLI_BLOCK_RANGES_H_
#define TOLVAR_CLI_BLOCK_RANGES_H_

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace tolvarcli {

// (first, last) block numbers of each run of set bits, ascending.
using BlockRanges = std::vector<std::pair<uint64_t, uint64_t>>;

// The set bits of map as ascending runs of (first, last) block numbers.
BlockRanges SetRuns(const std::vector<uint8_t>& map);

// "0-3 7": runs separated by a space, a run of one block as its number alone;
// empty when there is none.
std::string RangeText(const BlockRanges& runs);

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_BLOCK_RANGES_H_
