// Literal conversions: bit strings, bit vectors and exactly rounded
// rationals.  Rounding is MPFR's, run in the exponent range of the target
// format and subnormalised, so every result is the IEEE-754 value the
// rounding mode selects.  Nearest-ties-away is decided from the two directed
// roundings and an exact comparison with their midpoint.
#include "smtlib/literals.h"

#include <gmpxx.h>
#include <mpfr.h>

namespace fpsolve {

namespace {

IEEEFloat from_mpz(mpz_class const& bits, IEEEFloat::format f) {
  return canonical(IEEEFloat::from_bits(bits.get_mpz_t(), f));
}

// Restores MPFR's global exponent range when the conversion ends.
struct ExponentRange {
  mpfr_exp_t emin = mpfr_get_emin(), emax = mpfr_get_emax();
  ~ExponentRange() {
    mpfr_set_emin(emin);
    mpfr_set_emax(emax);
  }
};

struct Mpfr {
  explicit Mpfr(mpfr_prec_t p) { mpfr_init2(x, p); }
  ~Mpfr() { mpfr_clear(x); }
  Mpfr(Mpfr const&) = delete;
  Mpfr& operator=(Mpfr const&) = delete;
  mpfr_t x;
};

void round_q(Mpfr& r, mpq_class const& q, mpfr_rnd_t rnd) {
  int t = mpfr_set_q(r.x, q.get_mpq_t(), rnd);
  t = mpfr_check_range(r.x, t, rnd);
  mpfr_subnormalize(r.x, t, rnd);
}

mpq_class to_q(Mpfr const& r) {
  mpq_class q;
  mpfr_get_q(q.get_mpq_t(), r.x);
  return q;
}

IEEEFloat to_ieee(Mpfr const& r, IEEEFloat::format f) {
  std::int64_t const bias = (std::int64_t{1} << (f.eb - 1)) - 1;
  mpz_class bits;
  if (mpfr_inf_p(r.x)) {
    bits = (mpz_class(1) << f.eb) - 1;
    bits <<= static_cast<mp_bitcnt_t>(f.sb - 1);
  } else if (!mpfr_zero_p(r.x)) {
    mpz_class m;
    std::int64_t e = mpfr_get_z_2exp(m.get_mpz_t(), r.x);
    m = abs(m);
    std::int64_t const unbiased = e + static_cast<std::int64_t>(f.sb) - 1;
    mpz_class const hidden = mpz_class(1) << static_cast<mp_bitcnt_t>(f.sb - 1);
    if (unbiased >= 1 - bias) {
      bits = mpz_class(unbiased + bias);
      bits <<= static_cast<mp_bitcnt_t>(f.sb - 1);
      bits += m - hidden;
    } else {
      bits = m >> static_cast<mp_bitcnt_t>(1 - bias - unbiased); // exact after subnormalising
    }
  }
  if (mpfr_signbit(r.x)) bits += mpz_class(1) << static_cast<mp_bitcnt_t>(f.eb + f.sb - 1);
  return from_mpz(bits, f);
}

} // namespace

IEEEFloat flip_sign(IEEEFloat const& v, bool clear_only) {
  if (v.is_nan()) return canonical(v);
  mpz_class bits;
  v.get_bits(bits.get_mpz_t());
  auto const top = static_cast<mp_bitcnt_t>(v.width() - 1);
  if (clear_only)
    mpz_clrbit(bits.get_mpz_t(), top);
  else
    mpz_combit(bits.get_mpz_t(), top);
  return IEEEFloat::from_bits(bits.get_mpz_t(), v.get_format());
}

IEEEFloat fp_from_bit_strings(std::string const& s, std::string const& e, std::string const& m,
                              Pos where) {
  if (s.size() != 1) throw SmtError(where, "expected a 1-bit sign in the fp literal");
  if (e.size() < 2)
    throw SmtError(where, "expected an exponent of at least 2 bits in the fp literal");
  if (e.size() + m.size() + 1 > IEEEFloat::max_width) throw SmtError(where, "fp literal too wide");
  IEEEFloat::format f{e.size(), m.size() + 1};
  mpz_class bits(s + e + m, 2);
  return from_mpz(bits, f);
}

IEEEFloat fp_from_bitvector(Token const& lit, IEEEFloat::format f) {
  std::uint64_t width = lit.kind == Tok::binary ? lit.text.size() : 4 * lit.text.size();
  if (width != f.eb + f.sb)
    throw SmtError(lit.pos, "wrong sort: expected a bit-vector of " + std::to_string(f.eb + f.sb) +
                                " bits for " + qorv::fp_sort_text(f) + ", found " +
                                std::to_string(width) + " bits");
  mpz_class bits(lit.text, lit.kind == Tok::binary ? 2 : 16);
  return from_mpz(bits, f);
}

IEEEFloat fp_from_rational(mpq_class const& q, IEEEFloat::format f, IEEEFloat::rounding_mode rm,
                           Pos where) {
  if (f.eb > 60 || f.sb > static_cast<std::uint64_t>(MPFR_PREC_MAX))
    throw SmtError(where, "format too wide for a decimal conversion (at most 60 exponent bits)");
  ExponentRange saved;
  auto const bias = (std::int64_t{1} << (f.eb - 1)) - 1;
  auto const emax = bias + 1;
  auto const emin = 3 - bias - static_cast<std::int64_t>(f.sb);
  if (emin < mpfr_get_emin_min() || emax > mpfr_get_emax_max())
    throw SmtError(where, "format out of range for a decimal conversion");
  mpfr_set_emin(emin);
  mpfr_set_emax(emax);
  auto const prec = static_cast<mpfr_prec_t>(f.sb);
  Mpfr r(prec);
  if (rm != IEEEFloat::rm_nearest_away) {
    mpfr_rnd_t rnd = rm == IEEEFloat::rm_nearest_even      ? MPFR_RNDN
                     : rm == IEEEFloat::rm_toward_positive ? MPFR_RNDU
                     : rm == IEEEFloat::rm_toward_negative ? MPFR_RNDD
                                                           : MPFR_RNDZ;
    round_q(r, q, rnd);
    return to_ieee(r, f);
  }
  Mpfr toward(prec), away(prec);
  round_q(toward, q, MPFR_RNDZ);
  round_q(away, q, MPFR_RNDA);
  if (mpfr_equal_p(toward.x, away.x)) return to_ieee(toward, f);
  mpq_class far;
  if (mpfr_inf_p(away.x)) { // the first value past the largest finite one
    mpz_class p2 = mpz_class(1) << static_cast<mp_bitcnt_t>(emax);
    far = mpq_class(p2);
    if (mpfr_signbit(away.x)) far = -far;
  } else {
    far = to_q(away);
  }
  mpq_class const near = to_q(toward);
  // Ties go away from zero, so only a strictly nearer truncation wins.
  return abs(q - near) < abs(far - q) ? to_ieee(toward, f) : to_ieee(away, f);
}

} // namespace fpsolve
