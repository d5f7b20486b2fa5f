#include "support/bench_case.h"

#include <cstdio>
#include <cstdlib>

namespace tolvarbench {

std::vector<BenchCase> BenchCase::FromArguments(int argc, char** argv) {
  std::vector<BenchCase> cases;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    const std::size_t equals = argument.find('=');
    const std::size_t firstComma = argument.find(',', equals);
    const std::size_t secondComma = argument.find(',', firstComma + 1);
    if (equals == std::string::npos || firstComma == std::string::npos || secondComma == std::string::npos) {
      std::fprintf(stderr, "%s: not NAME=IMAGE,FROM,TO: %s\n", argv[0], argument.c_str());
      std::exit(2);
    }
    BenchCase input;
    input.name_ = argument.substr(0, equals);
    input.image_ = argument.substr(equals + 1, firstComma - equals - 1);
    input.from_ = argument.substr(firstComma + 1, secondComma - firstComma - 1);
    input.to_ = argument.substr(secondComma + 1);
    cases.push_back(input);
  }
  if (cases.empty()) {
    std::fprintf(stderr, "usage: %s [--benchmark_...] NAME=IMAGE,FROM,TO...\n", argv[0]);
    std::exit(2);
  }
  return cases;
}

}  // namespace tolvarbench
