#include "bench/support/files/peak_memory.h"

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

std::size_t PeakMemory::MaxResident() { return static_cast<std::size_t>(HeapPeak::MaxResidentKiB()) * 1024; }

}  // namespace tolvarbench
