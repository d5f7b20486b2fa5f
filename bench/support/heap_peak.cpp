#include "support/heap_peak.h"

#include <malloc.h>
#include <sys/resource.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<int64_t> liveBytes{0};  // bytes handed out by operator new and not yet freed
std::atomic<int64_t> peakBytes{0};  // highest liveBytes since the last HeapPeak began

void* Allocate(std::size_t size) {
  void* block = std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  const int64_t live = liveBytes += static_cast<int64_t>(malloc_usable_size(block));
  int64_t peak = peakBytes.load();
  while (live > peak && !peakBytes.compare_exchange_weak(peak, live)) {
  }
  return block;
}

void Release(void* block) {
  if (block == nullptr) return;
  liveBytes -= static_cast<int64_t>(malloc_usable_size(block));
  std::free(block);
}

}  // namespace

void* operator new(std::size_t size) { return Allocate(size); }
void* operator new[](std::size_t size) { return Allocate(size); }
void operator delete(void* block) noexcept { Release(block); }
void operator delete[](void* block) noexcept { Release(block); }
void operator delete(void* block, std::size_t) noexcept { Release(block); }
void operator delete[](void* block, std::size_t) noexcept { Release(block); }

namespace tolvarbench {

HeapPeak::HeapPeak() : base_(liveBytes.load()) { peakBytes = base_; }

int64_t HeapPeak::Live() const { return liveBytes.load() - base_; }

int64_t HeapPeak::Peak() const { return peakBytes.load() - base_; }

int64_t HeapPeak::Total() { return liveBytes.load(); }

long HeapPeak::MaxResidentKiB() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

}  // namespace tolvarbench
