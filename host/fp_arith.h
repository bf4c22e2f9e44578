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
// than 60 exponent bits.
//
// Float64 and Float32 under ties-to-even use the hardware for add, sub, mul,
// div, fma, sqrt and rem (Float64 inline); this relies on the default
// floating-point environment (ties-to-even, no flush-to-zero), which the
// program must not change.  Every other case goes through MPFR; each call
// leaves MPFR's exponent range as it found it.  Formats of at most 64 bits
// allocate nothing once an operation has run on them: the MPFR scratch is per
// thread and only grows.
#pragma once

#include "ieee_float.h"

#include <bit>
#include <cmath>
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

// Largest exponent width the arithmetic and the conversions accept.
inline constexpr std::uint64_t max_arith_eb = 60;

namespace detail {
// The argument checks of every public entry point (here and in fp_convert.h),
// made before any computation.  Each throws std::invalid_argument naming
// `op` and the value: a rounding mode outside the five; an invalid format or
// one with more than max_arith_eb exponent bits (check_arith_format, for a
// target format); an existing value's format beyond max_arith_eb
// (check_operand_format: the value's format is valid by IEEEFloat's
// invariant); operands of different formats (check_same, which also checks
// the operand format).
void check_rm(rounding_mode rm, char const* op);
void check_arith_format(IEEEFloat::format f, char const* op);
void check_operand_format(IEEEFloat::format f, char const* op);
void check_same(char const* op, IEEEFloat const& x, IEEEFloat const& y);

enum class Op2 { add, sub, mul, div };
IEEEFloat binary_any(Op2 op, rounding_mode rm, IEEEFloat const& x, IEEEFloat const& y);
IEEEFloat fma_any(rounding_mode rm, IEEEFloat const& x, IEEEFloat const& y, IEEEFloat const& z);
IEEEFloat sqrt_any(rounding_mode rm, IEEEFloat const& x);

// Float64 under ties-to-even: the hardware, inline.
inline bool float64_rne(rounding_mode rm, IEEEFloat const& x) noexcept {
  return rm == IEEEFloat::rm_nearest_even && x.get_format() == IEEEFloat::format{11, 53};
}
inline double hw(IEEEFloat const& x) noexcept {
  return std::bit_cast<double>(x.payload_u64());
}
inline IEEEFloat from_hw(double d) noexcept {
  std::uint64_t const nan = 0x7ff8000000000000; // the canonical NaN
  return IEEEFloat::from_narrow_bits(d != d ? nan : std::bit_cast<std::uint64_t>(d), {11, 53});
}
} // namespace detail

inline IEEEFloat add(rounding_mode rm, IEEEFloat const& x, IEEEFloat const& y) {
  if (detail::float64_rne(rm, x) && detail::float64_rne(rm, y))
    return detail::from_hw(detail::hw(x) + detail::hw(y));
  return detail::binary_any(detail::Op2::add, rm, x, y);
}
inline IEEEFloat sub(rounding_mode rm, IEEEFloat const& x, IEEEFloat const& y) {
  if (detail::float64_rne(rm, x) && detail::float64_rne(rm, y))
    return detail::from_hw(detail::hw(x) - detail::hw(y));
  return detail::binary_any(detail::Op2::sub, rm, x, y);
}
inline IEEEFloat mul(rounding_mode rm, IEEEFloat const& x, IEEEFloat const& y) {
  if (detail::float64_rne(rm, x) && detail::float64_rne(rm, y))
    return detail::from_hw(detail::hw(x) * detail::hw(y));
  return detail::binary_any(detail::Op2::mul, rm, x, y);
}
inline IEEEFloat div(rounding_mode rm, IEEEFloat const& x, IEEEFloat const& y) {
  if (detail::float64_rne(rm, x) && detail::float64_rne(rm, y))
    return detail::from_hw(detail::hw(x) / detail::hw(y));
  return detail::binary_any(detail::Op2::div, rm, x, y);
}
// x * y + z with one rounding.
inline IEEEFloat fma(rounding_mode rm, IEEEFloat const& x, IEEEFloat const& y, IEEEFloat const& z) {
  if (detail::float64_rne(rm, x) && detail::float64_rne(rm, y) && detail::float64_rne(rm, z))
    return detail::from_hw(std::fma(detail::hw(x), detail::hw(y), detail::hw(z)));
  return detail::fma_any(rm, x, y, z);
}
inline IEEEFloat sqrt(rounding_mode rm, IEEEFloat const& x) {
  if (detail::float64_rne(rm, x)) return detail::from_hw(std::sqrt(detail::hw(x)));
  return detail::sqrt_any(rm, x);
}
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
// Distinct from the packed order of host/packed_order.h.
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
