#include "tests/common/alloc_failure.h"
#include "tests/common/host_fixture.h"

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
  EXPECT_EQ(q.size(), 41u);
  EXPECT_EQ(q.block_count(), 3u);
  EXPECT_EQ(&q.back(), oldest);
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
// copying and dropping queues allocates nothing.  A failing block leaves a
// queue as it was.
TEST(LimitQueue, PoolRecyclesBlocksAndFailuresLoseNothing) {
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

  LimitQueue q;
  fill(q, 8); // the front block is full
  {
    test::AllocationFailure fail(0);
    EXPECT_THROW(q.emplace_front(9, f32(9)), std::bad_alloc);
  }
  EXPECT_TRUE(q.size() == 8 && q.block_count() == 1 && q.front().first == 8);
}

} // namespace
} // namespace qorv::fp
