// IEEEFloat: construction, value semantics, classification, text and the exact
// conversions to and from double.
//
// Narrow values (kinds 0 and 1) are handled in 64-bit arithmetic.  Wide values
// read their pattern through a GMP view of the QNumber numerator that costs no
// allocation; the conversions work on GMP integers throughout, which keeps them
// exact for every width at a cost that only tools and tests pay.
#include "host/ieee_float.h"

#include "host/bit_fields.h"

#include "support/mpz.h"

#include <algorithm>
#include <bit>
#include <cassert>
#include <climits>
#include <cmath>
#include <limits>
#include <new>
#include <stdexcept>

namespace qorv {

namespace swflt {
unsigned char float_exception_flags = 0;
} // namespace swflt

static_assert(sizeof(unsigned long) == 8 && sizeof(mp_limb_t) == 8 && GMP_NUMB_BITS == 64,
              "the GMP views below assume 64-bit limbs and longs");

namespace {

using format = IEEEFloat::format;

// Decimal text of an integer, abbreviated when it would be unreadably long.
std::string readable_integer(mpz_srcptr x) {
  std::size_t const bits = mpz_sizeinbase(x, 2);
  if (bits > 256)
    return (mpz_sgn(x) < 0 ? "a negative " : "a ") + std::to_string(bits) + "-bit integer";
  return integer_text(x);
}

// out = 2^n - 1.
void set_ones(mpz_ptr out, std::uint64_t n) {
  mpz_set_ui(out, 0);
  mpz_setbit(out, n);
  mpz_sub_ui(out, out, 1);
}

// The pattern of infinity (quiet NaN when `nan`) with the given sign.
void special_pattern(mpz_ptr out, format f, bool negative, bool nan) {
  set_ones(out, f.eb);
  mpz_mul_2exp(out, out, f.sb - 1);
  if (nan) mpz_setbit(out, f.sb - 2);
  if (negative) mpz_setbit(out, f.eb + f.sb - 1);
}

// The pattern of the format-f value nearest to (-1)^negative * m * 2^e, ties
// to even, for m > 0.  Callers keep the leading-bit exponent within a few
// million of 0; formats with more than 62 exponent bits then never see a
// subnormal or an overflow, so their bias need not fit a machine word.
void round_to_pattern(bool negative, mpz_srcptr m, std::int64_t e, format f, mpz_ptr out) {
  assert(mpz_sgn(m) > 0 && "only nonzero magnitudes are rounded");
  auto const n = static_cast<std::int64_t>(mpz_sizeinbase(m, 2));
  auto const sb = static_cast<std::int64_t>(f.sb);
  bool const huge_range = f.eb > 62;
  std::int64_t const bias = huge_range ? 0 : (std::int64_t{1} << (f.eb - 1)) - 1;
  std::int64_t const emin = huge_range ? INT64_MIN / 4 : 1 - bias;
  std::int64_t const emax = huge_range ? INT64_MAX / 4 : bias;
  std::int64_t const lead = e + n - 1;
  // Exponent of the last significand bit: fixed at the subnormal quantum
  // below emin.
  std::int64_t q = std::max(lead, emin) - (sb - 1);

  Mpz s;
  if (e >= q) {
    mpz_mul_2exp(s, m, static_cast<mp_bitcnt_t>(e - q));
  } else {
    auto const shift = static_cast<std::uint64_t>(q - e);
    // shift > n: the magnitude is below half the quantum, so it rounds to 0.
    if (shift <= static_cast<std::uint64_t>(n)) {
      mpz_fdiv_q_2exp(s, m, shift);
      bool const half = mpz_tstbit(m, shift - 1) != 0;
      bool const sticky = mpz_scan1(m, 0) < shift - 1;
      if (half && (sticky || mpz_odd_p(s.get()))) mpz_add_ui(s, s, 1);
    }
  }

  mpz_set_ui(out, 0);
  if (mpz_sgn(s.get()) != 0) {
    std::int64_t const len = static_cast<std::int64_t>(mpz_sizeinbase(s, 2));
    if (len == sb + 1) { // rounding carried into a new leading bit
      mpz_fdiv_q_2exp(s, s, 1);
      ++q;
    }
    if (len < sb) { // subnormal: exponent field 0, significand as is
      mpz_set(out, s);
    } else if (q + sb - 1 > emax) {
      special_pattern(out, f, false, false);
    } else {
      // Biased exponent field, then the trailing significand below it.
      std::int64_t const unbiased = q + sb - 1;
      if (huge_range) {
        set_ones(out, f.eb - 1);
        if (unbiased >= 0)
          mpz_add_ui(out, out, static_cast<unsigned long>(unbiased));
        else
          mpz_sub_ui(out, out, static_cast<unsigned long>(-unbiased));
      } else {
        mpz_set_si(out, unbiased + bias);
      }
      mpz_mul_2exp(out, out, f.sb - 1);
      mpz_clrbit(s, f.sb - 1);
      mpz_ior(out, out, s);
    }
  }
  if (negative) mpz_setbit(out, f.eb + f.sb - 1);
}

} // namespace

std::string format_text(IEEEFloat::format f) {
  return "(" + std::to_string(f.eb) + ", " + std::to_string(f.sb) + ")";
}

std::string fp_sort_text(IEEEFloat::format f) {
  return "(_ FloatingPoint " + std::to_string(f.eb) + " " + std::to_string(f.sb) + ")";
}

void BitFields::view_wide(QNumber const& q) noexcept {
  if (q.is_big()) {
    wide_ = q.big_num();
  } else {
    assert(q.small_num() >= 0 && q.small_den() == 1 && "a pattern is a non-negative integer");
    limb_ = static_cast<mp_limb_t>(q.small_num());
    wide_ = mpz_roinit_n(tmp_, &limb_, limb_ != 0 ? 1 : 0);
  }
}

std::uint64_t BitFields::wide_bits(std::uint64_t pos, std::uint64_t n) const noexcept {
  mp_size_t const i = static_cast<mp_size_t>(pos / 64);
  unsigned const shift = pos % 64;
  std::uint64_t v = mpz_getlimbn(wide_, i) >> shift; // limbs past the end read 0
  if (shift != 0 && shift + n > 64) v |= mpz_getlimbn(wide_, i + 1) << (64 - shift);
  return v & ones(n);
}

void BitFields::trailing(mpz_ptr out) const {
  if (narrow_)
    mpz_set_ui(out, trailing());
  else
    mpz_tdiv_r_2exp(out, wide_, f_.sb - 1);
}

void IEEEFloat::check_format(format f) {
  if (f.eb < 2 || f.sb < 2 || f.eb > max_width || f.sb > max_width || f.eb + f.sb > max_width)
    throw std::invalid_argument(
        "IEEEFloat: invalid format (eb, sb) = " + format_text(f) +
        ": need eb >= 2, sb >= 2 and eb + sb <= " + std::to_string(max_width));
}

IEEEFloat::payload_kind IEEEFloat::kind_of(format f) noexcept {
  if (f.eb > max_width || f.sb > max_width) return kind_qnumber;
  std::uint64_t const w = f.eb + f.sb;
  return w <= 32 ? kind_u32 : w <= 64 ? kind_u64 : kind_qnumber;
}

IEEEFloat::IEEEFloat(format f, rounding_mode rm) : fmt_(f), tag_(0), payload_{0} {
  check_format(f);
  if (rm > rm_toward_zero)
    throw std::invalid_argument("IEEEFloat: invalid rounding mode " + std::to_string(rm));
  if (kind_of(f) == kind_qnumber) payload_.q = new QNumber();
  tag_ = tag_of(f, rm);
}

std::uint32_t IEEEFloat::tag_of(format f, rounding_mode rm) noexcept {
  if (kind_of(f) != kind_qnumber) return narrow_tag(f) | rm;
  return (std::uint32_t{kind_qnumber} << kind_shift) | rm;
}

void IEEEFloat::copy_wide(IEEEFloat const& other) {
  payload_.q = new QNumber(*other.payload_.q); // on failure nothing is owned yet
}

IEEEFloat& IEEEFloat::assign_wide(IEEEFloat const& other) {
  if (this == &other) return *this;
  if (other.narrow()) {
    release();
    payload_.u64 = other.payload_.u64;
  } else if (!narrow() && (payload_.q->is_big() || !other.payload_.q->is_big())) {
    // QNumber assignment takes no new block here (a big destination stays
    // big, small to small copies words), so it cannot fail half-way.
    *payload_.q = *other.payload_.q;
  } else {
    QNumber* copy = new QNumber(*other.payload_.q); // may throw: *this untouched
    release();
    payload_.q = copy;
  }
  fmt_ = other.fmt_;
  tag_ = other.tag_;
  return *this;
}

void IEEEFloat::release_wide() noexcept {
  delete payload_.q;
}

IEEEFloat IEEEFloat::from_bits(mpz_srcptr bits, format f) {
  check_format(f);
  if (mpz_sgn(bits) < 0 || (mpz_sgn(bits) > 0 && mpz_sizeinbase(bits, 2) > f.eb + f.sb))
    throw std::invalid_argument("IEEEFloat::from_bits: pattern " + readable_integer(bits) +
                                " does not fit format " + format_text(f) +
                                " (need 0 <= pattern < 2^" + std::to_string(f.eb + f.sb) + ")");
  IEEEFloat r(f, rm_nearest_even);
  r.set_bits(bits);
  return r;
}

IEEEFloat IEEEFloat::from_bits(QNumber const& bits, format f) {
  Mpz num, den;
  bits.get_num(num);
  bits.get_den(den);
  if (mpz_cmp_ui(den.get(), 1) != 0)
    throw std::invalid_argument("IEEEFloat::from_bits: pattern " + readable_integer(num) + "/" +
                                readable_integer(den) + " is not an integer (format " +
                                format_text(f) + ")");
  return from_bits(static_cast<mpz_srcptr>(num), f);
}

IEEEFloat IEEEFloat::from_bits(std::uint64_t bits, format f) {
  check_format(f);
  std::uint64_t const w = f.eb + f.sb;
  if (w < 64 && (bits >> w) != 0)
    throw std::invalid_argument("IEEEFloat::from_bits: pattern " + std::to_string(bits) +
                                " does not fit format " + format_text(f) + " (need pattern < 2^" +
                                std::to_string(w) + ")");
  IEEEFloat r(f, rm_nearest_even);
  r.set_bits_u64(bits);
  return r;
}

void IEEEFloat::set_bits_u64(std::uint64_t bits) {
  if (narrow()) {
    payload_.u64 = bits;
  } else if (bits > static_cast<std::uint64_t>(INT64_MAX)) {
    Mpz t;
    mpz_set_ui(t, bits);
    set_bits(t);
  } else if (!payload_.q->is_big()) {
    *payload_.q = QNumber(static_cast<std::int64_t>(bits), 1); // small to small: no allocation
  } else {
    QNumber* fresh = new QNumber(static_cast<std::int64_t>(bits), 1);
    delete payload_.q;
    payload_.q = fresh;
  }
}

void IEEEFloat::set_bits(mpz_srcptr bits) {
  assert(mpz_sgn(bits) >= 0 && mpz_sizeinbase(bits, 2) <= width() && "pattern checked to fit");
  if (narrow() || mpz_fits_slong_p(bits)) {
    set_bits_u64(mpz_get_ui(bits));
    return;
  }
  Mpz one;
  mpz_set_ui(one, 1);
  QNumber* fresh = new QNumber(bits, one);
  delete payload_.q;
  payload_.q = fresh;
}

void IEEEFloat::get_bits(mpz_ptr out) const {
  if (narrow())
    mpz_set_ui(out, payload_.u64);
  else
    payload_.q->get_num(out);
}

void IEEEFloat::self_inf(bool negative) {
  if (narrow()) {
    payload_.u64 = inf_magnitude64() | (negative ? sign_bit64() : 0);
    return;
  }
  Mpz t;
  special_pattern(t, fmt_, negative, false);
  set_bits(t);
}

void IEEEFloat::self_nan() {
  if (narrow()) {
    payload_.u64 = inf_magnitude64() | (std::uint64_t{1} << (fmt_.sb - 2));
    return;
  }
  Mpz t;
  special_pattern(t, fmt_, false, true);
  set_bits(t);
}

IEEEFloat IEEEFloat::nan(format f) {
  IEEEFloat v(f, rm_nearest_even);
  v.self_nan();
  return v;
}

IEEEFloat IEEEFloat::inf(format f, bool negative) {
  IEEEFloat v(f, rm_nearest_even);
  v.self_inf(negative);
  return v;
}

IEEEFloat IEEEFloat::zero(format f, bool negative) {
  IEEEFloat v(f, rm_nearest_even);
  if (negative) {
    Mpz t;
    mpz_setbit(t, v.width() - 1);
    v.set_bits(t);
  }
  return v;
}

bool IEEEFloat::get_sign_wide() const {
  return BitFields(*this).sign();
}

bool IEEEFloat::is_nan_wide() const {
  BitFields const x(*this);
  return x.exp_ones() && !x.trail_zero();
}

bool IEEEFloat::is_inf() const {
  BitFields const x(*this);
  return x.exp_ones() && x.trail_zero();
}

bool IEEEFloat::is_zero() const {
  BitFields const x(*this);
  return x.exp_zero() && x.trail_zero();
}

bool IEEEFloat::is_subnormal() const {
  BitFields const x(*this);
  return x.exp_zero() && !x.trail_zero();
}

bool IEEEFloat::is_normal() const {
  BitFields const x(*this);
  return !x.exp_zero() && !x.exp_ones();
}

std::string IEEEFloat::to_str() const {
  std::uint64_t const w = width();
  Mpz wide;
  if (!narrow()) get_bits(wide);
  auto bit = [&](std::uint64_t i) {
    bool const set = narrow() ? ((payload_.u64 >> i) & 1) != 0 : mpz_tstbit(wide, i) != 0;
    return set ? '1' : '0';
  };
  std::string s;
  s.reserve(w + 16);
  s += "(fp #b";
  s += bit(w - 1);
  s += " #b";
  for (std::uint64_t i = w - 1; i-- > fmt_.sb - 1;)
    s += bit(i);
  s += " #b";
  for (std::uint64_t i = fmt_.sb - 1; i-- > 0;)
    s += bit(i);
  s += ')';
  return s;
}

IEEEFloat IEEEFloat::from_double(double d, format f) {
  IEEEFloat r(f, rm_nearest_even);
  bool const negative = std::signbit(d);
  Mpz t;
  if (std::isnan(d)) {
    special_pattern(t, f, negative, true);
  } else if (std::isinf(d)) {
    special_pattern(t, f, negative, false);
  } else if (d == 0) {
    if (negative) mpz_setbit(t, f.eb + f.sb - 1);
  } else {
    int ex = 0;
    double const fraction = std::frexp(std::fabs(d), &ex); // in [0.5, 1)
    Mpz m;
    mpz_set_ui(m, static_cast<unsigned long>(std::ldexp(fraction, 53))); // exact
    round_to_pattern(negative, m, std::int64_t{ex} - 53, f, t);
  }
  r.set_bits(t);
  return r;
}

double IEEEFloat::to_double() const {
  BitFields const x(*this);
  bool const negative = x.sign();
  double const sign = negative ? -1.0 : 1.0;
  if (x.exp_ones())
    return x.trail_zero() ? sign * std::numeric_limits<double>::infinity()
                          : std::copysign(std::numeric_limits<double>::quiet_NaN(), sign);
  bool const exp_zero = x.exp_zero();
  if (exp_zero && x.trail_zero()) return sign * 0.0;

  // Significand s and unbiased exponent of the value: s * 2^(exp - (sb - 1)).
  Mpz p, s, exp;
  get_bits(p);
  mpz_fdiv_r_2exp(s, p, fmt_.sb - 1);
  if (exp_zero) {
    mpz_set_ui(exp, 1);
  } else {
    mpz_fdiv_q_2exp(exp, p, fmt_.sb - 1);
    mpz_fdiv_r_2exp(exp, exp, fmt_.eb);
    mpz_setbit(s, fmt_.sb - 1);
  }
  Mpz bias;
  set_ones(bias, fmt_.eb - 1);
  mpz_sub(exp, exp, bias);
  // Leading-bit exponent; far outside the double range the result is settled.
  Mpz lead;
  mpz_sub_ui(lead, exp, fmt_.sb - 1);
  mpz_add_ui(lead, lead, mpz_sizeinbase(s, 2) - 1);
  if (mpz_cmp_si(lead.get(), 1100) > 0) return sign * std::numeric_limits<double>::infinity();
  if (mpz_cmp_si(lead.get(), -1200) < 0) return sign * 0.0;
  std::int64_t const e = mpz_get_si(lead) - static_cast<std::int64_t>(mpz_sizeinbase(s, 2)) + 1;
  Mpz out;
  round_to_pattern(negative, s, e, format{11, 53}, out);
  return std::bit_cast<double>(static_cast<std::uint64_t>(mpz_get_ui(out)));
}

} // namespace qorv
