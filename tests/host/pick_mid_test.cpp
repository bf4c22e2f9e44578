// The split point and packed ranks: brute force over every value of a small
// format, the 128-bit path against the GMP path, and bisection depth.
#include "host/pick_mid.h"
#include "support/packed_order.h"

#include <gmpxx.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <stdexcept>
#include <vector>

namespace qorv {
namespace {

using format = IEEEFloat::format;
using fp::utils::pick_mid_avg;

bool less(IEEEFloat const& a, IEEEFloat const& b) {
  return IEEEFloat::Packed{&a} < IEEEFloat::Packed{&b};
}

IEEEFloat nan_of(format f) {
  IEEEFloat x(f, IEEEFloat::rm_nearest_even);
  x.self_nan();
  return x;
}

// Every value of (3, 5) in ascending order, sorted as hardware doubles rather
// than by the packed order: the quiet NaN, then -inf ... -0, +0 ... +inf.  The
// value at position i must have rank i - 114 (the position of +0).
TEST(PickMid, SmallFormatAgainstSortedValues) {
  format const f{3, 5};
  std::vector<IEEEFloat> v;
  for (std::uint64_t p = 0; p < 256; ++p)
    if (!IEEEFloat::from_bits(p, f).is_nan()) v.push_back(IEEEFloat::from_bits(p, f));
  std::sort(v.begin(), v.end(), [](IEEEFloat const& a, IEEEFloat const& b) {
    double const x = a.to_double(), y = b.to_double();
    return x < y || (x == y && std::signbit(x) && !std::signbit(y));
  });
  v.insert(v.begin(), nan_of(f));
  ASSERT_TRUE(v[114].is_zero() && !v[114].get_sign());
  mpz_class r;
  for (std::size_t i = 0; i < v.size(); ++i) {
    packed_rank(v[i], r.get_mpz_t());
    EXPECT_EQ(r.get_si(), static_cast<long>(i) - 114);
    EXPECT_TRUE(payload_equal(from_packed_rank(r.get_mpz_t(), f), v[i]));
    EXPECT_TRUE(payload_equal(next_above(v[i]), v[std::min(i + 1, v.size() - 1)]));
    EXPECT_TRUE(payload_equal(next_below(v[i]), v[i == 0 ? 0 : i - 1]));
    for (std::size_t j = i; j < v.size(); ++j) {
      EXPECT_TRUE(payload_equal(pick_mid_avg(v[i], v[j]), v[(i + j) / 2])) << i << " " << j;
      EXPECT_TRUE(payload_equal(pick_mid_avg(v[j], v[i]), v[(i + j) / 2])) << i << " " << j;
    }
  }
  // Any NaN pattern ranks as the NaN end; NaN and NaN give the quiet NaN.
  IEEEFloat const neg_nan = IEEEFloat::from_bits(std::uint64_t{0xff}, f);
  EXPECT_TRUE(payload_equal(pick_mid_avg(neg_nan, neg_nan), v[0]));
  EXPECT_TRUE(payload_equal(pick_mid_avg(neg_nan, v.back()), v[(v.size() - 1) / 2]));
  EXPECT_THROW(pick_mid_avg(v[0], nan_of({8, 24})), std::invalid_argument);
}

// The 128-bit path of 64-bit formats computes the same split as the GMP path,
// also at the extremes where a sum of ranks needs 66 bits.
TEST(PickMid, NarrowPathMatchesExactRanks) {
  std::mt19937_64 rng(42);
  mpz_class a, b;
  for (int i = 0; i < 5000; ++i) {
    IEEEFloat const x = IEEEFloat::from_bits(i % 3 ? rng() : ~std::uint64_t{0} >> 1, {11, 53});
    IEEEFloat const y = IEEEFloat::from_bits(i % 2 ? rng() : ~std::uint64_t{0} >> 12, {11, 53});
    packed_rank(x, a.get_mpz_t());
    packed_rank(y, b.get_mpz_t());
    a = (a + b) >> 1; // floor
    EXPECT_TRUE(payload_equal(pick_mid_avg(x, y), from_packed_rank(a.get_mpz_t(), {11, 53})));
  }
}

// Bisection from [NaN, +inf] pins any target within about one split per bit,
// and every split point lies inside its interval.
TEST(PickMid, BisectionReachesEveryTarget) {
  std::mt19937_64 rng(1);
  for (format f : {format{11, 53}, format{15, 113}, format{15, 500}}) {
    std::uint64_t const w = f.eb + f.sb;
    IEEEFloat inf(f, IEEEFloat::rm_nearest_even);
    inf.self_inf(false);
    mpz_class p;
    for (int i = 0; i < 40; ++i) {
      p = 0;
      for (std::uint64_t bit = 0; bit < w; ++bit)
        if (rng() & 1) mpz_setbit(p.get_mpz_t(), bit);
      if (i % 4 == 0) p >>= w - 2; // +0 and tiny subnormals
      IEEEFloat const t = IEEEFloat::from_bits(p.get_mpz_t(), f);
      IEEEFloat const target = i == 0 ? inf : i == 1 || t.is_nan() ? nan_of(f) : t;
      IEEEFloat lo = nan_of(f), hi = inf;
      std::uint64_t steps = 0;
      for (; !payload_equal(lo, hi) && steps <= w + 1; ++steps) {
        IEEEFloat const mid = pick_mid_avg(lo, hi);
        ASSERT_FALSE(less(mid, lo) || less(hi, mid)) << mid.to_str();
        bool const below = less(mid, target);
        (below ? lo : hi) = below ? next_above(mid) : mid;
      }
      EXPECT_LE(steps, w + 1);
      EXPECT_TRUE(payload_equal(lo, target)) << target.to_str();
    }
  }
}

} // namespace
} // namespace qorv
