// The split point and packed ranks: brute force over every value of a small
// format.  The split point of every interval that decide() splits, in
// narrow and wide formats at their extremes, is checked against a rank model
// by the decide fuzz harness, whose corpus replays as a test.
#include "host/packed_order.h"
#include "host/pick_mid.h"

#include <gmpxx.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <vector>

namespace qorv {
namespace {

using format = IEEEFloat::format;
using fp::utils::pick_mid_avg;

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
  v.insert(v.begin(), IEEEFloat::nan(f));
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
  EXPECT_THROW(pick_mid_avg(v[0], IEEEFloat::nan({8, 24})), std::invalid_argument);
}

} // namespace
} // namespace qorv
