#include "fp/interval_heuristics.h"
#include "support/alloc_failure.h"

#include <gmpxx.h>
#include <gtest/gtest.h>

#include <new>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace qorv::fp {
namespace {

using Seen = std::vector<std::pair<int, std::string>>; // limits, front first
Seen seen(FpIntervalSearchFrame const& f) {
  Seen out;
  for (auto const& [p, v] : f.limits) out.emplace_back(p, v.to_str());
  return out;
}
IEEEFloat h16(std::uint64_t bits) { return IEEEFloat::from_bits(bits, {5, 11}); }
IEEEFloat wide(unsigned long hi) { // Float128 above 2^64: the big QNumber form
  return IEEEFloat::from_bits(mpz_class(mpz_class(hi) << 70).get_mpz_t(), {15, 113});
}
struct SearchFrameTest : ::testing::Test {
  TermManager tm;
  Term const* x = tm.mk_var("x", tm.fp_sort(5, 11));
  std::string const kNaN = h16(0x7E00).to_str(), kInf = h16(0x7C00).to_str(),
                    k1 = h16(0x3C00).to_str(), k2 = h16(0x4000).to_str(), k3 = h16(0x4200).to_str();
};

TEST_F(SearchFrameTest, ConstructionPushAndFix) {
  FpIntervalSearchFrame none;
  EXPECT_EQ(none.lit, tlit_Undef);
  EXPECT_TRUE(none.limits.empty());
  EXPECT_EQ(FpIntervalSearchFrame(true, x, h16(0)).max_limit.to_str(), kNaN);
  EXPECT_EQ(FpIntervalSearchFrame(true, x, wide(3)).max_limit.get_format().sb, 113u);

  FpIntervalSearchFrame f(false, x, h16(0x4200));
  EXPECT_EQ(f.lit, TheoryLit::make(x, false));
  EXPECT_EQ(f.max_limit.to_str(), kInf);
  EXPECT_EQ(f.counter, 0);
  FpIntervalSearchFrame g = f;
  f.fix_limits();
  EXPECT_EQ(seen(f), (Seen{{-1, kInf}}));

  g.push_limit(5, h16(0x3C00));
  g.push_limit(3, h16(0x4000));
  EXPECT_EQ(seen(g), (Seen{{3, k2}, {5, k1}}));
  EXPECT_EQ(g.max_limit.to_str(), k2);
  g.set_max_limit(h16(0x4200));
  g.fix_limits();
  EXPECT_EQ(seen(g), (Seen{{-1, k3}, {3, k3}, {5, k2}}));
  EXPECT_EQ(g.max_limit.to_str(), k3);
  g.fix_limits(); // not idempotent
  EXPECT_EQ(seen(g), (Seen{{-1, k3}, {-1, k3}, {3, k3}, {5, k3}}));
}

TEST_F(SearchFrameTest, MaxLimitInfReadsTheFrontLimit) {
  // (flag, front value, answer): NaN 0x7E00, +inf 0x7C00, -inf 0xFC00.
  for (auto [flag, front, want] : {std::tuple{false, 0x7C00, true}, {false, 0xFC00, false},
                                   {false, 0x7E00, false}, {true, 0x7E00, true},
                                   {true, 0x7C00, false}, {true, 0xFC00, false}}) {
    FpIntervalSearchFrame f(flag, x, h16(0x3C00));
    f.push_limit(4, h16(front));
    EXPECT_EQ(f.max_limit_inf(), want) << flag << " " << front;
  }
  FpIntervalSearchFrame f(true, x, h16(0x3C00));
  f.set_max_limit_inf();
  f.fix_limits();
  EXPECT_TRUE(f.max_limit_inf());
  f.set_max_limit(h16(0x3C00)); // the answer changes only at the next fix
  EXPECT_TRUE(f.max_limit_inf());
  f.fix_limits();
  EXPECT_FALSE(f.max_limit_inf());
  f.set_max_limit_inf();
  EXPECT_FALSE(f.max_limit_inf());
}

TEST_F(SearchFrameTest, CopiesAreDeepAndFixIsAllOrNothing) {
  FpIntervalSearchFrame src(false, x, wide(1));
  for (int p = 1; p <= 30; ++p) src.push_limit(p, wide(static_cast<unsigned long>(p)));
  Seen const before = seen(src);
  FpIntervalSearchFrame copy;
  copy = src;
  copy.limits.back().second = wide(99);
  copy.fix_limits();
  EXPECT_EQ(seen(src), before);

  int failures = 0;
  for (std::int64_t k = 0;; ++k) {
    try {
      test::AllocationFailure fail(k);
      src.fix_limits();
      break;
    } catch (std::bad_alloc const&) {
      ++failures;
      ASSERT_EQ(seen(src), before) << "failing allocation " << k;
    }
  }
  EXPECT_GE(failures, 2);
  EXPECT_EQ(src.limits.back().second.to_str(), before[before.size() - 2].second);
}

TEST_F(SearchFrameTest, TextForm) {
  FpIntervalSearchFrame f(false, x, h16(0x3C00));
  EXPECT_EQ(f.to_str(), "S[x <= " + k1 + ", 0, 0]");
  f.fix_limits();
  EXPECT_EQ(f.to_str(), "S[x <= " + k1 + ", " + kInf + ", -1, 1, 0]");
  FpIntervalSearchFrame g(true, x, h16(0x4200));
  g.push_limit(12, h16(0x4200));
  g.push_limit(5, h16(0x4000));
  g.set_max_limit(h16(0x3C00)); // the front limit differs from the back one
  g.fix_limits();
  g.counter = -7;
  EXPECT_EQ(g.to_str(), "S[x >= " + k3 + ", " + k2 + ", 12, 3, -7]");
  EXPECT_EQ(FpIntervalSearchFrame().to_str(), "S[undef, 0, 0]");
}

} // namespace
} // namespace qorv::fp
