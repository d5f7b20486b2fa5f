#include "bench/support/files/peak_memory.h"

#include <malloc.h>
#include <sys/resource.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> g_held{0};  // bytes held through operator new now
std::atomic<std::size_t> g_peak{0};  // highest g_held since the last reset

void* Allocate(std::size_t size) {
  void* p = std::malloc(size == 0 ? 1 : size);
  if (p == nullptr) throw std::bad_alloc();
  const std::size_t held = g_held.fetch_add(malloc_usable_size(p), std::memory_order_relaxed) + malloc_usable_size(p);
  std::size_t peak = g_peak.load(std::memory_order_relaxed);
  while (held > peak && !g_peak.compare_exchange_weak(peak, held, std::memory_order_relaxed)) {
  }
  return p;
}

void Release(void* p) {
  if (p == nullptr) return;
  g_held.fetch_sub(malloc_usable_size(p), std::memory_order_relaxed);
  std::free(p);
}

}  // namespace

// Every replaceable form without an alignment, so that each allocation is
// counted and released by the matching function.
void* operator new(std::size_t size) { return Allocate(size); }
void* operator new[](std::size_t size) { return Allocate(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return Allocate(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept { return operator new(size, tag); }
void operator delete(void* p) noexcept { Release(p); }
void operator delete[](void* p) noexcept { Release(p); }
void operator delete(void* p, std::size_t) noexcept { Release(p); }
void operator delete[](void* p, std::size_t) noexcept { Release(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { Release(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { Release(p); }

namespace tolvarbench {

PeakMemory::PeakMemory() : start_(g_held.load()) { g_peak = start_; }

std::size_t PeakMemory::PeakAboveStart() const {
  const std::size_t peak = g_peak.load();
  return peak > start_ ? peak - start_ : 0;
}

std::size_t PeakMemory::Held() { return g_held.load(); }

std::size_t PeakMemory::MaxResident() {
  struct rusage usage = {};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<std::size_t>(usage.ru_maxrss) * 1024;
}

}  // namespace tolvarbench
