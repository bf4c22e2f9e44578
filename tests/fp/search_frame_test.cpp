// Search frames and their limit queues: front insertion across blocks,
// copies, the shifted copy, pooled blocks; maximum limits, fixing (all or
// nothing) and the text form, in Float16 and in the wide (big rational)
// payload form.  Failing blocks of a pooled queue are the hardening
// scenario's.
#include "tests/common/alloc_failure.h"
#include "tests/common/host_fixture.h"

#include <gmpxx.h>

#include <string>
#include <vector>

namespace qorv::fp {
namespace {

using namespace fixture;

// Pushes positions 1..n (value i as Float32), so the front holds n.
void fill(LimitQueue& q, int n) {
  for (int i = 1; i <= n; ++i)
    q.emplace_front(i, f32(i));
}

std::vector<int> positions(LimitQueue const& q) {
  std::vector<int> out;
  for (Limit const& l : q)
    out.push_back(l.first);
  return out;
}

// Front insertion across block boundaries (8, 16, 32 slots): order by
// iteration and by index, the two ends, and limits that never move.
TEST(LimitQueue, FrontInsertionKeepsLimitsInPlace) {
  LimitQueue q;
  EXPECT_TRUE(q.empty() && q.block_count() == 0 && q.begin() == q.end());
  q.emplace_front(0, f32(0));
  Limit const* oldest = &q.back();
  fill(q, 40);
  EXPECT_TRUE(q.size() == 41u && q.block_count() == 3u && &q.back() == oldest);
  EXPECT_TRUE(q.front().first == 40 && q.back().first == 0);
  std::vector<int> const order = positions(q);
  for (std::size_t i = 0; i < q.size(); ++i) {
    ASSERT_EQ(order[i], 40 - static_cast<int>(i));
    ASSERT_EQ(q[i].first, order[i]);
    ASSERT_EQ(q[i].second.to_str(), s32(order[i]));
  }
}

// Copies are deep and keep the order; assign_shifted gives exactly what a
// copy followed by fix_limits gives, for sizes around the block edges.
TEST(LimitQueue, CopiesAndTheShiftedCopy) {
  for (int n : {0, 1, 7, 8, 9, 24, 25, 60}) {
    FpIntervalSearchFrame source;
    fill(source.limits, n);
    source.max_limit = f32(-3);
    FpIntervalSearchFrame fixed(source);
    fixed.fix_limits();
    LimitQueue shifted;
    fill(shifted, 3); // replaced
    shifted.assign_shifted(source.limits, -1, source.max_limit);
    FpIntervalSearchFrame view;
    view.limits = shifted;
    ASSERT_EQ(seen(view), seen(fixed)) << n;
    if (n == 0) continue;
    LimitQueue copy(source.limits);
    copy.front().second = f32(99);
    EXPECT_EQ(source.limits.front().second.to_str(), s32(n));
    EXPECT_EQ(positions(copy), positions(source.limits));
  }
}

// With a pool, blocks given back are reused: once warmed up, building,
// copying and dropping queues allocates nothing.
TEST(LimitQueue, PoolRecyclesBlocks) {
  LimitBlockPool pool;
  auto cycle = [&pool] {
    LimitQueue a(&pool), b(&pool);
    fill(a, 50);
    b = a;
    b.assign_shifted(a, -1, f32(1));
  };
  cycle();
  EXPECT_GT(pool.kept(), 0u);
  test::disarm_allocation_failure();
  cycle();
  EXPECT_EQ(test::allocations_seen(), 0);
}

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
// next fix_limits.  Its answer on fixed frames of every value is the
// search_candidates fuzz harness's.
TEST_F(SearchFrameTest, MaxLimitInfReadsTheFrontLimit) {
  FpIntervalSearchFrame f(true, x, h16(0x3C00));
  std::string answers;
  auto answer = [&] { answers += f.max_limit_inf() ? '1' : '0'; };
  f.set_max_limit_inf(), f.fix_limits(), answer();
  f.set_max_limit(h16(0x3C00)), answer();
  f.fix_limits(), answer();
  f.set_max_limit_inf(), answer();
  EXPECT_EQ(answers, "1100");
}

// A fix_limits that fails to allocate leaves the frame as it was; deep
// copies are the limit queue's.
TEST_F(SearchFrameTest, FixIsAllOrNothing) {
  FpIntervalSearchFrame src(false, x, wide(1));
  for (int p = 1; p <= 30; ++p)
    src.push_limit(p, wide(static_cast<unsigned long>(p)));
  Seen const before = seen(src);
  EXPECT_GE(test::each_failure([&] { src.fix_limits(); }, [&] { ASSERT_EQ(seen(src), before); }),
            2);
  EXPECT_EQ(src.limits.back().second.to_str(), before[before.size() - 2].second);
}

} // namespace
} // namespace qorv::fp
