#include "cli/block_ranges.h"

namespace tolvarcli {

// The set bits of map as ascending runs of (first, last) block numbers.
BlockRanges SetRuns(const std::vector<uint8_t>& map) {
  BlockRanges runs;
  const uint64_t bits = map.size() * 8;
  for (uint64_t i = 0; i < bits; ++i) {
    if (((map[i / 8] >> (i % 8)) & 1) == 0) continue;
    if (!runs.empty() && runs.back().second + 1 == i) {
      runs.back().second = i;
    } else {
      runs.emplace_back(i, i);
    }
  }
  return runs;
}

// "0-3 7": a run of one block is its number alone.
std::string RangeText(const BlockRanges& runs) {
  std::string text;
  for (const auto& run : runs) {
    if (!text.empty()) text += ' ';
    text += std::to_string(run.first);
    if (run.second != run.first) text += '-' + std::to_string(run.second);
  }
  return text;
}

}  // namespace tolvarcli
