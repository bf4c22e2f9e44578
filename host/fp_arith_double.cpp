// Narrow-format arithmetic through one hardware double operation: the
// operands as doubles, the operation with its exact error, the round-to-odd
// value, then one rounding to the format by integer operations on its bits.
// See fp_arith_double.h for when this applies and why it is exact.
#include "host/fp_arith_double.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

namespace qorv::swflt::detail {

namespace {

using format = IEEEFloat::format;
using u64 = std::uint64_t;

bool double_path_on = true;

constexpr double safe_low = 0x1p-900, safe_high = 0x1p900;

// Zero, or a magnitude where products and residuals of doubles are exact.
bool safe(double v) {
  double const a = std::fabs(v);
  return a == 0 || (a >= safe_low && a <= safe_high);
}

u64 low_bits(u64 n) {
  return (u64{1} << n) - 1;
}

// 2^k as a double, for -1074 <= k <= 1023.
double pow2(std::int64_t k) {
  return k >= -1022 ? std::bit_cast<double>(static_cast<u64>(k + 1023) << 52)
                    : std::bit_cast<double>(u64{1} << (k + 1074));
}

// The value of a qualifying format as a double (exact).
[[gnu::always_inline]] inline double as_double(IEEEFloat const& x) {
  format const f = x.get_format();
  u64 const p = x.payload_u64();
  if (f.sb == 53) return std::bit_cast<double>(p); // Float64 itself
  u64 const tb = f.sb - 1, trail = p & low_bits(tb), exp = (p >> tb) & low_bits(f.eb);
  bool const negative = (p >> (f.eb + f.sb - 1)) != 0;
  std::int64_t const bias = (std::int64_t{1} << (f.eb - 1)) - 1;
  double r;
  if (exp == low_bits(f.eb))
    r = trail != 0 ? std::numeric_limits<double>::quiet_NaN() : HUGE_VAL;
  else if (exp == 0) // subnormal or zero: trail units of the least quantum
    r = static_cast<double>(trail) * pow2(1 - bias - static_cast<std::int64_t>(tb));
  else
    r = std::bit_cast<double>(
        (static_cast<u64>(static_cast<std::int64_t>(exp) - bias + 1023) << 52) |
        (trail << (52 - tb)));
  return negative ? -r : r;
}

// An exact hardware result that is 0, infinite or NaN.
IEEEFloat special(double r, format f) {
  if (std::isnan(r)) return IEEEFloat::nan(f);
  if (std::isinf(r)) return IEEEFloat::inf(f, std::signbit(r));
  return IEEEFloat::zero(f, std::signbit(r));
}

bool overflows_to_inf(IEEEFloat::rounding_mode rm, bool negative) {
  return rm == RNE || rm == RNA || (rm == RTP && !negative) || (rm == RTN && negative);
}

// Float64: s is the ties-to-even result and e the error (exactly, when
// `exact_e`; else only its sign, and the exact result is never a tie).
[[gnu::always_inline]] inline IEEEFloat step_float64(double s, double e, bool exact_e,
                                                     IEEEFloat::rounding_mode rm) {
  u64 bits = std::bit_cast<u64>(s);
  if (e != 0) {
    bool const negative = s < 0;
    bool const beyond = (e < 0) == negative; // the exact magnitude lies above |s|
    double const half_ulp = std::bit_cast<double>((((bits >> 52) & 0x7ff) - 53) << 52);
    switch (rm) {
    case RTZ:
      if (!beyond) --bits;
      break;
    case RTP:
      if (e > 0) negative ? --bits : ++bits; // toward +inf
      break;
    case RTN:
      if (e < 0) negative ? ++bits : --bits; // toward -inf
      break;
    case RNA:
      if (exact_e && beyond && std::fabs(e) == half_ulp) ++bits;
      break;
    default:
      break;
    }
  }
  return IEEEFloat::from_narrow_bits(bits, {11, 53});
}

// The value of f nearest the exact result s + e under rm (sb <= 51), through
// its round-to-odd double: two spare bits keep the half and sticky bits of
// the exact result.  s is 0 only for an exact zero.
[[gnu::always_inline]] inline IEEEFloat round_odd(double s, double e, IEEEFloat::rounding_mode rm,
                                                  format f) {
  if (s == 0) return IEEEFloat::zero(f, std::signbit(s));
  u64 bits = std::bit_cast<u64>(s);
  if (e != 0) {
    if ((e < 0) != (s < 0)) --bits; // s overshoots: truncate toward zero
    bits |= 1;
  }
  bool const negative = (bits >> 63) != 0;
  u64 const m = (bits & low_bits(52)) | (u64{1} << 52); // s is normal
  std::int64_t const e0 = static_cast<std::int64_t>((bits >> 52) & 0x7ff) - 1075;
  auto const tb = static_cast<std::int64_t>(f.sb - 1);
  std::int64_t const bias = (std::int64_t{1} << (f.eb - 1)) - 1;
  std::int64_t q = std::max(e0 + 52, 1 - bias) - tb; // exponent of the format's last bit
  std::int64_t const shift = q - e0;                 // at least 2
  u64 n = 0;
  bool half = false, sticky = true;
  if (shift < 54) {
    n = m >> shift;
    u64 const rest = m & low_bits(static_cast<u64>(shift));
    half = ((rest >> (shift - 1)) & 1) != 0;
    sticky = (rest & low_bits(static_cast<u64>(shift - 1))) != 0;
  }
  bool up = false;
  switch (rm) {
  case RNE:
    up = half && (sticky || (n & 1) != 0);
    break;
  case RNA:
    up = half;
    break;
  case RTP:
    up = !negative && (half || sticky);
    break;
  case RTN:
    up = negative && (half || sticky);
    break;
  default:
    break;
  }
  n += up ? 1 : 0;
  if ((n >> (tb + 1)) != 0) { // carried into the next binade
    n >>= 1;
    ++q;
  }
  u64 exp = 0; // subnormal or zero unless the hidden bit is set
  if ((n >> tb) != 0) exp = static_cast<u64>(q + tb + bias);
  if (exp >= low_bits(f.eb)) {
    if (overflows_to_inf(rm, negative)) return IEEEFloat::inf(f, negative);
    exp = low_bits(f.eb) - 1;
    n = low_bits(static_cast<u64>(tb));
  }
  u64 const pattern =
      (u64{negative} << (f.eb + f.sb - 1)) | (exp << tb) | (n & low_bits(static_cast<u64>(tb)));
  return IEEEFloat::from_narrow_bits(pattern, f);
}

[[gnu::always_inline]] inline IEEEFloat round_to(double s, double e, bool exact_e,
                                                 IEEEFloat::rounding_mode rm, format f) {
  return f.sb == 53 ? step_float64(s, e, exact_e, rm) : round_odd(s, e, rm, f);
}

// s + e = a + b exactly (no overflow).
double two_sum_error(double a, double b, double s) {
  double const bb = s - a;
  return (a - (s - bb)) + (b - bb);
}

// An exact zero sum is +0 in every mode but toward negative, where it is -0
// unless both addends are +0 (the hardware gives ties-to-even's sign).
double zero_sum_sign(double s, double a, double b, IEEEFloat::rounding_mode rm) {
  if (s == 0 && rm == RTN && !(a == 0 && b == 0 && !std::signbit(a) && !std::signbit(b)))
    return -0.0;
  return s;
}

} // namespace

bool set_double_path(bool on) noexcept {
  bool const was = double_path_on;
  double_path_on = on;
  return was;
}

bool double_path_qualifies(format f, bool for_fma) {
  if (!double_path_on || f.eb > 11) return false;
  if (f.sb == 53) return f.eb == 11 && !for_fma;
  return f.sb <= (for_fma ? 26u : 51u);
}

std::optional<IEEEFloat> binary_via_double(Op2 op, IEEEFloat::rounding_mode rm, IEEEFloat const& x,
                                           IEEEFloat const& y) {
  format const f = x.get_format();
  double const a = as_double(x), b0 = as_double(y);
  double const b = op == Op2::sub ? -b0 : b0;
  if (!std::isfinite(a) || !std::isfinite(b) || (op == Op2::div && b == 0)) {
    switch (op) { // exact: infinities, NaN, signed zeros
    case Op2::add:
    case Op2::sub:
      return special(a + b, f);
    case Op2::mul:
      return special(a * b, f);
    case Op2::div:
      return special(a / b, f);
    }
  }
  if (!safe(a) || !safe(b)) return std::nullopt;
  double s = 0, e = 0;
  bool exact_e = true;
  switch (op) {
  case Op2::add:
  case Op2::sub:
    s = a + b;
    if (!safe(s)) return std::nullopt;
    e = two_sum_error(a, b, s);
    s = zero_sum_sign(s, a, b, rm);
    break;
  case Op2::mul:
    s = a * b;
    if (!safe(s) || (s == 0 && a != 0 && b != 0)) return std::nullopt;
    e = std::fma(a, b, -s);
    break;
  case Op2::div:
    s = a / b;
    if (!safe(s) || (s == 0 && a != 0)) return std::nullopt;
    // a - s * b is exact; the exact quotient's error has its sign times b's.
    e = std::fma(-s, b, a);
    if (b < 0) e = -e;
    exact_e = false; // and a quotient is never a tie
    break;
  }
  return round_to(s, e, exact_e, rm, f);
}

std::optional<IEEEFloat> sqrt_via_double(IEEEFloat::rounding_mode rm, IEEEFloat const& x) {
  format const f = x.get_format();
  double const a = as_double(x);
  if (!std::isfinite(a) || a <= 0) return special(std::sqrt(a), f);
  if (!safe(a)) return std::nullopt;
  double const s = std::sqrt(a);
  // a - s^2 is exact and has the sign of the error; a root is never a tie.
  return round_to(s, std::fma(-s, s, a), false, rm, f);
}

std::optional<IEEEFloat> fma_via_double(IEEEFloat::rounding_mode rm, IEEEFloat const& x,
                                        IEEEFloat const& y, IEEEFloat const& z) {
  format const f = x.get_format();
  double const a = as_double(x), b = as_double(y), c = as_double(z);
  if (!std::isfinite(a) || !std::isfinite(b) || !std::isfinite(c))
    return special(std::fma(a, b, c), f);
  double const p = a * b; // exact: at most 2 * 26 significant bits
  if (!safe(a) || !safe(b) || !safe(c) || !safe(p) || (p == 0 && a != 0 && b != 0))
    return std::nullopt;
  double const s = p + c;
  if (!safe(s)) return std::nullopt;
  return round_to(zero_sum_sign(s, p, c, rm), two_sum_error(p, c, s), true, rm, f);
}

} // namespace qorv::swflt::detail
