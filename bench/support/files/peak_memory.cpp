#include "bench/support/files/peak_memory.h"

#include <sys/resource.h>

namespace tolvarbench {

PeakMemory::PeakMemory() = default;

std::size_t PeakMemory::PeakAboveStart() const {
  const int64_t peak = peak_.Peak();
  return peak > 0 ? static_cast<std::size_t>(peak) : 0;
}

std::size_t PeakMemory::Held() {
  const int64_t held = HeapPeak::Total();
  return held > 0 ? static_cast<std::size_t>(held) : 0;
}

std::size_t PeakMemory::MaxResident() {
  struct rusage usage = {};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<std::size_t>(usage.ru_maxrss) * 1024;
}

}  // namespace tolvarbench
