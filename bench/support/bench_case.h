// One input of a benchmark program, named on its command line as
// NAME=IMAGE,FROM,TO: a volume image and the older and newer shadow copy.
#ifndef TOLVAR_BENCH_SUPPORT_BENCH_CASE_H_
#define TOLVAR_BENCH_SUPPORT_BENCH_CASE_H_

#include <string>
#include <vector>

namespace tolvarbench {

class BenchCase {
 public:
  // The cases among arguments (after Google Benchmark took its own flags);
  // prints the usage and exits with 2 on an argument of another form or
  // when there is none.
  static std::vector<BenchCase> FromArguments(int argc, char** argv);

  const std::string& Name() const { return name_; }
  const std::string& Image() const { return image_; }
  const std::string& From() const { return from_; }
  const std::string& To() const { return to_; }

 private:
  std::string name_;   // label of the case in the results
  std::string image_;  // path of the volume image
  std::string from_;   // identifier of the older shadow copy
  std::string to_;     // identifier of the newer shadow copy
};

}  // namespace tolvarbench

#endif  // TOLVAR_BENCH_SUPPORT_BENCH_CASE_H_
