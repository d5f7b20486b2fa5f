// The tolvar command's arguments: positional words and options, checked
// against what each subcommand accepts.
#ifndef TOLVAR_CLI_COMMAND_LINE_H_
#define TOLVAR_CLI_COMMAND_LINE_H_

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace tolvarcli {

class CommandLine {
 public:
  // What a subcommand accepts: its positional count, its flags (no value)
  // and its options that take a value.
  struct Grammar {
    std::size_t positionals = 0;          // count of positional words that must be given
    std::set<std::string> flags;          // e.g. "--json"
    std::set<std::string> valueOptions;   // e.g. "--block-size"
    std::size_t optionalPositionals = 0;  // more positional words that may follow them
  };

  // Parses words (the arguments after the subcommand). False, with *error
  // saying why, when they do not fit grammar.
  bool Parse(const std::vector<std::string>& words, const Grammar& grammar, std::string* error);

  const std::string& Positional(std::size_t index) const { return positionals_[index]; }
  std::size_t PositionalCount() const { return positionals_.size(); }
  bool Has(const std::string& flag) const { return flags_.count(flag) != 0; }
  // The option's value (the last one when given more than once), or
  // fallback when it was not given.
  std::string Value(const std::string& option, const std::string& fallback) const;
  // Every value given for a repeatable option, in order (e.g. one path per
  // --exclude).
  std::vector<std::string> Values(const std::string& option) const;

  // The block size given with --block-size (decimal bytes, or with a K
  // suffix for KiB), or fallback. False, after saying so on stderr, when
  // the text is not a number.
  bool BlockSize(uint64_t fallback, uint64_t* out) const;

 private:
  bool ParseBlockSize(uint64_t fallback, uint64_t* out) const;

  std::vector<std::string> positionals_;                    // in order
  std::set<std::string> flags_;                             // flags given
  std::map<std::string, std::vector<std::string>> values_;  // each option's values, in order
};

}  // namespace tolvarcli

#endif  // TOLVAR_CLI_COMMAND_LINE_H_
