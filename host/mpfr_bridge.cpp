// The IEEEFloat <-> MPFR bridge: exact conversion both ways, the exponent
// range of a format, narrowing a wide result to a format, and ties-away
// rounding by an exact halfway test.
//
// Formats of at most 64 bits read and write their significand as one machine
// word (MPFR keeps precisions up to 64 in one limb, most significant bit
// set), so they never touch GMP integers; wider formats go through the
// scratch integer, which grows once and is reused.
#include "host/mpfr_bridge.h"

#include "host/bit_fields.h"

#include <bit>
#include <cassert>
#include <stdexcept>
#include <string>

namespace qorv::swflt::detail {

static_assert(GMP_NUMB_BITS == 64 && sizeof(unsigned long) == 8, "one 64-bit limb per word");

namespace {

std::int64_t bias_of(format f) noexcept {
  return (std::int64_t{1} << (f.eb - 1)) - 1;
}

} // namespace

ExpRange::ExpRange(format f) noexcept : emin_(mpfr_get_emin()), emax_(mpfr_get_emax()) {
  mpfr_set_emin(format_emin(f));
  mpfr_set_emax(format_emax(f));
}

ExpRange::ExpRange() noexcept : emin_(mpfr_get_emin()), emax_(mpfr_get_emax()) {
  mpfr_set_emin(mpfr_get_emin_min());
  mpfr_set_emax(mpfr_get_emax_max());
}

ExpRange::~ExpRange() {
  mpfr_set_emin(emin_);
  mpfr_set_emax(emax_);
}

RangeFor::RangeFor(format f) noexcept : emin_(mpfr_get_emin()), emax_(mpfr_get_emax()) {
  mpfr_exp_t const room = 4 * (format_emax(f) + static_cast<mpfr_exp_t>(f.sb));
  changed_ = emin_ > -room || emax_ < room;
  if (changed_) {
    mpfr_set_emin(mpfr_get_emin_min());
    mpfr_set_emax(mpfr_get_emax_max());
  }
}

RangeFor::~RangeFor() {
  if (changed_) {
    mpfr_set_emin(emin_);
    mpfr_set_emax(emax_);
  }
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
  BitFields const fields(x);
  bool const sign = fields.sign();
  std::uint64_t const exp = fields.exponent(); // eb <= max_arith_eb, checked by the caller
  if (exp == BitFields::ones(f.eb)) {
    if (!fields.trail_zero())
      mpfr_set_nan(v);
    else
      mpfr_set_inf(v, sign ? -1 : 1);
    return;
  }
  std::int64_t const e = (exp == 0 ? 1 : static_cast<std::int64_t>(exp)) - bias_of(f) -
                         static_cast<std::int64_t>(f.sb - 1);
  if (x.narrow()) {
    std::uint64_t const hidden = std::uint64_t{1} << (f.sb - 1);
    std::uint64_t const sig = exp == 0 ? fields.trailing() : fields.trailing() | hidden;
    if (sig == 0) {
      mpfr_set_zero(v, sign ? -1 : 1);
    } else {
      // Written straight into the one-limb significand (normalised, low bits
      // clear); the exponent lies in the current range by the precondition.
      auto* limb = static_cast<mp_limb_t*>(mpfr_custom_get_significand(v));
      int const lz = std::countl_zero(sig);
      limb[0] = sig << lz;
      mpfr_custom_init_set(v, sign ? -MPFR_REGULAR_KIND : MPFR_REGULAR_KIND, e + 64 - lz,
                           static_cast<mpfr_prec_t>(f.sb), limb);
    }
    return;
  }
  mpz_ptr z = scratch().z;
  fields.trailing(z);
  if (exp != 0) mpz_setbit(z, f.sb - 1);
  if (mpz_sgn(z) == 0)
    mpfr_set_zero(v, 1); // the sign is applied below
  else
    mpfr_set_z_2exp(v, z, e, MPFR_RNDN); // exact
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

IEEEFloat round_exact_ties_away(mpfr_srcptr v, format f) {
  if (!mpfr_regular_p(v)) return store(v, f);
  Scratch& s = scratch();
  auto const set = [v](mpfr_ptr out, mpfr_rnd_t rnd) { return mpfr_set(out, v, rnd); };
  round_into(s.n, MPFR_RNDN, f, set);
  // Exact, or rounded to infinity (ties-even and ties-away overflow alike):
  // nearest-even is the answer.  Otherwise v is halfway iff 2v equals the
  // sum of its neighbours below and above in magnitude.
  if (mpfr_equal_p(s.n, v) || mpfr_inf_p(s.n)) return store(s.n, f);
  round_into(s.u, MPFR_RNDA, f, set);
  if (mpfr_inf_p(s.u)) return store(s.n, f);
  round_into(s.s, MPFR_RNDZ, f, set);
  mpfr_prec_round(s.s, static_cast<mpfr_prec_t>(f.sb) + 2, MPFR_RNDN); // the sum is then exact
  mpfr_add(s.s, s.s, s.u, MPFR_RNDN);
  mpfr_div_2ui(s.s, s.s, 1, MPFR_RNDN);
  return store(mpfr_equal_p(s.s, v) ? s.u : s.n, f);
}

} // namespace qorv::swflt::detail
