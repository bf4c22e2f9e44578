// Internal bridge between IEEEFloat and MPFR for the arithmetic in
// fp_arith.cpp and fp_convert.cpp; not part of the public interface.
//
// A format (eb, sb) is emulated in MPFR by precision sb and the exponent range
// [3 - bias - sb, bias + 1] (MPFR counts exponents of significands in
// [1/2, 1)), with mpfr_subnormalize giving the subnormal grid.  Every value of
// the format converts to MPFR exactly at precision sb and back.  Arithmetic
// needs the whole range inside MPFR's, so it accepts formats with eb <= 60;
// the exponents of one operation's exact result then stay far inside MPFR's
// widest range, which is what the conversions and the ties-away rounding
// compute in before they narrow to the target format.
//
// The scratch variables are per thread and grow only: once an operation has
// run on a format of at most 64 bits, running it again allocates nothing.
// Every function leaves MPFR's exponent range as it found it.
#pragma once

#include "host/ieee_float.h"

#include <gmp.h>
#include <mpfr.h>

namespace qorv::swflt::detail {

using format = IEEEFloat::format;
using rounding_mode = IEEEFloat::rounding_mode;

inline constexpr std::uint64_t max_arith_eb = 60;

// Throws std::invalid_argument naming `op` and the value when the rounding
// mode is not one of the five, when the format is invalid, or when its
// exponent width exceeds max_arith_eb.
void check_rm(rounding_mode rm, char const* op);
void check_arith_format(format f, char const* op);
// Both of the above for every operand, and equal formats.
void check_same(char const* op, IEEEFloat const& x, IEEEFloat const& y);
std::string format_text(format f);

// The MPFR rounding of the four modes it has; ties-away rounds separately.
inline mpfr_rnd_t mpfr_rounding(rounding_mode rm) noexcept {
  switch (rm) {
  case IEEEFloat::rm_toward_positive:
    return MPFR_RNDU;
  case IEEEFloat::rm_toward_negative:
    return MPFR_RNDD;
  case IEEEFloat::rm_toward_zero:
    return MPFR_RNDZ;
  default:
    return MPFR_RNDN;
  }
}

// Sets MPFR's exponent range for its lifetime and restores the old one.
class ExpRange {
public:
  explicit ExpRange(format f) noexcept; // the range that emulates f
  ExpRange() noexcept;                  // MPFR's widest range
  ~ExpRange();
  ExpRange(ExpRange const&) = delete;
  ExpRange& operator=(ExpRange const&) = delete;

private:
  mpfr_exp_t emin_, emax_;
};

// Per-thread scratch: operands a, b, c; results r, n; helpers s, u; integer z.
struct Scratch {
  mpfr_t a, b, c, r, n, s, u;
  mpz_t z;
  Scratch() noexcept;
  ~Scratch();
  Scratch(Scratch const&) = delete;
  Scratch& operator=(Scratch const&) = delete;
};
Scratch& scratch();

// Sets v's precision to p (a no-op when it already is p; v's value is lost).
inline void use_prec(mpfr_ptr v, mpfr_prec_t p) {
  if (mpfr_get_prec(v) != p) mpfr_set_prec(v, p);
}

// v = x exactly, at precision sb of x's format.  Call under a range that
// contains x's format range (ExpRange(x's format) or the widest).
void load(mpfr_ptr v, IEEEFloat const& x);
// The value of format f equal to v; v must be a value of f (NaN any sign).
IEEEFloat store(mpfr_srcptr v, format f);

// Narrows v, the rounding of some real y at precision sb of f in the widest
// range with ternary t, to f's range and subnormal grid.  Call under the
// widest range.  Returns the ternary of the whole rounding of y.
int fit(mpfr_ptr v, int t, mpfr_rnd_t rnd, format f);

// The value of f nearest to y under rm, where op(out, rnd) writes y rounded
// to out's precision under rnd and returns the ternary.  Call under the
// widest range (operands loaded under it); runs op once, or twice for
// ties-away (which MPFR lacks).  op may read scratch().a to c but not write
// r, n, s or u.
template <class Op>
IEEEFloat round_general(rounding_mode rm, format f, Op&& op);

// The same for an operation whose operands are values of f, loaded and run
// under f's own range (ExpRange(f)): then MPFR's own overflow handling and
// mpfr_subnormalize finish the rounding, with no range change in between
// except for ties-away.
template <class Op>
IEEEFloat round_same(rounding_mode rm, format f, Op&& op);

// Ties-away rounding of an exact value v (at most sb + 1 significant bits)
// to f, under the widest range: whether v lies halfway is decided exactly.
IEEEFloat round_exact_ties_away(mpfr_srcptr v, format f);

template <class Op>
IEEEFloat round_general(rounding_mode rm, format f, Op&& op) {
  Scratch& s = scratch();
  auto const sb = static_cast<mpfr_prec_t>(f.sb);
  if (rm == IEEEFloat::rm_nearest_away) {
    // A halfway point of f has at most sb + 1 significant bits, so y can only
    // be one when it is exact at that precision; otherwise ties-away and
    // ties-even round y alike.
    use_prec(s.r, sb + 1);
    if (op(s.r, MPFR_RNDZ) == 0) return round_exact_ties_away(s.r, f);
  }
  mpfr_rnd_t const rnd = mpfr_rounding(rm);
  use_prec(s.r, sb);
  int const t = op(s.r, rnd);
  fit(s.r, t, rnd, f);
  return store(s.r, f);
}

template <class Op>
IEEEFloat round_same(rounding_mode rm, format f, Op&& op) {
  if (rm == IEEEFloat::rm_nearest_away) {
    ExpRange const wide;
    return round_general(rm, f, op);
  }
  Scratch& s = scratch();
  mpfr_rnd_t const rnd = mpfr_rounding(rm);
  use_prec(s.r, static_cast<mpfr_prec_t>(f.sb));
  mpfr_subnormalize(s.r, op(s.r, rnd), rnd);
  return store(s.r, f);
}

} // namespace qorv::swflt::detail
