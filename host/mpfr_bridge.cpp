// The IEEEFloat <-> MPFR bridge: exact conversion both ways, the exponent
// range of a format, narrowing a wide result to a format, and ties-away
// rounding by an exact halfway test.
//
// Formats of at most 64 bits read and write their significand as one machine
// word (MPFR keeps precisions up to 64 in one limb, most significant bit
// set), so they never touch GMP integers; wider formats go through the
// scratch integer, which grows once and is reused.
#include "host/mpfr_bridge.h"

#include <cassert>
#include <stdexcept>
#include <string>

namespace qorv::swflt::detail {

static_assert(GMP_NUMB_BITS == 64 && sizeof(unsigned long) == 8, "one 64-bit limb per word");

namespace {

std::int64_t bias_of(format f) noexcept {
  return (std::int64_t{1} << (f.eb - 1)) - 1;
}

// A read-only GMP view of a wide value's pattern that never allocates.
class PatternView {
public:
  explicit PatternView(IEEEFloat const& x) noexcept {
    QNumber const& q = x.payload_q();
    if (q.is_big()) {
      p_ = q.big_num();
    } else {
      limb_ = static_cast<mp_limb_t>(q.small_num());
      p_ = mpz_roinit_n(tmp_, &limb_, limb_ != 0 ? 1 : 0);
    }
  }
  PatternView(PatternView const&) = delete;
  PatternView& operator=(PatternView const&) = delete;
  operator mpz_srcptr() const noexcept { return p_; }

private:
  mp_limb_t limb_ = 0;
  mpz_t tmp_;
  mpz_srcptr p_;
};

} // namespace

std::string format_text(format f) {
  return "(" + std::to_string(f.eb) + ", " + std::to_string(f.sb) + ")";
}

void check_rm(rounding_mode rm, char const* op) {
  if (rm > IEEEFloat::rm_toward_zero)
    throw std::invalid_argument(std::string("swflt::") + op + ": invalid rounding mode " +
                                std::to_string(static_cast<unsigned>(rm)) +
                                " (need 0 to 4: RNE, RNA, RTP, RTN, RTZ)");
}

void check_arith_format(format f, char const* op) {
  IEEEFloat::check_format(f);
  if (f.eb > max_arith_eb)
    throw std::invalid_argument(std::string("swflt::") + op + ": format " + format_text(f) +
                                " has more than " + std::to_string(max_arith_eb) +
                                " exponent bits, beyond the arithmetic's exponent range");
}

void check_same(char const* op, IEEEFloat const& x, IEEEFloat const& y) {
  if (!(x.get_format() == y.get_format()))
    throw std::invalid_argument(std::string("swflt::") + op + ": operands of different formats " +
                                format_text(x.get_format()) + " and " +
                                format_text(y.get_format()));
  check_arith_format(x.get_format(), op);
}

ExpRange::ExpRange(format f) noexcept : emin_(mpfr_get_emin()), emax_(mpfr_get_emax()) {
  std::int64_t const bias = bias_of(f);
  mpfr_set_emin(3 - bias - static_cast<std::int64_t>(f.sb));
  mpfr_set_emax(bias + 1);
}

ExpRange::ExpRange() noexcept : emin_(mpfr_get_emin()), emax_(mpfr_get_emax()) {
  mpfr_set_emin(mpfr_get_emin_min());
  mpfr_set_emax(mpfr_get_emax_max());
}

ExpRange::~ExpRange() {
  mpfr_set_emin(emin_);
  mpfr_set_emax(emax_);
}

Scratch::Scratch() noexcept {
  for (mpfr_ptr v : {a, b, c, r, n, s, u})
    mpfr_init2(v, 64);
  mpz_init2(z, 128);
}

Scratch::~Scratch() {
  for (mpfr_ptr v : {a, b, c, r, n, s, u})
    mpfr_clear(v);
  mpz_clear(z);
}

Scratch& scratch() {
  thread_local Scratch s;
  return s;
}

void load(mpfr_ptr v, IEEEFloat const& x) {
  format const f = x.get_format();
  use_prec(v, static_cast<mpfr_prec_t>(f.sb));
  std::int64_t const bias = bias_of(f);
  std::uint64_t const exp_ones = (std::uint64_t{1} << f.eb) - 1;
  bool sign = false;
  std::uint64_t exp = 0;
  if (x.narrow()) {
    std::uint64_t const p = x.payload_u64();
    std::uint64_t const tmask = (std::uint64_t{1} << (f.sb - 1)) - 1;
    sign = (p >> (f.eb + f.sb - 1)) != 0;
    exp = (p >> (f.sb - 1)) & exp_ones;
    std::uint64_t const trail = p & tmask;
    if (exp == exp_ones) {
      if (trail != 0)
        mpfr_set_nan(v);
      else
        mpfr_set_inf(v, sign ? -1 : 1);
      return;
    }
    std::uint64_t const sig = exp == 0 ? trail : trail | (tmask + 1);
    std::int64_t const e = (exp == 0 ? 1 : static_cast<std::int64_t>(exp)) - bias -
                           static_cast<std::int64_t>(f.sb - 1);
    if (sig == 0)
      mpfr_set_zero(v, 1); // the sign is applied below
    else
      mpfr_set_ui_2exp(v, sig, e, MPFR_RNDN); // exact: sig has at most sb bits
  } else {
    PatternView const p(x);
    mpz_ptr z = scratch().z;
    sign = mpz_tstbit(p, f.eb + f.sb - 1) != 0;
    mpz_tdiv_q_2exp(z, p, f.sb - 1);
    mpz_tdiv_r_2exp(z, z, f.eb);
    exp = mpz_get_ui(z);
    mpz_tdiv_r_2exp(z, p, f.sb - 1);
    if (exp == exp_ones) {
      if (mpz_sgn(z) != 0)
        mpfr_set_nan(v);
      else
        mpfr_set_inf(v, sign ? -1 : 1);
      return;
    }
    if (exp != 0) mpz_setbit(z, f.sb - 1);
    std::int64_t const e = (exp == 0 ? 1 : static_cast<std::int64_t>(exp)) - bias -
                           static_cast<std::int64_t>(f.sb - 1);
    if (mpz_sgn(z) == 0)
      mpfr_set_zero(v, 1); // the sign is applied below
    else
      mpfr_set_z_2exp(v, z, e, MPFR_RNDN); // exact
  }
  if (sign) mpfr_neg(v, v, MPFR_RNDN);
}

IEEEFloat store(mpfr_srcptr v, format f) {
  std::uint64_t const w = f.eb + f.sb;
  if (mpfr_nan_p(v)) {
    IEEEFloat r(f, IEEEFloat::rm_nearest_even);
    r.self_nan();
    return r;
  }
  bool const sign = mpfr_signbit(v) != 0;
  if (mpfr_inf_p(v)) {
    IEEEFloat r(f, IEEEFloat::rm_nearest_even);
    r.self_inf(sign);
    return r;
  }
  std::int64_t const bias = bias_of(f);
  auto const sb = static_cast<std::int64_t>(f.sb);
  if (w <= 64) {
    std::uint64_t bits = 0;
    if (!mpfr_zero_p(v)) {
      assert(mpfr_get_prec(v) <= 64 && "a narrow significand is one limb");
      auto const* limb = static_cast<mp_limb_t const*>(mpfr_custom_get_significand(v));
      std::uint64_t const m = limb[0] >> (64 - sb);  // sb bits, top one set
      std::int64_t const lead = mpfr_get_exp(v) - 1; // exponent of the top bit
      if (lead >= 1 - bias) {                        // normal
        bits = (static_cast<std::uint64_t>(lead + bias) << (sb - 1)) |
               (m & ((std::uint64_t{1} << (sb - 1)) - 1));
      } else {                                      // subnormal: quantum 2^(2-bias-sb)
        std::int64_t const shift = 1 - bias - lead; // in [1, sb - 1]
        assert(shift >= 1 && shift < sb && "the value lies on the subnormal grid");
        bits = m >> shift;
      }
    }
    if (sign) bits |= std::uint64_t{1} << (w - 1);
    return IEEEFloat::from_narrow_bits(bits, f); // f was checked by the operation
  }
  mpz_ptr z = scratch().z;
  mpz_set_ui(z, 0);
  if (!mpfr_zero_p(v)) {
    std::int64_t const e = mpfr_get_z_2exp(z, v); // v = z * 2^e, z of precision bits
    mpz_abs(z, z);
    std::int64_t const lead = e + static_cast<std::int64_t>(mpz_sizeinbase(z, 2)) - 1;
    if (lead >= 1 - bias) {
      // Rescale to sb bits, then put the biased exponent above the trailing bits.
      std::int64_t const shift = lead - (sb - 1) - e;
      if (shift > 0)
        mpz_mul_2exp(z, z, static_cast<mp_bitcnt_t>(shift));
      else
        mpz_tdiv_q_2exp(z, z, static_cast<mp_bitcnt_t>(-shift));
      mpz_clrbit(z, f.sb - 1);
      mpz_t field;
      mpz_init_set_ui(field, static_cast<unsigned long>(lead + bias));
      mpz_mul_2exp(field, field, f.sb - 1);
      mpz_ior(z, z, field);
      mpz_clear(field);
    } else {
      std::int64_t const shift = (2 - bias - sb) - e; // quantum exponent minus e
      if (shift > 0)
        mpz_tdiv_q_2exp(z, z, static_cast<mp_bitcnt_t>(shift));
      else
        mpz_mul_2exp(z, z, static_cast<mp_bitcnt_t>(-shift));
    }
  }
  if (sign) mpz_setbit(z, w - 1);
  return IEEEFloat::from_bits(static_cast<mpz_srcptr>(z), f);
}

int fit(mpfr_ptr v, int t, mpfr_rnd_t rnd, format f) {
  ExpRange const narrow(f);
  t = mpfr_check_range(v, t, rnd);
  return mpfr_subnormalize(v, t, rnd);
}

IEEEFloat round_exact_ties_away(mpfr_srcptr v, format f) {
  Scratch& s = scratch();
  auto const sb = static_cast<mpfr_prec_t>(f.sb);
  use_prec(s.n, sb);
  int const tn = fit(s.n, mpfr_set(s.n, v, MPFR_RNDN), MPFR_RNDN, f);
  // Exact, or rounded to infinity (ties-even and ties-away overflow alike),
  // or not a tie: nearest-even is the answer.  Otherwise v is halfway iff
  // 2v equals the sum of its neighbours below and above in magnitude.
  if (tn == 0 || mpfr_inf_p(s.n)) return store(s.n, f);
  use_prec(s.u, sb);
  fit(s.u, mpfr_set(s.u, v, MPFR_RNDA), MPFR_RNDA, f);
  if (mpfr_inf_p(s.u)) return store(s.n, f);
  use_prec(s.s, sb);
  fit(s.s, mpfr_set(s.s, v, MPFR_RNDZ), MPFR_RNDZ, f);
  mpfr_prec_round(s.s, sb + 2, MPFR_RNDN); // the sum of neighbours is then exact
  mpfr_add(s.s, s.s, s.u, MPFR_RNDN);
  mpfr_div_2ui(s.s, s.s, 1, MPFR_RNDN);
  return store(mpfr_equal_p(s.s, v) ? s.u : s.n, f);
}

} // namespace qorv::swflt::detail
