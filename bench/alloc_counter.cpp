// Counts heap allocations of the benchmark process: operator new is replaced
// here, and the library's own malloc calls reach __wrap_malloc through the
// linker's --wrap=malloc.  The count is a plain integer because every
// benchmark runs on one thread; it lets the heuristic benchmarks show that a
// warmed-up call makes no allocation.
#include "bench_util.h"

#include <cstdlib>
#include <new>

namespace {
std::uint64_t allocations = 0;

void* counted(std::size_t n);
} // namespace

extern "C" void* __real_malloc(std::size_t n);
extern "C" void* __wrap_malloc(std::size_t n);

extern "C" void* __wrap_malloc(std::size_t n) {
  ++allocations;
  return __real_malloc(n);
}

namespace {
void* counted(std::size_t n) {
  ++allocations;
  if (void* p = __real_malloc(n == 0 ? 1 : n)) return p;
  throw std::bad_alloc();
}
} // namespace

void* operator new(std::size_t n) { return counted(n); }
void* operator new[](std::size_t n) { return counted(n); }
void* operator new(std::size_t n, std::nothrow_t const&) noexcept {
  ++allocations;
  return __real_malloc(n == 0 ? 1 : n);
}
void* operator new[](std::size_t n, std::nothrow_t const&) noexcept {
  ++allocations;
  return __real_malloc(n == 0 ? 1 : n);
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }

namespace qorv::bench {
std::uint64_t allocation_count() noexcept { return allocations; }
} // namespace qorv::bench
