// Internal: add, sub, mul, div, sqrt and fma of narrow formats computed with
// one hardware double operation and rounded once to the format, for every
// rounding mode; not part of the public interface.
//
// A format qualifies when its values are doubles with room to spare: eb <= 11
// and sb <= 51 (fma: sb <= 26, so that a product is exact), or Float64
// itself.  The hardware result s comes with the exact error e of the
// operation (exact = s + e; e from the classic error-free transformations,
// or only its sign where that is all rounding needs), which turns s into the
// round-to-odd value of the exact result: with two bits to spare, rounding that
// to the format gives the correctly rounded result in every mode.  Float64
// steps s by one unit in the last place where the mode disagrees with
// ties-to-even.
//
// The error is exact only while s and the operands stay clear of double's
// overflow and subnormal range; outside [2^-900, 2^900] these functions
// decline (no value), and the caller goes through MPFR.  Infinite, NaN and
// division-by-zero operands give exact results, which are taken as they are.
#pragma once

#include "fp_arith.h"

#include <optional>

namespace qorv::swflt::detail {

bool double_path_qualifies(IEEEFloat::format f, bool for_fma);
// The correctly rounded result, or no value when the operands or the result
// leave the range where the hardware's error is exact.  Requires operands of
// one qualifying format and a valid rounding mode.
std::optional<IEEEFloat> binary_via_double(Op2 op, IEEEFloat::rounding_mode rm, IEEEFloat const& x,
                                           IEEEFloat const& y);
std::optional<IEEEFloat> sqrt_via_double(IEEEFloat::rounding_mode rm, IEEEFloat const& x);
std::optional<IEEEFloat> fma_via_double(IEEEFloat::rounding_mode rm, IEEEFloat const& x,
                                        IEEEFloat const& y, IEEEFloat const& z);

// Tests switch the path off to run the same cases through MPFR; on by
// default.  Returns the previous setting.  Not thread-safe.
bool set_double_path(bool on) noexcept;

} // namespace qorv::swflt::detail
