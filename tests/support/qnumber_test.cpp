// QNumber: the divisor cache's contents, construction and its errors.  Order,
// equality and assignment against GMP, in every form combination and at the
// edges of the small form, are the qnumber fuzz harness's: its corpus
// (fuzz/corpus/qnumber, hand-picked-* among them) replays as a test.
#include "support/qnumber.h"

#include <gmock/gmock.h>
#include <gmpxx.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <numeric>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using qorv::QNumber;
constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();

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

// Reduction and order of constructed values are the qnumber harness's; the
// messages and the decimal form are not.
TEST(QNumber, ConstructionRejectsBadInput) {
  for (auto [num, den] : {std::pair{std::int64_t{5}, std::int64_t{0}}, {kMin, 3}, {3, kMin}})
    EXPECT_THAT([&] { QNumber(num, den); },
                ::testing::ThrowsMessage<std::invalid_argument>(
                    ::testing::HasSubstr(std::to_string(num) + ", " + std::to_string(den))));
  QNumber const b = QNumber::from_decimal("-246913578024691357802469135782/4");
  EXPECT_TRUE(b.is_big() && b.to_string() == "-123456789012345678901234567891/2");
  EXPECT_TRUE(QNumber::from_decimal("0") == QNumber() && QNumber::from_decimal("0").is_big());
  for (char const* bad : {"", "-", "1/", "/2", "1/0", "1/-2", "1.5", " 1", "1/2/3"})
    EXPECT_THROW(QNumber::from_decimal(bad), std::invalid_argument) << '"' << bad << '"';
  EXPECT_THROW(QNumber(mpz_class(1).get_mpz_t(), mpz_class(0).get_mpz_t()), std::invalid_argument);
}

} // namespace
