// Allocation-failure injection for tests.
//
// Test programs link with -Wl,--wrap=malloc, so every malloc made by the
// library's objects (pool chunks) comes through here, and they replace the
// global operator new.  Arm a countdown with fail_allocation_after(k): the
// k-th allocation from now (k = 0: the next one) fails, malloc returning null
// and operator new throwing std::bad_alloc; later ones succeed again.
#pragma once

#include <cstdint>
#include <new>

namespace qorv::test {

void fail_allocation_after(std::int64_t k);
void disarm_allocation_failure();
// Allocations seen since the last arm/disarm (counted whether armed or not).
std::int64_t allocations_seen();
// True once the armed failure has fired.
bool allocation_failure_fired();

// Scope guard: arms on construction, disarms on destruction.
class AllocationFailure {
public:
  explicit AllocationFailure(std::int64_t k) { fail_allocation_after(k); }
  ~AllocationFailure() { disarm_allocation_failure(); }
  AllocationFailure(AllocationFailure const&) = delete;
  AllocationFailure& operator=(AllocationFailure const&) = delete;
};

// Runs op with the k-th allocation failing, for k = 0, 1, ... until op
// completes; after each std::bad_alloc it calls intact() (the failure
// disarmed) to check what op promises to leave behind.  Returns the number
// of failed runs, or -1 when op completed although the failure fired (it
// swallowed the failure).
template <class Op, class Intact>
int each_failure(Op op, Intact intact) {
  for (int k = 0;; ++k) {
    try {
      AllocationFailure fail(k);
      op();
      return allocation_failure_fired() ? -1 : k;
    } catch (std::bad_alloc const&) {
      intact();
    }
  }
}

} // namespace qorv::test
