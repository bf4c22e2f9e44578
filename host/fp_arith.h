// Correctly rounded IEEE-754 arithmetic on IEEEFloat, with the semantics of
// the SMT-LIB FloatingPoint theory, for every format with eb <= 60.
//
// Every operation returns a fresh value of its operands' format, rounding
// mode 0 in its tag, and is exact to the last bit: the result is the exact
// real result rounded once under the given mode, with IEEE's rules for signed
// zeros, infinities and subnormals.  There is one NaN: every NaN result is the
// quiet NaN with the sign clear (IEEEFloat::self_nan), and every NaN operand
// is treated alike whatever its payload.
//
// Where SMT-LIB leaves a result unspecified (the minimum or maximum of +0 and
// -0) the operation returns no value: a solver must treat such a result as a
// choice of its own that is the same for the same operands.
//
// Bad input throws std::invalid_argument naming the values: operands of
// different formats, a rounding mode outside the five, a format with more
// than 60 exponent bits.  Float32 and Float64 under ties-to-even use the
// hardware for add, sub, mul, div, fma and sqrt; every other case goes
// through MPFR.  Formats of at most 64 bits allocate nothing once an
// operation has run on them (the MPFR scratch is per thread and grows only).
// Not reentrant within a thread only in the sense that MPFR's exponent range
// is changed and restored around each call.
#pragma once

#include "host/ieee_float.h"

#include <compare>
#include <optional>
#include <string_view>

namespace qorv::swflt {

using rounding_mode = IEEEFloat::rounding_mode;
inline constexpr rounding_mode RNE = IEEEFloat::rm_nearest_even;
inline constexpr rounding_mode RNA = IEEEFloat::rm_nearest_away;
inline constexpr rounding_mode RTP = IEEEFloat::rm_toward_positive;
inline constexpr rounding_mode RTN = IEEEFloat::rm_toward_negative;
inline constexpr rounding_mode RTZ = IEEEFloat::rm_toward_zero;

// "RNE", "RNA", "RTP", "RTN", "RTZ"; throws for an invalid mode.
std::string_view rounding_mode_name(rounding_mode rm);
// Reads the SMT-LIB short or long name ("RNE", "roundNearestTiesToEven", ...);
// throws std::invalid_argument naming the text otherwise.
rounding_mode parse_rounding_mode(std::string_view text);

// Sign operations: exact, NaN stays the canonical NaN.
IEEEFloat abs(IEEEFloat const& x);
IEEEFloat neg(IEEEFloat const& x);

IEEEFloat add(rounding_mode rm, IEEEFloat const& x, IEEEFloat const& y);
IEEEFloat sub(rounding_mode rm, IEEEFloat const& x, IEEEFloat const& y);
IEEEFloat mul(rounding_mode rm, IEEEFloat const& x, IEEEFloat const& y);
IEEEFloat div(rounding_mode rm, IEEEFloat const& x, IEEEFloat const& y);
// x * y + z with one rounding.
IEEEFloat fma(rounding_mode rm, IEEEFloat const& x, IEEEFloat const& y, IEEEFloat const& z);
IEEEFloat sqrt(rounding_mode rm, IEEEFloat const& x);
// IEEE remainder x - n * y, n the integer nearest x / y (ties to even); exact.
IEEEFloat rem(IEEEFloat const& x, IEEEFloat const& y);
// The integral value nearest x under rm (ties per rm).  In a format whose
// largest finite value is not an integer, rounding it up overflows like any
// other result (to infinity or back to the largest value, per rm).
IEEEFloat round_to_integral(rounding_mode rm, IEEEFloat const& x);
// NaN yields the other operand; no value for +0 and -0 (either is allowed).
std::optional<IEEEFloat> min(IEEEFloat const& x, IEEEFloat const& y);
std::optional<IEEEFloat> max(IEEEFloat const& x, IEEEFloat const& y);

// IEEE comparison: unordered when either is NaN, +0 equivalent to -0.
// Distinct from the packed order of support/packed_order.h.
std::partial_ordering compare(IEEEFloat const& x, IEEEFloat const& y);
inline bool eq(IEEEFloat const& x, IEEEFloat const& y) {
  return compare(x, y) == 0;
}
inline bool lt(IEEEFloat const& x, IEEEFloat const& y) {
  return compare(x, y) < 0;
}
inline bool leq(IEEEFloat const& x, IEEEFloat const& y) {
  return compare(x, y) <= 0;
}
inline bool gt(IEEEFloat const& x, IEEEFloat const& y) {
  return compare(x, y) > 0;
}
inline bool geq(IEEEFloat const& x, IEEEFloat const& y) {
  return compare(x, y) >= 0;
}

// Classifications beside IEEEFloat's own is_nan, is_inf, is_zero,
// is_subnormal and is_normal: the sign of a non-NaN value.
inline bool is_negative(IEEEFloat const& x) {
  return !x.is_nan() && x.get_sign();
}
inline bool is_positive(IEEEFloat const& x) {
  return !x.is_nan() && !x.get_sign();
}

} // namespace qorv::swflt
