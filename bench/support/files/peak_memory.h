// Counts the bytes held through the global operator new, so that a
// benchmark can report the peak an operation reached above what was held
// when it started. The replacement of operator new lives in peak_memory.cpp,
// linked into every benchmark program.
#ifndef TOLVAR_BENCH_SUPPORT_FILES_PEAK_MEMORY_H_
#define TOLVAR_BENCH_SUPPORT_FILES_PEAK_MEMORY_H_

#include <cstddef>

namespace tolvarbench {

class PeakMemory {
 public:
  // Starts a measurement: the peak is set to what is held now.
  PeakMemory();

  // The highest number of bytes held since construction, less what was
  // held at construction.
  std::size_t PeakAboveStart() const;

  // Bytes held now, process-wide.
  static std::size_t Held();
  // The process's maximum resident set size in bytes.
  static std::size_t MaxResident();

 private:
  std::size_t start_;  // bytes held at construction
};

}  // namespace tolvarbench

#endif  // TOLVAR_BENCH_SUPPORT_FILES_PEAK_MEMORY_H_
