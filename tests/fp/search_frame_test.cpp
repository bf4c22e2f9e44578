// Search frames: limit queue, maximum limits, fixing, copies and the text
// form, in Float16 and in the wide (big rational) payload form.
#include "tests/common/alloc_failure.h"
#include "tests/common/host_fixture.h"

#include <gmpxx.h>

#include <new>
#include <string>
#include <tuple>

namespace qorv::fp {
namespace {

using namespace fixture;

IEEEFloat h16(std::uint64_t bits) {
  return IEEEFloat::from_bits(bits, half);
}
IEEEFloat wide(unsigned long hi) { // Float128 above 2^64: the big QNumber form
  return IEEEFloat::from_bits(mpz_class(mpz_class(hi) << 70).get_mpz_t(), quad);
}

struct SearchFrameTest : ::testing::Test {
  TermManager tm;
  Term const* x = tm.mk_var("x", tm.fp_sort(half));
  std::string const kNaN = h16(0x7E00).to_str(), kInf = h16(0x7C00).to_str(),
                    k1 = h16(0x3C00).to_str(), k2 = h16(0x4000).to_str(), k3 = h16(0x4200).to_str();
};

// The infinite limit is NaN under the flag, +inf without, in the value's
// format.  fix_limits on no limit, on several, and applied twice; the text
// form "S[" element [", " back value ", " back position] ", " count ", "
// counter "]" with no limit, one fixed limit (-1) and several.
TEST_F(SearchFrameTest, ConstructionPushFixAndText) {
  EXPECT_EQ(FpIntervalSearchFrame().to_str(), "S[undef, 0, 0]");
  EXPECT_EQ(FpIntervalSearchFrame(true, x, wide(3)).max_limit.get_format().sb, 113u);
  FpIntervalSearchFrame f(false, x, h16(0x3C00)), g(true, x, h16(0x4200));
  EXPECT_EQ(f.lit, TheoryLit::make(x, false));
  EXPECT_EQ(f.max_limit.to_str() + g.max_limit.to_str(), kInf + kNaN);
  EXPECT_EQ(f.to_str(), "S[x <= " + k1 + ", 0, 0]");
  f.fix_limits();
  EXPECT_EQ(seen(f), (Seen{{-1, kInf}}));
  EXPECT_EQ(f.to_str(), "S[x <= " + k1 + ", " + kInf + ", -1, 1, 0]");
  g.push_limit(12, h16(0x3C00));
  g.push_limit(5, h16(0x4000));
  EXPECT_EQ(seen(g), (Seen{{5, k2}, {12, k1}}));
  EXPECT_EQ(g.max_limit.to_str(), k2);
  g.set_max_limit(h16(0x4200));
  g.fix_limits();
  EXPECT_EQ(seen(g), (Seen{{-1, k3}, {5, k3}, {12, k2}}));
  EXPECT_EQ(g.max_limit.to_str(), k3);
  g.counter = -7;
  EXPECT_EQ(g.to_str(), "S[x >= " + k3 + ", " + k2 + ", 12, 3, -7]");
  g.fix_limits(); // not idempotent
  EXPECT_EQ(seen(g), (Seen{{-1, k3}, {-1, k3}, {5, k3}, {12, k3}}));
}

// max_limit_inf reads the front limit, not max_limit: it changes only at the
// next fix_limits.
TEST_F(SearchFrameTest, MaxLimitInfReadsTheFrontLimit) {
  // (flag, front value, answer): NaN 0x7E00, +inf 0x7C00, -inf 0xFC00.
  for (auto [flag, front, want] : {std::tuple{false, 0x7C00, true},
                                   {false, 0xFC00, false},
                                   {false, 0x7E00, false},
                                   {true, 0x7E00, true},
                                   {true, 0x7C00, false},
                                   {true, 0xFC00, false}}) {
    FpIntervalSearchFrame f(flag, x, h16(0x3C00));
    f.push_limit(4, h16(front));
    EXPECT_EQ(f.max_limit_inf(), want) << flag << " " << front;
  }
  FpIntervalSearchFrame f(true, x, h16(0x3C00));
  std::string answers;
  auto answer = [&] { answers += f.max_limit_inf() ? '1' : '0'; };
  f.set_max_limit_inf(), f.fix_limits(), answer();
  f.set_max_limit(h16(0x3C00)), answer();
  f.fix_limits(), answer();
  f.set_max_limit_inf(), answer();
  EXPECT_EQ(answers, "1100");
}

// Copies are deep; a fix_limits that fails to allocate leaves the frame as
// it was.
TEST_F(SearchFrameTest, CopiesAreDeepAndFixIsAllOrNothing) {
  FpIntervalSearchFrame src(false, x, wide(1));
  for (int p = 1; p <= 30; ++p)
    src.push_limit(p, wide(static_cast<unsigned long>(p)));
  Seen const before = seen(src);
  FpIntervalSearchFrame copy;
  copy = src;
  copy.limits.back().second = wide(99);
  copy.fix_limits();
  EXPECT_EQ(seen(src), before);
  int failures = 0;
  for (std::int64_t k = 0;; ++k, ++failures) {
    try {
      test::AllocationFailure fail(k);
      src.fix_limits();
      break;
    } catch (std::bad_alloc const&) {
      ASSERT_EQ(seen(src), before) << "failing allocation " << k;
    }
  }
  EXPECT_GE(failures, 2);
  EXPECT_EQ(src.limits.back().second.to_str(), before[before.size() - 2].second);
}

} // namespace
} // namespace qorv::fp
