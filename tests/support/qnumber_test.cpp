#include "support/qnumber.h"

#include "support/alloc_failure.h"

#include <gmp.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <limits>
#include <new>
#include <numeric>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>

namespace {

using qorv::QNumber;
constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();

struct Z {
  mpz_t z;
  Z() { mpz_init(z); }
  Z(Z const&) = delete;
  Z& operator=(Z const&) = delete;
  ~Z() { mpz_clear(z); }
};

// n/d as GMP's own rational, in the big form, and in the small form when both
// parts fit it.
struct Value {
  mpq_t q;
  QNumber big;
  std::optional<QNumber> small;
  Value(mpz_srcptr n, mpz_srcptr d) : big(n, d) {
    mpq_init(q);
    mpq_set_num(q, n);
    mpq_set_den(q, d);
    mpq_canonicalize(q);
    if (mpz_fits_slong_p(n) && mpz_fits_slong_p(d) && mpz_cmp_si(n, kMin) && mpz_cmp_si(d, kMin))
      small.emplace(mpz_get_si(n), mpz_get_si(d));
  }
  Value(Value const&) = delete;
  Value& operator=(Value const&) = delete;
  ~Value() { mpq_clear(q); }
};

// Order and equality of x and y, both ways, against mpq_cmp / mpq_equal.
void expect_like_gmp(QNumber const& x, mpq_srcptr qx, QNumber const& y, mpq_srcptr qy) {
  int const c = mpq_cmp(qx, qy);
  bool const eq = mpq_equal(qx, qy) != 0;
  std::string const xy =
      x.to_string() + (x.is_big() ? "(big) " : " ") + y.to_string() + (y.is_big() ? "(big)" : "");
  ASSERT_EQ(x < y, c < 0) << xy;
  ASSERT_EQ(y<x, c> 0) << xy;
  ASSERT_EQ(x == y, eq) << xy;
  ASSERT_EQ(y == x, eq) << xy;
}

TEST(QNumber, OrderAndEqualityMatchGmpInEveryFormCombination) {
  std::mt19937_64 rng(20240611);
  auto pick = [&](std::uint64_t n) { return static_cast<std::int64_t>(rng() % n); };
  // Parts of the magnitudes the order treats differently (below 1024, around
  // 2^31, near 2^62 and 2^63 - 1, anywhere), times a common factor so that
  // the divisors of numerators and of denominators are often above 1.
  auto part = [&](bool positive) {
    static constexpr std::int64_t factors[] = {1, 1, 2, 3, 6, 7, 30, 1024, 15015};
    std::int64_t const kinds[] = {pick(1024), (std::int64_t{1} << 31) + pick(17) - 8,
                                  (std::int64_t{1} << 62) + pick(17) - 8, kMax - pick(17),
                                  static_cast<std::int64_t>(rng() >> (1 + pick(63)))};
    std::int64_t v = kinds[pick(5)], f = factors[pick(9)];
    if (v <= kMax / f) v *= f;
    return positive ? (v == 0 ? 1 : v) : (pick(2) ? -v : v);
  };
  std::deque<Value> pool;
  Z n, d;
  for (int i = 0; i < 120; ++i) {
    mpz_set_si(n.z, part(false));
    mpz_set_si(d.z, pick(4) == 0 ? 1 : part(true));
    if (pick(4) == 0) { // parts beyond 64 bits
      mpz_mul_2exp(n.z, n.z, 64 + pick(40));
      mpz_add_ui(n.z, n.z, static_cast<unsigned long>(pick(1000)));
      if (pick(2)) mpz_mul_2exp(d.z, d.z, 70);
    }
    pool.emplace_back(n.z, d.z);
  }
  // Equal or adjacent values: (num * k + {-1, 0, 1}) / (den * k).
  for (int i = 0; i < 60; ++i) {
    long const k = 1 + pick(7);
    mpz_mul_si(n.z, mpq_numref(pool[static_cast<std::size_t>(i)].q), k);
    mpz_mul_si(d.z, mpq_denref(pool[static_cast<std::size_t>(i)].q), k);
    mpz_add_ui(n.z, n.z, static_cast<unsigned long>(pick(3)));
    mpz_sub_ui(n.z, n.z, 1);
    pool.emplace_back(n.z, d.z);
  }
  for (auto const& a : pool) {
    a.big.check_invariants();
    if (a.small) a.small->check_invariants();
    for (auto const& b : pool) {
      expect_like_gmp(a.big, a.q, b.big, b.q);
      if (a.small) expect_like_gmp(*a.small, a.q, b.big, b.q);
      if (a.small && b.small) expect_like_gmp(*a.small, a.q, *b.small, b.q);
    }
  }
}

TEST(QNumber, OrderEdgeCases) {
  QNumber zero, half(1, 2), neg_half(-1, 2);
  EXPECT_FALSE(zero < zero);
  EXPECT_TRUE(neg_half < zero);
  EXPECT_FALSE(zero < neg_half);
  EXPECT_TRUE(QNumber(3, 1) < QNumber(5, 1));

  // The 64-bit cross product overflows: decided in the scratch integers.
  std::int64_t const p62 = std::int64_t{1} << 62;
  mpz_set_ui(QNumber::gmp_tmp[0], 12345);
  EXPECT_FALSE(QNumber(p62 + 1, 3) < QNumber(p62 + 3, 5));
  EXPECT_NE(mpz_cmp_ui(QNumber::gmp_tmp[0], 12345), 0) << "expected the GMP fallback";
  EXPECT_TRUE(QNumber(p62 + 3, 5) < QNumber(p62 + 1, 3));
  EXPECT_TRUE(QNumber(kMax, kMax - 1) < QNumber(kMax - 1, kMax - 2));

  // Forms differ, values equal: equal and unordered both ways.
  QNumber const big_half = QNumber::from_decimal("1/2");
  ASSERT_TRUE(big_half.is_big());
  EXPECT_TRUE(big_half == half && half == big_half);
  EXPECT_FALSE(big_half < half || half < big_half);
  EXPECT_FALSE(big_half == QNumber(1, 3) || QNumber(1, 3) == big_half);
  EXPECT_FALSE(QNumber::from_decimal("1/3") == big_half);
  EXPECT_TRUE(zero < QNumber::from_decimal("1/99999999999999999999"));
  EXPECT_FALSE(zero < QNumber::from_decimal("0"));
}

TEST(QNumber, CachedDivisorsAreStoredAlongTheEuclidChain) {
  auto& c = qorv::gcd_cache;
  c[6][10] = c[10][6] = c[35][21] = c[21][35] = c[6][4] = 0;
  EXPECT_TRUE(QNumber(6, 35) < QNumber(10, 21)); // g1 = 2, g2 = 7
  EXPECT_EQ(c[6][10], 2);
  EXPECT_EQ(c[10][6], 2);
  EXPECT_EQ(c[35][21], 7);
  EXPECT_EQ(c[21][35], 7);
  EXPECT_EQ(c[6][4], 0) << "the chain stops at the pair just stored";

  // With x > y a miss stores the later pairs of the chain too:
  // (1000, 360) -> (360, 280) -> (280, 80) -> (80, 40).
  c[360][280] = c[280][360] = c[80][40] = c[40][80] = c[1000][360] = c[360][1000] = 0;
  EXPECT_EQ(qorv::cached_gcd(1000, 360), 40u);
  EXPECT_EQ(c[360][280], 40);
  EXPECT_EQ(c[40][80], 40);
  EXPECT_EQ(qorv::cached_gcd(5000, 1500), 500u); // beyond the table
  EXPECT_EQ(qorv::cached_gcd(7, 0), 7u);

  // Every entry filled so far by this program's tests is right.
  int wrong = 0;
  for (std::uint64_t x = 0; x < 1024; ++x)
    for (std::uint64_t y = 0; y < 1024; ++y)
      wrong += c[x][y] != 0 && static_cast<std::uint64_t>(c[x][y]) != std::gcd(x, y);
  EXPECT_EQ(wrong, 0);
}

TEST(QNumber, ConstructionReducesAndRejectsBadInput) {
  EXPECT_EQ(QNumber(6, -4).to_string(), "-3/2");
  EXPECT_EQ(QNumber(0, -5).small_den(), 1);
  EXPECT_EQ(QNumber(-kMax, -kMax).to_string(), "1");
  for (auto [num, den] : {std::pair{std::int64_t{5}, std::int64_t{0}}, {kMin, 3}, {3, kMin}}) {
    try {
      QNumber q(num, den);
      ADD_FAILURE() << num << "/" << den << " accepted";
    } catch (std::invalid_argument const& e) { // the message names the parts
      EXPECT_NE(std::string(e.what()).find(std::to_string(num) + ", " + std::to_string(den)),
                std::string::npos)
          << e.what();
    }
  }

  QNumber const b = QNumber::from_decimal("-246913578024691357802469135782/4");
  EXPECT_TRUE(b.is_big());
  EXPECT_EQ(b.to_string(), "-123456789012345678901234567891/2");
  for (char const* bad : {"", "-", "1/", "/2", "1/0", "1/-2", "1.5", " 1", "1/2/3"})
    EXPECT_THROW(QNumber::from_decimal(bad), std::invalid_argument) << '"' << bad << '"';
  Z one, zero;
  mpz_set_ui(one.z, 1);
  EXPECT_THROW(QNumber(one.z, zero.z), std::invalid_argument);
}

TEST(QNumber, AssignmentAcrossForms) {
  QNumber const big = QNumber::from_decimal("-98765432109876543210987/7");
  QNumber const small(-7, 9);
  auto other_block = [](QNumber const& x, QNumber const& y) {
    return static_cast<void const*>(x.big_num()) != static_cast<void const*>(y.big_num());
  };
  QNumber s(1, 2);
  s = small;
  EXPECT_TRUE(!s.is_big() && s == small);
  s = big; // small <- big: becomes big, with its own block
  EXPECT_TRUE(s.is_big() && s == big && other_block(s, big));
  s = small; // big <- small: stays big
  EXPECT_TRUE(s.is_big() && s == small);
  EXPECT_EQ(big.to_string(), "-98765432109876543210987/7");
  s.check_invariants();

  QNumber t(big); // copies keep the form, deeply
  EXPECT_TRUE(t.is_big() && other_block(t, big));
  QNumber u(2, 3);
  QNumber const &tself = t, &uself = u;
  t = tself;
  u = uself;
  EXPECT_EQ(t.to_string() + " " + u.to_string(), "-98765432109876543210987/7 2/3");
}

TEST(QNumber, AllocationFailureWhileBecomingBigPropagates) {
  QNumber const big = QNumber::from_decimal("123456789012345678901234567891/7");
  QNumber dst(3, 4);
  bool threw = false;
  {
    qorv::test::AllocationFailure guard(0);
    try {
      dst = big;
    } catch (std::bad_alloc const&) {
      threw = true;
    }
  }
  EXPECT_TRUE(threw);
  EXPECT_EQ(dst.to_string(), "3/4"); // unchanged and destroyable
  dst.check_invariants();
  dst = big;
  EXPECT_TRUE(dst == big);
}

} // namespace
