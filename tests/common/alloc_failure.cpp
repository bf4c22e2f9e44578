// Allocation-failure injection (see alloc_failure.h): a process-wide
// countdown that __wrap_malloc and the replaced operator new consult.
#include "tests/common/alloc_failure.h"

#include <cstdlib>
#include <new>

extern "C" void* __real_malloc(std::size_t size);

namespace {
std::int64_t countdown = -1; // < 0: disarmed
std::int64_t seen = 0;
bool fired = false;

// True when this allocation must fail.
bool should_fail() {
  ++seen;
  if (countdown < 0 || countdown-- != 0) return false;
  return fired = true;
}
} // namespace

extern "C" void* __wrap_malloc(std::size_t size) {
  return should_fail() ? nullptr : __real_malloc(size);
}

namespace qorv::test {
void fail_allocation_after(std::int64_t k) {
  countdown = k;
  seen = 0;
  fired = false;
}
void disarm_allocation_failure() {
  countdown = -1;
  seen = 0;
}
std::int64_t allocations_seen() {
  return seen;
}
bool allocation_failure_fired() {
  return fired;
}
} // namespace qorv::test

// Replaced global allocation functions: they fail with the countdown too.
void* operator new(std::size_t size) {
  if (should_fail()) throw std::bad_alloc();
  if (void* p = __real_malloc(size == 0 ? 1 : size)) return p;
  throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
  return operator new(size);
}
void operator delete(void* p) noexcept {
  std::free(p);
}
void operator delete[](void* p) noexcept {
  std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
  std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
  std::free(p);
}
