// QNumber against GMP's own rationals in both forms: assignment, equality
// and order, including the edges of the small form.
#include "support/qnumber.h"

#include <gmock/gmock.h>
#include <gmpxx.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <numeric>
#include <optional>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace {

using qorv::QNumber;
constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();

// n/d as GMP's own rational, in the big form, and in the small form when both
// parts fit it.
struct Value {
  mpq_class q;
  QNumber big;
  std::optional<QNumber> small;
  Value(mpz_class const& n, mpz_class const& d) : q(n, d), big(n.get_mpz_t(), d.get_mpz_t()) {
    q.canonicalize();
    if (n.fits_slong_p() && d.fits_slong_p() && n != kMin && d != kMin)
      small.emplace(n.get_si(), d.get_si());
  }
};

// Order and equality of x and y, both ways, against mpq_cmp's answer c.
void expect_like_gmp(QNumber const& x, QNumber const& y, int c) {
  auto text = [](QNumber const& v) { return v.to_string() + (v.is_big() ? "(big)" : ""); };
  ASSERT_EQ(std::tuple(x < y, y < x, x == y, y == x), std::tuple(c < 0, c > 0, c == 0, c == 0))
      << text(x) << " vs " << text(y);
}

// Hand-picked values of the magnitudes the order treats differently (below
// 1024, around 2^31, near 2^62 and 2^63 - 1, beyond 64 bits), with shared
// divisors and equal or adjacent neighbours; long generated runs are the
// qnumber fuzz harness's job.
TEST(QNumber, OrderAndEqualityMatchGmpInEveryFormCombination) {
  mpz_class const z31 = mpz_class(1) << 31, z62 = mpz_class(1) << 62, z64 = mpz_class(1) << 64;
  std::pair<mpz_class, mpz_class> const parts[] = {
      {0, 1}, {1, 3}, {-1, 3}, {2, 6}, {6, 35}, {10, 21}, {1023, 1024}, {-15015, 1024},
      {z31 + 1, z31 - 1}, {z31, z31 + 1}, {-z31 * 7, 30}, {z62 + 3, 5}, {z62 + 1, 3},
      {kMax, kMax - 1}, {kMax - 1, kMax - 2}, {-kMax, 1}, {kMax, 1}, {1, kMax}, {-1, kMax},
      {z64 + 1, 3}, {z64 * 3 + 3, 9}, {-(z64 << 30), 7}, {1, z64 << 6}, {z62 * 6 + 1, z64 * 2}};
  std::vector<Value> pool;
  for (auto const& [n, d] : parts) pool.emplace_back(n, d);
  for (auto const& a : pool) {
    a.big.check_invariants();
    if (a.small) a.small->check_invariants();
    for (auto const& b : pool) {
      int const c = cmp(a.q, b.q);
      expect_like_gmp(a.big, b.big, c);
      if (a.small) expect_like_gmp(*a.small, b.big, c);
      if (a.small && b.small) expect_like_gmp(*a.small, *b.small, c);
    }
  }
  // The 64-bit cross product overflows: decided in the scratch integers.
  std::int64_t const p62 = std::int64_t{1} << 62;
  mpz_set_ui(QNumber::gmp_tmp[0], 12345);
  EXPECT_TRUE(QNumber(p62 + 3, 5) < QNumber(p62 + 1, 3));
  EXPECT_NE(mpz_cmp_ui(QNumber::gmp_tmp[0], 12345), 0) << "expected the GMP fallback";
  EXPECT_TRUE(QNumber(kMax, kMax - 1) < QNumber(kMax - 1, kMax - 2));
}

TEST(QNumber, CachedDivisorsAreStoredAlongTheEuclidChain) {
  auto& c = qorv::gcd_cache;
  c[6][10] = c[10][6] = c[35][21] = c[21][35] = c[6][4] = 0;
  EXPECT_TRUE(QNumber(6, 35) < QNumber(10, 21)); // g1 = 2, g2 = 7
  EXPECT_EQ((std::vector<std::int64_t>{c[6][10], c[10][6], c[35][21], c[21][35], c[6][4]}),
            (std::vector<std::int64_t>{2, 2, 7, 7, 0}))
      << "the chain stops at the pair just stored";
  // With x > y a miss stores the later pairs of the chain too:
  // (1000, 360) -> (360, 280) -> (280, 80) -> (80, 40).
  c[360][280] = c[280][360] = c[80][40] = c[40][80] = c[1000][360] = c[360][1000] = 0;
  EXPECT_EQ(qorv::cached_gcd(1000, 360), 40u);
  EXPECT_TRUE(c[360][280] == 40 && c[40][80] == 40);
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
  for (auto [num, den] : {std::pair{std::int64_t{5}, std::int64_t{0}}, {kMin, 3}, {3, kMin}})
    EXPECT_THAT([&] { QNumber(num, den); }, ::testing::ThrowsMessage<std::invalid_argument>(
                    ::testing::HasSubstr(std::to_string(num) + ", " + std::to_string(den))));
  QNumber const b = QNumber::from_decimal("-246913578024691357802469135782/4");
  EXPECT_TRUE(b.is_big());
  EXPECT_EQ(b.to_string(), "-123456789012345678901234567891/2");
  EXPECT_TRUE(QNumber::from_decimal("0") == QNumber() && QNumber::from_decimal("0").is_big());
  for (char const* bad : {"", "-", "1/", "/2", "1/0", "1/-2", "1.5", " 1", "1/2/3"})
    EXPECT_THROW(QNumber::from_decimal(bad), std::invalid_argument) << '"' << bad << '"';
  EXPECT_THROW(QNumber(mpz_class(1).get_mpz_t(), mpz_class(0).get_mpz_t()), std::invalid_argument);
}

// A small destination becomes big from a big source; a big one stays big.
// Copies are deep; self-assignment keeps the value.
TEST(QNumber, AssignmentAcrossForms) {
  QNumber const big = QNumber::from_decimal("-98765432109876543210987/7");
  QNumber const small(-7, 9);
  QNumber s(1, 2);
  s = small;
  EXPECT_TRUE(!s.is_big() && s == small);
  s = big;
  EXPECT_TRUE(s.is_big() && s == big && s.big_num() != big.big_num());
  s = small;
  EXPECT_TRUE(s.is_big() && s == small);
  s.check_invariants();
  QNumber t(big);
  EXPECT_TRUE(t.is_big() && t.big_num() != big.big_num());
  QNumber u(2, 3);
  QNumber const &tself = t, &uself = u;
  t = tself;
  u = uself;
  EXPECT_EQ(t.to_string() + " " + u.to_string() + " " + big.to_string(),
            "-98765432109876543210987/7 2/3 -98765432109876543210987/7");
}

} // namespace
