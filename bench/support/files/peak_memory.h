// The peak of the bytes held through the global operator new that an
// operation reached above what was held when it started, and the process's
// maximum resident set. The count itself is kept by HeapPeak, whose
// replacement of operator new every benchmark program links.
#ifndef TOLVAR_BENCH_SUPPORT_FILES_PEAK_MEMORY_H_
#define TOLVAR_BENCH_SUPPORT_FILES_PEAK_MEMORY_H_

#include <cstddef>

#include "support/heap_peak.h"

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
  HeapPeak peak_;  // the count since construction
};

}  // namespace tolvarbench

#endif  // TOLVAR_BENCH_SUPPORT_FILES_PEAK_MEMORY_H_
