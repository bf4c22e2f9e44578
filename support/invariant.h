// One reporter for broken invariants, and the hook that runs the checks.
//
// Every check_invariants() in the library reports through
// invariant_violated: one line on standard error naming the structure, the
// broken invariant and, where it helps, the value, then abort().  A broken
// invariant is a bug, never an input error, so nothing is thrown and nothing
// is recovered.
//
// QORV_DEBUG_CHECK(x) runs x.check_invariants() after a mutation when the
// library is built with QORV_DEBUG_INVARIANTS (the CMake option of that
// name); otherwise it compiles to nothing, so release builds pay nothing.
#pragma once

#include <string>

namespace qorv {

[[noreturn]] void invariant_violated(char const* structure, char const* what,
                                     std::string const& value = {}) noexcept;

} // namespace qorv

#ifdef QORV_DEBUG_INVARIANTS
#define QORV_DEBUG_CHECK(x) (x).check_invariants()
#else
#define QORV_DEBUG_CHECK(x) static_cast<void>(0)
#endif
