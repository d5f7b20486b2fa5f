#include "cli/command_line.h"

#include <cstdio>

#include <cctype>

namespace tolvarcli {

namespace {

constexpr uint64_t kKibibyte = 1024;
// Larger numbers than this cannot be a block size; stops overflow while parsing.
constexpr uint64_t kLargestNumber = 1ull << 40;

bool IsOption(const std::string& word) { return word.size() > 2 && word.compare(0, 2, "--") == 0; }

}  // namespace

bool CommandLine::Parse(const std::vector<std::string>& words, const Grammar& grammar, std::string* error) {
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::string& word = words[i];
    // The grammar's own names come first: it may name short options (-f).
    if (grammar.flags.count(word)) {
      flags_.insert(word);
    } else if (grammar.valueOptions.count(word)) {
      if (i + 1 == words.size()) {
        *error = word + " needs a value";
        return false;
      }
      values_[word].push_back(words[++i]);
    } else if (!IsOption(word)) {
      positionals_.push_back(word);
    } else {
      *error = "unknown option " + word;
      return false;
    }
  }
  const std::size_t most = grammar.positionals + grammar.optionalPositionals;
  if (positionals_.size() < grammar.positionals || positionals_.size() > most) {
    const std::string expected = grammar.optionalPositionals == 0
                                     ? std::to_string(grammar.positionals)
                                     : std::to_string(grammar.positionals) + " to " + std::to_string(most);
    *error = "expected " + expected + " arguments, got " + std::to_string(positionals_.size());
    return false;
  }
  return true;
}

std::string CommandLine::Value(const std::string& option, const std::string& fallback) const {
  auto it = values_.find(option);
  return it == values_.end() ? fallback : it->second.back();
}

std::vector<std::string> CommandLine::Values(const std::string& option) const {
  auto it = values_.find(option);
  return it == values_.end() ? std::vector<std::string>() : it->second;
}

bool CommandLine::ParseBlockSize(uint64_t fallback, uint64_t* out) const {
  auto it = values_.find("--block-size");
  if (it == values_.end()) {
    *out = fallback;
    return true;
  }
  const std::string& text = it->second.back();
  uint64_t value = 0;
  std::size_t i = 0;
  for (; i < text.size() && std::isdigit(static_cast<unsigned char>(text[i])); ++i) {
    value = value * 10 + static_cast<uint64_t>(text[i] - '0');
    if (value > kLargestNumber) return false;
  }
  if (i == 0) return false;
  if (i + 1 == text.size() && (text[i] == 'K' || text[i] == 'k')) {
    value *= kKibibyte;
    ++i;
  }
  if (i != text.size()) return false;
  *out = value;
  return true;
}

bool CommandLine::BlockSize(uint64_t fallback, uint64_t* out) const {
  if (ParseBlockSize(fallback, out)) return true;
  std::fprintf(stderr, "tolvar: --block-size takes a number of bytes (or KiB with K)\n");
  return false;
}

}  // namespace tolvarcli
