// QNumber: construction, copying, equality and the exact order.
//
// The order settles most comparisons without dividing (sign test, integer
// test), then cancels the common divisors of the two numerators and of the two
// denominators before cross-multiplying, so that the products of small
// numbers rarely leave 64 bits.  Divisors of small parts below 1024 come from
// gcd_cache; products that would overflow are formed in the scratch integers
// QNumber::gmp_tmp, which keep their storage between calls.
#include "support/qnumber.h"

#include "support/invariant.h"
#include "support/mpz.h"

#include <cassert>
#include <limits>
#include <new>
#include <stdexcept>

namespace qorv {

static_assert(sizeof(QNumber) == 16, "a QNumber is two 64-bit words");
static_assert(sizeof(unsigned long) == 8 && sizeof(long) == 8,
              "GMP's word-sized operations must take 64-bit machine integers");

std::int64_t gcd_cache[1024][1024];
mpz_t QNumber::gmp_tmp[4];

namespace {

constexpr std::int64_t kMin64 = std::numeric_limits<std::int64_t>::min();

// Brings the scratch integers to life before main and releases their storage
// at exit, so that leak checkers see nothing.  Numbers compared from other
// static initialisers or destructors are not supported.
struct GmpScratch {
  GmpScratch() noexcept {
    for (auto& t : QNumber::gmp_tmp)
      mpz_init(t);
  }
  ~GmpScratch() {
    for (auto& t : QNumber::gmp_tmp)
      mpz_clear(t);
  }
  GmpScratch(GmpScratch const&) = delete;
  GmpScratch& operator=(GmpScratch const&) = delete;
};
GmpScratch const gmp_scratch;

// |x| for a value that is never -2^63.
inline std::uint64_t abs_u64(std::int64_t x) noexcept {
  return x < 0 ? 0 - static_cast<std::uint64_t>(x) : static_cast<std::uint64_t>(x);
}

// Euclid's algorithm on remainders.
inline std::uint64_t euclid(std::uint64_t x, std::uint64_t y) noexcept {
  while (y != 0) {
    std::uint64_t r = x % y;
    x = y;
    y = r;
  }
  return x;
}

// True when x * y lies in [-(2^63 - 1), 2^63 - 1], which is exactly when
// |x| <= (2^63 - 1) / |y| (or y == 0); the product is then stored in *out.
inline bool safe_mul(std::int64_t x, std::int64_t y, std::int64_t* out) noexcept {
  return !__builtin_mul_overflow(x, y, out) && *out != kMin64;
}

} // namespace

std::uint64_t cached_gcd(std::uint64_t x, std::uint64_t y) {
  while (y != 0) {
    if (x <= 1023 && y <= 1023) {
      std::int64_t& entry = gcd_cache[x][y];
      if (entry != 0) return static_cast<std::uint64_t>(entry);
      std::int64_t g = static_cast<std::int64_t>(euclid(x, y));
      entry = g;
      gcd_cache[y][x] = g;
    }
    std::uint64_t r = x % y;
    x = y;
    y = r;
  }
  return x;
}

// ---------------------------------------------------------------- lifetime

QNumber::QNumber(std::int64_t n, std::int64_t d) {
  if (d == 0 || n == kMin64 || d == kMin64)
    throw std::invalid_argument("QNumber(" + std::to_string(n) + ", " + std::to_string(d) +
                                "): the denominator must be non-zero and neither part -2^63");
  // Both parts are above -2^63, so every quotient and negation below fits.
  std::int64_t g = static_cast<std::int64_t>(euclid(abs_u64(n), abs_u64(d)));
  n /= g;
  d /= g;
  if (d < 0) {
    n = -n;
    d = -d;
  }
  num_.small = n;
  den_ = d;
}

QNumber::QNumber(mpz_srcptr n, mpz_srcptr d) {
  if (mpz_sgn(d) == 0)
    throw std::invalid_argument("QNumber(" + integer_text(n) + ", 0): zero denominator");
  Big* b = new Big;
  mpz_init(b->num);
  mpz_init(b->den);
  mpz_gcd(b->num, n, d); // b->num is the divisor for a moment
  mpz_divexact(b->den, d, b->num);
  mpz_divexact(b->num, n, b->num);
  if (mpz_sgn(b->den) < 0) {
    mpz_neg(b->num, b->num);
    mpz_neg(b->den, b->den);
  }
  num_.big = b;
  den_ = 0;
}

QNumber QNumber::from_decimal(std::string_view text) {
  auto bad = [&](char const* why) {
    return std::invalid_argument("QNumber::from_decimal(\"" + std::string(text) + "\"): " + why);
  };
  auto digits_only = [](std::string_view s) {
    if (s.empty()) return false;
    for (char c : s)
      if (c < '0' || c > '9') return false;
    return true;
  };
  std::string_view::size_type slash = text.find('/');
  std::string num_text(text.substr(0, slash));
  std::string den_text =
      slash == std::string_view::npos ? "1" : std::string(text.substr(slash + 1));
  std::string_view unsigned_num = num_text;
  if (!unsigned_num.empty() && unsigned_num.front() == '-') unsigned_num.remove_prefix(1);
  if (!digits_only(unsigned_num) || !digits_only(den_text))
    throw bad("expected decimal digits as \"n\" or \"n/d\", with an optional leading '-'");

  mpz_t n, d;
  mpz_init_set_str(n, num_text.c_str(), 10);
  mpz_init_set_str(d, den_text.c_str(), 10);
  struct Clear {
    mpz_ptr a, b;
    ~Clear() {
      mpz_clear(a);
      mpz_clear(b);
    }
  } clear{n, d};
  if (mpz_sgn(d) == 0) throw bad("zero denominator");
  return QNumber(n, d);
}

QNumber::QNumber(QNumber const& other) : num_(other.num_), den_(other.den_) {
  if (other.is_big()) {
    Big* b = new Big;
    mpz_init_set(b->num, other.num_.big->num);
    mpz_init_set(b->den, other.num_.big->den);
    num_.big = b;
  }
}

QNumber::~QNumber() {
  if (is_big()) {
    mpz_clear(num_.big->num);
    mpz_clear(num_.big->den);
    delete num_.big;
  }
}

void QNumber::make_big() {
  assert(!is_big() && "make_big on a big number would leak its block");
  Big* b = new Big; // may throw std::bad_alloc; *this is unchanged then
  mpz_init(b->num);
  mpz_init_set_ui(b->den, 1);
  num_.big = b;
  den_ = 0;
}

QNumber& QNumber::operator=(QNumber const& other) {
  if (this == &other) return *this;
  if (!other.is_big()) {
    if (!is_big()) {
      num_ = other.num_;
      den_ = other.den_;
    } else {
      // A big destination stays big.
      mpz_set_si(num_.big->num, other.num_.small);
      mpz_set_si(num_.big->den, other.den_);
    }
    return *this;
  }
  if (!is_big()) make_big();
  mpz_set(num_.big->num, other.num_.big->num);
  mpz_set(num_.big->den, other.num_.big->den);
  return *this;
}

// ---------------------------------------------------------------- access

void QNumber::get_num(mpz_ptr out) const {
  if (is_big())
    mpz_set(out, num_.big->num);
  else
    mpz_set_si(out, num_.small);
}

void QNumber::get_den(mpz_ptr out) const {
  if (is_big())
    mpz_set(out, num_.big->den);
  else
    mpz_set_si(out, den_);
}

std::string QNumber::to_string() const {
  if (!is_big())
    return den_ == 1 ? std::to_string(num_.small)
                     : std::to_string(num_.small) + "/" + std::to_string(den_);
  std::string s = integer_text(num_.big->num);
  if (mpz_cmp_ui(num_.big->den, 1) != 0) s += "/" + integer_text(num_.big->den);
  return s;
}

void QNumber::check_invariants() const {
  if (!is_big()) {
    if (den_ <= 0) invariant_violated("QNumber", "small denominator not positive", to_string());
    if (num_.small == kMin64)
      invariant_violated("QNumber", "small numerator is -2^63", to_string());
    if (euclid(abs_u64(num_.small), abs_u64(den_)) != 1)
      invariant_violated("QNumber", "small form not in lowest terms", to_string());
    return;
  }
  if (num_.big == nullptr) invariant_violated("QNumber", "big form without a value block", "?");
  if (mpz_sgn(num_.big->den) <= 0)
    invariant_violated("QNumber", "big denominator not positive", to_string());
  Mpz g;
  mpz_gcd(g, num_.big->num, num_.big->den);
  if (mpz_cmp_ui(g.get(), 1) != 0)
    invariant_violated("QNumber", "big form not in lowest terms", to_string());
}

// ---------------------------------------------------------------- equality

bool QNumber::equal_mixed(QNumber const& a, QNumber const& b) {
  if (a.is_big() && b.is_big())
    return mpz_cmp(a.num_.big->num, b.num_.big->num) == 0 &&
           mpz_cmp(a.num_.big->den, b.num_.big->den) == 0;
  QNumber const& big = a.is_big() ? a : b;
  QNumber const& small = a.is_big() ? b : a;
  return mpz_cmp_si(big.num_.big->num, small.num_.small) == 0 &&
         mpz_cmp_si(big.num_.big->den, small.den_) == 0;
}

// ---------------------------------------------------------------- order

namespace {
// Cross products of a big-form value and a small one (n/d, n != 0) with the
// common divisors cancelled first; the sign of mpz_cmp(t0, t1) orders
// big against small.
template <class Big>
int mixed_cross(Big const& big, std::int64_t n, std::int64_t d, mpz_ptr t0, mpz_ptr t1) {
  auto const g1 = mpz_gcd_ui(nullptr, big.num, abs_u64(n));
  auto const g2 = mpz_gcd_ui(nullptr, big.den, static_cast<std::uint64_t>(d));
  mpz_divexact_ui(t0, big.num, g1);
  mpz_mul_si(t0, t0, d / static_cast<std::int64_t>(g2));
  mpz_divexact_ui(t1, big.den, g2);
  mpz_mul_si(t1, t1, n / static_cast<std::int64_t>(g1));
  return mpz_cmp(t0, t1);
}
} // namespace

bool operator<(QNumber const& a, QNumber const& b) {
  using Big = QNumber::Big;
  mpz_ptr const t0 = QNumber::gmp_tmp[0];
  mpz_ptr const t1 = QNumber::gmp_tmp[1];
  bool const a_big = a.is_big();
  bool const b_big = b.is_big();
  Big const* const ab = a.num_.big; // meaningful only when a_big
  Big const* const bb = b.num_.big; // meaningful only when b_big

  // Sign test: different signs (or a zero) settle the order without division.
  int const a_sign = a_big ? mpz_sgn(ab->num) : (a.num_.small > 0) - (a.num_.small < 0);
  int const b_sign = b_big ? mpz_sgn(bb->num) : (b.num_.small > 0) - (b.num_.small < 0);
  if (a_sign < 0 && b_sign >= 0) return true;
  if (a_sign >= 0 && b_sign <= 0) return false;

  if (!a_big && !b_big) {
    std::int64_t const an = a.num_.small, ad = a.den_;
    std::int64_t const bn = b.num_.small, bd = b.den_;
    if (ad == 1 && bd == 1) return an < bn;
    std::int64_t const g1 = static_cast<std::int64_t>(cached_gcd(abs_u64(an), abs_u64(bn)));
    std::int64_t const g2 = static_cast<std::int64_t>(
        cached_gcd(static_cast<std::uint64_t>(bd), static_cast<std::uint64_t>(ad)));
    std::int64_t lhs, rhs;
    // When the uncancelled cross products fit, so do the cancelled ones (the
    // divisors are positive), and both pairs compare alike: the four
    // divisions can be skipped.  The divisors are still taken above, since
    // they fill the cache.
    if (safe_mul(an, bd, &lhs) && safe_mul(ad, bn, &rhs)) return lhs < rhs;
    std::int64_t const an1 = an / g1, bn1 = bn / g1, ad2 = ad / g2, bd2 = bd / g2;
    if (safe_mul(an1, bd2, &lhs) && safe_mul(ad2, bn1, &rhs)) return lhs < rhs;
    mpz_set_si(t0, an1);
    mpz_mul_si(t0, t0, bd2);
    mpz_set_si(t1, ad2);
    mpz_mul_si(t1, t1, bn1);
    return mpz_cmp(t0, t1) < 0;
  }

  // Integer test.
  bool const a_int = a_big ? mpz_cmp_ui(ab->den, 1) == 0 : a.den_ == 1;
  bool const b_int = b_big ? mpz_cmp_ui(bb->den, 1) == 0 : b.den_ == 1;
  if (a_int && b_int) {
    if (a_big && b_big) return mpz_cmp(ab->num, bb->num) < 0;
    if (a_big) return mpz_cmp_si(ab->num, b.num_.small) < 0;
    return mpz_cmp_si(bb->num, a.num_.small) > 0;
  }

  // One small, one big.  Past the sign test the small numerator is 0 only
  // when a is small (then b > 0 decides), so both divisors fit in a machine
  // word.  mixed_cross leaves big.num/g1 * d/g2 in t0 and big.den/g2 * n/g1
  // in t1, where n/d is the small operand.
  if (!a_big) {
    if (a.num_.small == 0) return b_sign > 0;
    return mixed_cross(*bb, a.num_.small, a.den_, t0, t1) > 0;
  }
  if (!b_big) return mixed_cross(*ab, b.num_.small, b.den_, t0, t1) < 0;

  // Both big: divisors in t0 (numerators) and t1 (denominators).  Cancelling
  // first keeps the cross products small; the scratch integers keep their
  // storage, so a comparison allocates nothing once they have grown.
  mpz_ptr const t2 = QNumber::gmp_tmp[2];
  mpz_ptr const t3 = QNumber::gmp_tmp[3];
  mpz_gcd(t0, ab->num, bb->num);
  mpz_gcd(t1, ab->den, bb->den);
  mpz_divexact(t2, ab->num, t0);
  mpz_divexact(t3, bb->den, t1);
  mpz_mul(t2, t2, t3); // a.num/g1 * b.den/g2
  mpz_divexact(t3, bb->num, t0);
  mpz_divexact(t0, ab->den, t1);
  mpz_mul(t0, t0, t3); // a.den/g2 * b.num/g1
  return mpz_cmp(t2, t0) < 0;
}

} // namespace qorv
