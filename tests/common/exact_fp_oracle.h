// An exact reference for IEEE-754 arithmetic in any (small or moderate)
// format, written from the definitions and sharing no code with the library:
// values are decoded to GMP rationals, each operation is computed exactly,
// and the exact result is rounded by searching the ordered bit patterns for
// the two values around it.  Results are bit patterns (mpz_class); every NaN
// is the quiet NaN with the sign clear.  Used by the exhaustive tests and by
// the arithmetic fuzz harness; random_pattern draws operands for them and
// for the differential run against other solvers.
//
// Rounding modes are numbered as SMT-LIB lists them: RNE, RNA, RTP, RTN, RTZ.
// Nothing here is fast: a rounding costs a binary search of about eb + sb
// steps, each an exact comparison (a table of all values serves formats of at
// most 12 bits).
#pragma once

#include <gmpxx.h>

#include <cassert>
#include <optional>
#include <random>
#include <vector>

namespace qorv::oracle {

enum Mode { kRNE = 0, kRNA = 1, kRTP = 2, kRTN = 3, kRTZ = 4 };

class Oracle {
public:
  struct Value {
    bool nan = false, inf = false, sign = false;
    mpq_class mag; // not NaN: the magnitude, 2^(emax + 1) for infinity
    bool zero() const { return !nan && !inf && mag == 0; }
    mpq_class signed_q() const { return sign ? mpq_class(-mag) : mag; }
  };

  Oracle(unsigned long eb, unsigned long sb)
      : eb_(eb), sb_(sb), bias_((1L << (eb - 1)) - 1),
        inf_mag_(((mpz_class(1) << eb) - 1) << (sb - 1)) {
    if (eb + sb <= 12)
      for (unsigned long p = 0; p <= inf_mag_.get_ui(); ++p)
        table_.push_back(magnitude(p));
  }

  unsigned long width() const { return eb_ + sb_; }
  mpz_class sign_bit() const { return mpz_class(1) << (width() - 1); }
  mpz_class nan() const { return inf_mag_ + (mpz_class(1) << (sb_ - 2)); }
  mpz_class inf(bool sign) const { return sign ? mpz_class(inf_mag_ + sign_bit()) : inf_mag_; }
  mpz_class zero(bool sign) const { return sign ? sign_bit() : mpz_class(0); }

  Value decode(mpz_class const& bits) const {
    Value v;
    mpz_class m = bits & (sign_bit() - 1);
    v.sign = bits >= sign_bit();
    if (m > inf_mag_)
      v.nan = true;
    else
      v.inf = m == inf_mag_, v.mag = value_of(m);
    return v;
  }

  // Rounds a nonzero exact value of sign `sign` whose magnitude compares to
  // any rational m as cmp(m) (the sign of |exact| - m).
  template <class Cmp>
  mpz_class round(bool sign, int rm, Cmp cmp) const {
    // Largest pattern i in [0, inf_mag] with value(i) <= |exact|; the
    // pattern of infinity stands for 2^(emax + 1), as if exponents went on.
    mpz_class lo = 0, hi = inf_mag_ + 1;
    while (hi - lo > 1) {
      mpz_class mid = (lo + hi) / 2;
      (cmp(value_of(mid)) >= 0 ? lo : hi) = mid;
    }
    mpz_class k = lo;
    if (cmp(value_of(lo)) != 0) {
      bool up = (rm == kRTP && !sign) || (rm == kRTN && sign); // away from zero
      if ((rm == kRNE || rm == kRNA) && lo != inf_mag_) {      // beyond 2^(emax+1): overflows below
        int const c = cmp((value_of(lo) + value_of(lo + 1)) / 2);
        up = c > 0 || (c == 0 && (rm == kRNA || mpz_odd_p(lo.get_mpz_t())));
      }
      if (up) ++k;
    }
    if (k >= inf_mag_) { // overflow: infinity unless rounding toward zero
      bool const toward_zero = rm == kRTZ || (rm == kRTP && sign) || (rm == kRTN && !sign);
      k = toward_zero ? mpz_class(inf_mag_ - 1) : inf_mag_;
    }
    return sign ? mpz_class(k + sign_bit()) : k;
  }

  // A rational result; `zero_sign` is the sign of an exact zero.
  mpz_class round_q(mpq_class const& q, int rm, bool zero_sign) const {
    if (q == 0) return zero(zero_sign);
    mpq_class const a = abs(q);
    return round(q < 0, rm, [&](mpq_class const& m) { return cmp(a, m); });
  }

  mpz_class add(int rm, mpz_class const& x, mpz_class const& y) const {
    Value a = decode(x), b = decode(y);
    if (a.nan || b.nan || (a.inf && b.inf && a.sign != b.sign)) return nan();
    if (a.inf || b.inf) return inf(a.inf ? a.sign : b.sign);
    bool const zs = a.zero() && b.zero() && a.sign == b.sign ? a.sign : rm == kRTN;
    return round_q(a.signed_q() + b.signed_q(), rm, zs);
  }
  mpz_class sub(int rm, mpz_class const& x, mpz_class const& y) const {
    return add(rm, x, y ^ sign_bit());
  }
  mpz_class mul(int rm, mpz_class const& x, mpz_class const& y) const {
    Value a = decode(x), b = decode(y);
    bool const s = a.sign != b.sign;
    if (a.nan || b.nan || (a.inf && b.zero()) || (a.zero() && b.inf)) return nan();
    if (a.inf || b.inf) return inf(s);
    return round_q(a.signed_q() * b.signed_q(), rm, s);
  }
  mpz_class div(int rm, mpz_class const& x, mpz_class const& y) const {
    Value a = decode(x), b = decode(y);
    bool const s = a.sign != b.sign;
    if (a.nan || b.nan || (a.inf && b.inf) || (a.zero() && b.zero())) return nan();
    if (a.inf || b.zero()) return inf(s);
    if (b.inf) return zero(s);
    return round_q(a.signed_q() / b.signed_q(), rm, s);
  }
  mpz_class fma(int rm, mpz_class const& x, mpz_class const& y, mpz_class const& z) const {
    Value a = decode(x), b = decode(y), c = decode(z);
    bool const ps = a.sign != b.sign;
    if (a.nan || b.nan || c.nan || (a.inf && b.zero()) || (a.zero() && b.inf)) return nan();
    if (a.inf || b.inf) return c.inf && c.sign != ps ? nan() : inf(ps);
    if (c.inf) return z;
    mpq_class const p = a.signed_q() * b.signed_q();
    bool const zs = p == 0 && c.zero() && ps == c.sign ? ps : rm == kRTN;
    return round_q(p + c.signed_q(), rm, zs);
  }
  mpz_class sqrt(int rm, mpz_class const& x) const {
    Value a = decode(x);
    if (a.nan || (a.sign && !a.zero())) return nan();
    if (a.inf || a.zero()) return x;
    // |sqrt(q)| against m: compare q with m^2.
    return round(false, rm, [&](mpq_class const& m) { return cmp(a.mag, m * m); });
  }
  // The integer nearest q under rm.
  static mpz_class integer(mpq_class const& q, int rm) {
    mpz_class f, c;
    mpz_fdiv_q(f.get_mpz_t(), q.get_num_mpz_t(), q.get_den_mpz_t());
    mpz_cdiv_q(c.get_mpz_t(), q.get_num_mpz_t(), q.get_den_mpz_t());
    if (f == c) return f;
    int const d = cmp(q - f, mpq_class(1, 2)); // against the midpoint
    bool const nearest = rm == kRNE || rm == kRNA;
    bool const tie_up = rm == kRNA ? q > 0 : mpz_odd_p(f.get_mpz_t()) != 0;
    bool const up =
        rm == kRTP || (rm == kRTZ && q < 0) || (nearest && (d > 0 || (d == 0 && tie_up)));
    return up ? c : f;
  }
  mpz_class rem(mpz_class const& x, mpz_class const& y) const {
    Value a = decode(x), b = decode(y);
    if (a.nan || b.nan || a.inf || b.zero()) return nan();
    if (b.inf) return x;
    mpq_class const q = a.signed_q(), d = b.signed_q();
    return round_q(q - mpq_class(integer(q / d, kRNE)) * d, kRNE, a.sign);
  }
  mpz_class round_to_integral(int rm, mpz_class const& x) const {
    Value a = decode(x);
    if (a.nan) return nan();
    if (a.inf || a.zero()) return x;
    return round_q(integer(a.signed_q(), rm), rm, a.sign);
  }
  // 2 for unordered, else the sign of x - y.
  int compare(mpz_class const& x, mpz_class const& y) const {
    Value a = decode(x), b = decode(y);
    if (a.nan || b.nan) return 2;
    int const c = cmp(a.signed_q(), b.signed_q());
    return (c > 0) - (c < 0);
  }
  std::optional<mpz_class> min_max(mpz_class const& x, mpz_class const& y, bool is_max) const {
    Value a = decode(x), b = decode(y);
    if (a.nan) return b.nan ? nan() : y;
    if (b.nan) return x;
    int const c = compare(x, y);
    if (c == 0) return x == y ? std::optional<mpz_class>(x) : std::nullopt;
    return (c > 0) == is_max ? x : y;
  }
  std::optional<mpz_class> to_bv(int rm, mpz_class const& x, unsigned long w,
                                 bool is_signed) const {
    Value a = decode(x);
    if (a.nan || a.inf) return std::nullopt;
    mpz_class const n = integer(a.signed_q(), rm);
    mpz_class const top = mpz_class(1) << (is_signed ? w - 1 : w);
    if (n >= top || n < (is_signed ? mpz_class(-top) : mpz_class(0))) return std::nullopt;
    return n;
  }
  std::optional<mpq_class> to_real(mpz_class const& x) const {
    Value a = decode(x);
    if (a.nan || a.inf) return std::nullopt;
    return a.signed_q();
  }
  // x of format `from` in this format.
  mpz_class convert(int rm, Oracle const& from, mpz_class const& x) const {
    Value a = from.decode(x);
    if (a.nan) return nan();
    if (a.inf) return inf(a.sign);
    return round_q(a.signed_q(), rm, a.sign);
  }

private:
  static mpq_class pow2(long e) {
    mpz_class p = mpz_class(1) << (e < 0 ? -e : e);
    return e < 0 ? mpq_class(1, p) : mpq_class(p);
  }
  mpq_class magnitude(mpz_class const& m) const {
    mpz_class const t = m & ((mpz_class(1) << (sb_ - 1)) - 1);
    long const e = mpz_class(m >> (sb_ - 1)).get_si();
    long const sb = static_cast<long>(sb_);
    if (e == 0) return mpq_class(t) * pow2(1 - bias_ - (sb - 1));
    return mpq_class(t + (mpz_class(1) << (sb_ - 1))) * pow2(e - bias_ - (sb - 1));
  }
  mpq_class value_of(mpz_class const& m) const {
    return table_.empty() ? magnitude(m) : table_[m.get_ui()];
  }

  unsigned long eb_, sb_;
  long bias_;
  mpz_class inf_mag_;
  std::vector<mpq_class> table_;
};

// A random bit pattern of format (eb, sb) favouring the edges: zeros,
// subnormals, the largest values, values near 1, infinities and NaN.
inline mpz_class random_pattern(std::mt19937_64& rng, unsigned long eb, unsigned long sb) {
  auto random_bits = [&](unsigned long k) {
    mpz_class z;
    for (unsigned long i = 0; i < k; i += 32)
      z = (z << 32) + static_cast<unsigned long>(rng() >> 32);
    return mpz_class(z & ((mpz_class(1) << k) - 1));
  };
  // Exponents: zero, one, the largest two, near 1, or any.
  mpz_class const exp_ones = (mpz_class(1) << eb) - 1;
  mpz_class const edges[] = {0, 1, exp_ones - 1, exp_ones,
                             (exp_ones >> 1) + static_cast<long>(rng() % 5) - 2};
  unsigned const k = rng() % 8;
  mpz_class const exp = k < 5 ? edges[k] : random_bits(eb);
  mpz_class trail = k == 3 && rng() % 2 ? mpz_class(0) : random_bits(sb - 1);
  if (rng() % 4 == 0) trail = rng() % 2 ? mpz_class(0) : mpz_class((mpz_class(1) << (sb - 1)) - 1);
  return ((mpz_class(rng() % 2) << eb) + exp) << (sb - 1) | trail;
}

} // namespace qorv::oracle
