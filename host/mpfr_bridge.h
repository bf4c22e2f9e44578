// Internal bridge between IEEEFloat and MPFR for the arithmetic in
// fp_arith.cpp and fp_convert.cpp; not part of the public interface.  It
// converts and computes only: its callers, the public entry points, have
// already checked formats, rounding modes and operands (fp_arith.h,
// detail::check_*), so the bridge's preconditions hold.
//
// A format (eb, sb) is emulated in MPFR by precision sb and the exponent range
// [3 - bias - sb, bias + 1] (MPFR counts exponents of significands in
// [1/2, 1)), subnormal results being rounded again at the precision of
// the subnormal grid in their binade.  Every value of
// the format converts to MPFR exactly at precision sb and back.  Arithmetic
// needs the whole range inside MPFR's, so it accepts formats with eb <= 60
// (max_arith_eb);
// the exponents of one operation's exact result then stay far inside MPFR's
// widest range, which is what the conversions and the ties-away rounding
// compute in before they narrow to the target format.
//
// The scratch variables are per thread and grow only: once an operation has
// run on a format of at most 64 bits, running it again allocates nothing.
// Every function leaves MPFR's exponent range as it found it.
#pragma once

#include "ieee_float.h"

#include <gmp.h>
#include <mpfr.h>

namespace qorv::swflt::detail {

using format = IEEEFloat::format;
using rounding_mode = IEEEFloat::rounding_mode;

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

// For its lifetime, a range with room for every exact result of one
// operation on values of f (about four times f's range): MPFR's current range
// when it has that room (the default range does for eb <= 27), the widest
// range otherwise.  Saves the range switches on the common path.
class RangeFor {
public:
  explicit RangeFor(format f) noexcept;
  ~RangeFor();
  RangeFor(RangeFor const&) = delete;
  RangeFor& operator=(RangeFor const&) = delete;

private:
  mpfr_exp_t emin_, emax_;
  bool changed_;
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

// The MPFR exponent range that emulates f: [format_emin, format_emax].
inline mpfr_exp_t format_emin(format f) noexcept {
  return 3 - ((std::int64_t{1} << (f.eb - 1)) - 1) - static_cast<std::int64_t>(f.sb);
}
inline mpfr_exp_t format_emax(format f) noexcept {
  return std::int64_t{1} << (f.eb - 1);
}

// v = y rounded to f under rnd, where op(out, rnd) writes y rounded to out's
// precision and returns the ternary; op must not read v.  Call under a range
// with room for y.  Subnormal results are rounded once more, at the precision
// the subnormal grid has in their binade: one correct rounding to the grid
// (mpfr_subnormalize would allocate a temporary).  The exception is a result
// that rounding to sb bits carried up into a power of two: it lies on the grid
// already.  Overflow and underflow are MPFR's, under f's range.
template <class Op>
void round_into(mpfr_ptr v, mpfr_rnd_t rnd, format f, Op&& op) {
  auto const sb = static_cast<mpfr_prec_t>(f.sb);
  use_prec(v, sb);
  int const t = op(v, rnd);
  if (!mpfr_regular_p(v)) return;
  mpfr_exp_t const e = mpfr_get_exp(v), emin = format_emin(f);
  if (e < emin || e > format_emax(f)) {
    ExpRange const narrow(f);
    mpfr_check_range(v, t, rnd);
    return;
  }
  if (e >= emin + sb - 1) return;
  if (t != 0 && (t > 0) == (mpfr_sgn(v) > 0) && mpfr_min_prec(v) == 1) return; // carried
  use_prec(v, e - emin + 1);
  op(v, rnd);
}

// The value of f nearest to y under rm, where op(out, rnd) writes y rounded
// to out's precision under rnd and returns the ternary.  Call under a range
// with room for y (RangeFor or the widest; operands loaded under it); runs
// op once, or twice for
// ties-away (which MPFR lacks).  op may read scratch().a to c but not write
// r, n, s or u.
template <class Op>
IEEEFloat round_general(rounding_mode rm, format f, Op&& op);

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
  round_into(s.r, mpfr_rounding(rm), f, op);
  return store(s.r, f);
}

} // namespace qorv::swflt::detail
