// Live heap bytes of this process, for reporting how much memory a call
// keeps and how high it goes. The global operator new and delete of a
// benchmark program are replaced (heap_peak.cpp) to keep the count.
#ifndef TOLVAR_BENCH_SUPPORT_HEAP_PEAK_H_
#define TOLVAR_BENCH_SUPPORT_HEAP_PEAK_H_

#include <cstdint>

namespace tolvarbench {

class HeapPeak {
 public:
  // Starts a new peak at the bytes live now.
  HeapPeak();

  // Bytes live now, less those live at construction.
  int64_t Live() const;
  // The highest Live() seen since construction.
  int64_t Peak() const;

  // Bytes live now in the whole process.
  static int64_t Total();
  // The process's maximum resident set so far, in KiB.
  static long MaxResidentKiB();

 private:
  int64_t base_;  // live bytes when this measurement began
};

}  // namespace tolvarbench

#endif  // TOLVAR_BENCH_SUPPORT_HEAP_PEAK_H_
