// The arithmetic operations: hardware fast paths for Float32 and Float64
// under ties-to-even, one double operation rounded once for other narrow
// formats and modes (fp_arith_double.h), MPFR for everything else, and the sign operations and
// comparisons directly on the bit patterns.
//
// The fast paths rely on the thread's floating-point environment being the
// default one (ties-to-even, no flush-to-zero), which C++ guarantees unless
// the program changes it; the tests check them against the MPFR path.
#include "host/fp_arith.h"

#include "host/bit_fields.h"
#include "host/fp_arith_double.h"
#include "host/mpfr_bridge.h"

#include <bit>
#include <cmath>
#include <stdexcept>
#include <string>

namespace qorv::swflt {

using detail::check_rm;
using detail::check_same;
using detail::load;
using detail::scratch;
using format = IEEEFloat::format;

namespace {

constexpr format f32{8, 24}, f64{11, 53};

// The hardware result as a value; every NaN becomes the canonical one.
using detail::from_hw;
IEEEFloat from_hw32(float d) {
  std::uint32_t const nan = 0x7fc00000; // the canonical NaN
  return IEEEFloat::from_narrow_bits(std::isnan(d) ? nan : std::bit_cast<std::uint32_t>(d), f32);
}
double hw64(IEEEFloat const& x) {
  return std::bit_cast<double>(x.payload_u64());
}
float hw32(IEEEFloat const& x) {
  return std::bit_cast<float>(x.payload_u32());
}

// Which hardware type, if any, computes operations of this format and mode.
enum class Hw { none, single, double_ };
Hw hardware(rounding_mode rm, format f) {
  if (rm != RNE) return Hw::none;
  if (f == f64) return Hw::double_;
  if (f == f32) return Hw::single;
  return Hw::none;
}

// Flips (or clears) the sign bit; NaN stays canonical.
IEEEFloat with_sign(IEEEFloat const& x, bool flip, bool clear) {
  IEEEFloat r(x);
  if (x.is_nan()) {
    r.self_nan();
    return r;
  }
  format const f = x.get_format();
  std::uint64_t const w = f.eb + f.sb;
  bool const negative = clear ? false : x.get_sign() != flip;
  if (x.narrow()) {
    std::uint64_t const sign = std::uint64_t{1} << (w - 1);
    std::uint64_t const p = (x.payload_u64() & ~sign) | (negative ? sign : 0);
    return IEEEFloat::from_bits(p, f);
  }
  mpz_ptr z = scratch().z;
  x.get_bits(z);
  if (negative)
    mpz_setbit(z, w - 1);
  else
    mpz_clrbit(z, w - 1);
  return IEEEFloat::from_bits(static_cast<mpz_srcptr>(z), f);
}

// Significand and exponent of a finite nonzero narrow value: |x| = m * 2^e.
struct Finite {
  std::uint64_t m;
  std::int64_t e;
};
Finite finite_of(IEEEFloat const& x) {
  format const f = x.get_format();
  BitFields const fields(x);
  std::uint64_t const exp = fields.exponent(), trail = fields.trailing();
  std::int64_t const bias = (std::int64_t{1} << (f.eb - 1)) - 1;
  std::int64_t const e =
      (exp == 0 ? 1 : static_cast<std::int64_t>(exp)) - bias - static_cast<std::int64_t>(f.sb - 1);
  return {exp == 0 ? trail : trail | (std::uint64_t{1} << (f.sb - 1)), e};
}

__extension__ using u128 = unsigned __int128;

// 2^d mod m, m > 0 and below 2^63.
std::uint64_t pow2_mod(std::uint64_t d, std::uint64_t m) {
  u128 result = 1 % m, base = 2 % m;
  for (; d != 0; d >>= 1) {
    if ((d & 1) != 0) result = result * base % m;
    base = base * base % m;
  }
  return static_cast<std::uint64_t>(result);
}

// The IEEE remainder of finite nonzero narrow values in 128-bit integers
// (MPFR's remainder allocates): with |x| = X * 2^k and |y| = Y * 2^k for the
// smaller exponent k, only X mod 2Y is needed, the parity of the quotient
// deciding ties.  The result is exact and no larger than |x|, so it is a
// value of the format.
IEEEFloat rem_narrow(IEEEFloat const& x, IEEEFloat const& y) {
  Finite const a = finite_of(x), b = finite_of(y);
  u128 big_y, r; // Y and X mod Y
  bool odd;      // parity of floor(X / Y)
  std::int64_t k;
  if (a.e >= b.e) {
    k = b.e;
    big_y = b.m;
    std::uint64_t const two_y = 2 * b.m;
    u128 const r2 = u128{a.m} * pow2_mod(static_cast<std::uint64_t>(a.e - b.e), two_y) % two_y;
    odd = r2 >= b.m;
    r = odd ? r2 - b.m : r2;
  } else {
    k = a.e;
    std::int64_t const d = b.e - a.e;
    if (d >= 64) return IEEEFloat(x); // |x| < |y| / 2
    big_y = u128{b.m} << d;
    odd = (a.m / big_y) % 2 != 0;
    r = a.m % big_y;
  }
  // Nearest quotient, ties to even: r, or r - Y taken as its magnitude.
  bool flip = false;
  if (2 * r > big_y || (2 * r == big_y && odd)) {
    r = big_y - r;
    flip = true;
  }
  detail::Scratch& s = scratch();
  detail::use_prec(s.r, static_cast<mpfr_prec_t>(x.get_format().sb));
  detail::RangeFor const range(x.get_format());
  bool const negative = x.get_sign() != flip;
  if (r == 0)
    mpfr_set_zero(s.r, x.get_sign() ? -1 : 1);
  else
    mpfr_set_ui_2exp(s.r, static_cast<std::uint64_t>(r), k, MPFR_RNDN); // exact
  if (negative && r != 0) mpfr_neg(s.r, s.r, MPFR_RNDN);
  return detail::store(s.r, x.get_format());
}

} // namespace

void detail::check_rm(rounding_mode rm, char const* op) {
  if (rm > IEEEFloat::rm_toward_zero)
    throw std::invalid_argument(std::string("swflt::") + op + ": invalid rounding mode " +
                                std::to_string(static_cast<unsigned>(rm)) +
                                " (need 0 to 4: RNE, RNA, RTP, RTN, RTZ)");
}

void detail::check_arith_format(format f, char const* op) {
  IEEEFloat::check_format(f);
  check_operand_format(f, op);
}

void detail::check_operand_format(format f, char const* op) {
  if (f.eb > max_arith_eb)
    throw std::invalid_argument(std::string("swflt::") + op + ": format " + format_text(f) +
                                " has more than " + std::to_string(max_arith_eb) +
                                " exponent bits, beyond the arithmetic's exponent range");
}

void detail::check_same(char const* op, IEEEFloat const& x, IEEEFloat const& y) {
  if (!(x.get_format() == y.get_format()))
    throw std::invalid_argument(std::string("swflt::") + op + ": operands of different formats " +
                                format_text(x.get_format()) + " and " +
                                format_text(y.get_format()));
  check_operand_format(x.get_format(), op);
}

std::string_view rounding_mode_name(rounding_mode rm) {
  check_rm(rm, "rounding_mode_name");
  static constexpr std::string_view names[] = {"RNE", "RNA", "RTP", "RTN", "RTZ"};
  return names[rm];
}

rounding_mode parse_rounding_mode(std::string_view text) {
  static constexpr std::string_view long_names[] = {"roundNearestTiesToEven",
                                                    "roundNearestTiesToAway", "roundTowardPositive",
                                                    "roundTowardNegative", "roundTowardZero"};
  for (unsigned i = 0; i < 5; ++i) {
    auto const rm = static_cast<rounding_mode>(i);
    if (text == rounding_mode_name(rm) || text == long_names[i]) return rm;
  }
  throw std::invalid_argument("swflt::parse_rounding_mode: unknown rounding mode \"" +
                              std::string(text) + "\"");
}

IEEEFloat abs(IEEEFloat const& x) {
  return with_sign(x, false, true);
}
IEEEFloat neg(IEEEFloat const& x) {
  return with_sign(x, true, false);
}

namespace detail {

IEEEFloat binary_any(Op2 op, rounding_mode rm, IEEEFloat const& x, IEEEFloat const& y) {
  static char const* const names[] = {"add", "sub", "mul", "div"};
  char const* const name = names[static_cast<int>(op)];
  check_rm(rm, name);
  check_same(name, x, y);
  format const f = x.get_format();
  if (hardware(rm, f) == Hw::single) {
    float const a = hw32(x), b = hw32(y);
    switch (op) {
    case Op2::add:
      return from_hw32(a + b);
    case Op2::sub:
      return from_hw32(a - b);
    case Op2::mul:
      return from_hw32(a * b);
    case Op2::div:
      return from_hw32(a / b);
    }
  }
  if (hardware(rm, f) == Hw::double_) { // reached only through a direct call
    double const a = hw64(x), b = hw64(y);
    switch (op) {
    case Op2::add:
      return from_hw(a + b);
    case Op2::sub:
      return from_hw(a - b);
    case Op2::mul:
      return from_hw(a * b);
    case Op2::div:
      return from_hw(a / b);
    }
  }
  if (double_path_qualifies(f, false))
    if (auto r = binary_via_double(op, rm, x, y)) return *std::move(r);
  static int (*const mp[])(mpfr_ptr, mpfr_srcptr, mpfr_srcptr, mpfr_rnd_t) = {mpfr_add, mpfr_sub,
                                                                              mpfr_mul, mpfr_div};
  auto const fn = mp[static_cast<int>(op)];
  Scratch& s = scratch();
  RangeFor const range(f);
  load(s.a, x);
  load(s.b, y);
  return round_general(rm, f, [&](mpfr_ptr out, mpfr_rnd_t rnd) { return fn(out, s.a, s.b, rnd); });
}

IEEEFloat fma_any(rounding_mode rm, IEEEFloat const& x, IEEEFloat const& y, IEEEFloat const& z) {
  check_rm(rm, "fma");
  check_same("fma", x, y);
  check_same("fma", x, z);
  format const f = x.get_format();
  switch (hardware(rm, f)) {
  case Hw::double_:
    return from_hw(std::fma(hw64(x), hw64(y), hw64(z)));
  case Hw::single:
    return from_hw32(std::fma(hw32(x), hw32(y), hw32(z)));
  case Hw::none:
    break;
  }
  if (double_path_qualifies(f, true))
    if (auto r = fma_via_double(rm, x, y, z)) return *std::move(r);
  Scratch& s = scratch();
  RangeFor const range(f);
  load(s.a, x);
  load(s.b, y);
  load(s.c, z);
  return round_general(
      rm, f, [&](mpfr_ptr out, mpfr_rnd_t rnd) { return mpfr_fma(out, s.a, s.b, s.c, rnd); });
}

IEEEFloat sqrt_any(rounding_mode rm, IEEEFloat const& x) {
  check_rm(rm, "sqrt");
  check_operand_format(x.get_format(), "sqrt");
  format const f = x.get_format();
  switch (hardware(rm, f)) {
  case Hw::double_:
    return from_hw(std::sqrt(hw64(x)));
  case Hw::single:
    return from_hw32(std::sqrt(hw32(x)));
  case Hw::none:
    break;
  }
  if (double_path_qualifies(f, false))
    if (auto r = sqrt_via_double(rm, x)) return *std::move(r);
  Scratch& s = scratch();
  RangeFor const range(f);
  load(s.a, x);
  return round_general(rm, f,
                       [&](mpfr_ptr out, mpfr_rnd_t rnd) { return mpfr_sqrt(out, s.a, rnd); });
}

} // namespace detail

IEEEFloat rem(IEEEFloat const& x, IEEEFloat const& y) {
  check_same("rem", x, y);
  format const f = x.get_format();
  if (f == f64) return from_hw(std::remainder(hw64(x), hw64(y)));
  if (f == f32) return from_hw32(std::remainder(hw32(x), hw32(y)));
  if (x.narrow() && !x.is_nan() && !y.is_nan() && !x.is_inf() && !y.is_inf() && !y.is_zero() &&
      !x.is_zero())
    return rem_narrow(x, y);
  detail::Scratch& s = scratch();
  detail::RangeFor const range(f);
  load(s.a, x);
  load(s.b, y);
  // The remainder is exact, so the rounding mode does not matter.
  return detail::round_general(
      RNE, f, [&](mpfr_ptr out, mpfr_rnd_t rnd) { return mpfr_remainder(out, s.a, s.b, rnd); });
}

IEEEFloat round_to_integral(rounding_mode rm, IEEEFloat const& x) {
  check_rm(rm, "round_to_integral");
  detail::check_operand_format(x.get_format(), "round_to_integral");
  detail::Scratch& s = scratch();
  detail::RangeFor const range(x.get_format());
  load(s.a, x);
  // The integer is computed exactly at one more bit than x has (it may carry
  // into a new leading bit), then rounded to the format like any result.
  mpfr_ptr const i = s.c;
  detail::use_prec(i, static_cast<mpfr_prec_t>(x.get_format().sb + 1));
  if (rm == RNA)
    mpfr_round(i, s.a);
  else
    mpfr_rint(i, s.a, detail::mpfr_rounding(rm));
  return detail::round_general(rm, x.get_format(),
                               [&](mpfr_ptr out, mpfr_rnd_t rnd) { return mpfr_set(out, i, rnd); });
}

std::partial_ordering compare(IEEEFloat const& x, IEEEFloat const& y) {
  if (!(x.get_format() == y.get_format()))
    throw std::invalid_argument("swflt::compare: operands of different formats " +
                                format_text(x.get_format()) + " and " +
                                format_text(y.get_format()));
  if (x.is_nan() || y.is_nan()) return std::partial_ordering::unordered;
  if (x.narrow()) {
    // Sign-magnitude to a signed key: both zeros map to 0.
    std::uint64_t const sign = std::uint64_t{1} << (x.width() - 1);
    auto key = [sign](std::uint64_t p) {
      auto const m = static_cast<std::int64_t>(p & (sign - 1));
      return (p & sign) != 0 ? -m : m;
    };
    return key(x.payload_u64()) <=> key(y.payload_u64());
  }
  bool const sx = x.get_sign(), sy = y.get_sign();
  if (sx != sy) {
    if (x.is_zero() && y.is_zero()) return std::partial_ordering::equivalent;
    return sx ? std::partial_ordering::less : std::partial_ordering::greater;
  }
  // Same sign: the patterns order the magnitudes.
  mpz_t px, py;
  mpz_init(px);
  mpz_init(py);
  x.get_bits(px);
  y.get_bits(py);
  int const c = mpz_cmp(px, py);
  mpz_clear(px);
  mpz_clear(py);
  int const s = sx ? -c : c;
  return s < 0   ? std::partial_ordering::less
         : s > 0 ? std::partial_ordering::greater
                 : std::partial_ordering::equivalent;
}

namespace {
std::optional<IEEEFloat> pick(IEEEFloat const& x, IEEEFloat const& y, bool want_less) {
  std::partial_ordering const c = compare(x, y);
  if (x.is_nan()) return y.is_nan() ? with_sign(y, false, false) : y;
  if (y.is_nan()) return x;
  if (c == 0) {
    if (x.get_sign() != y.get_sign()) return std::nullopt; // +0 and -0
    return x;
  }
  return (c < 0) == want_less ? x : y;
}
} // namespace

std::optional<IEEEFloat> min(IEEEFloat const& x, IEEEFloat const& y) {
  return pick(x, y, true);
}
std::optional<IEEEFloat> max(IEEEFloat const& x, IEEEFloat const& y) {
  return pick(x, y, false);
}

} // namespace qorv::swflt
