// Allocation failure at every point of complete scenarios.
//
// Each scenario runs once per k with the k-th allocation (malloc or operator
// new) failing, until a run completes without the failure firing.  The step
// that meets the failure must raise std::bad_alloc and leave its object with
// its invariants and the contents it promises; the scenario then retries
// the step and runs to the end, whose state must equal a run without
// failures; destruction must free everything (LeakSanitizer in the sanitizer
// build, memcheck under valgrind).  Each test prints its failure points.
#include "fp/interval_heuristics.h"
#include "host/packed_order.h"
#include "support/hashtable.h"
#include "support/memory_pool.h"
#include "support/qnumber.h"
#include "tests/common/alloc_failure.h"
#include "tests/common/host_fixture.h"

#include <gmpxx.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <new>
#include <string>
#include <tuple>
#include <vector>

namespace qorv {
namespace {

// The countdown of the current run: its k, and the allocations it counted
// before the last pause (-1: not armed).
std::int64_t armed_k = -1;
std::int64_t counted = 0;

// Runs the scenario's own bookkeeping (copies kept for comparison) with the
// countdown paused, so that only the operations under test meet the failure.
template <class F>
void unarmed(F f) {
  if (armed_k < 0 || test::allocation_failure_fired()) return f();
  counted += test::allocations_seen();
  test::disarm_allocation_failure();
  f();
  test::fail_allocation_after(armed_k - counted);
}

// What a run observed (note()), compared with the observations of a run
// without failures.
std::vector<std::string> notes;
template <class F>
void note(F make) {
  unarmed([&] { notes.push_back(::testing::PrintToString(make())); });
}

// Runs scenario(arm) once without failures, then for k = 0, 1, ...; the
// scenario prepares its objects, calls arm() to start the countdown, and runs
// its steps.  Every run must note what the run without failures noted.
// Returns the number of runs in which the failure fired.
int failure_points(char const* name,
                   std::function<void(std::function<void()> const& arm)> const& scenario) {
  notes.clear();
  scenario([] {});
  std::vector<std::string> const reference = notes;
  int points = 0;
  for (std::int64_t k = 0;; ++k, ++points) {
    notes.clear();
    scenario([k] { armed_k = k, counted = 0, test::fail_allocation_after(k); });
    bool const fired = test::allocation_failure_fired();
    test::disarm_allocation_failure();
    armed_k = -1;
    EXPECT_EQ(notes, reference) << name << ", failing allocation " << k;
    if (!fired) break;
  }
  std::printf("[ failures ] %s: %d failure points, nothing lost\n", name, points);
  ::testing::Test::RecordProperty("failure_points", points);
  return points;
}

// Runs op; if the injected failure interrupts it, checks that it came out as
// std::bad_alloc, runs `intact` on the object, and runs op again.
template <class Op, class Intact>
void step(Op op, Intact intact) {
  try {
    return op();
  } catch (std::bad_alloc const&) {
    ASSERT_TRUE(test::allocation_failure_fired()) << "bad_alloc without an injected failure";
  }
  intact();
  op();
}

TEST(AllocationFailure, PoolGrowth) {
  int const points = failure_points("pool growth", [](auto const& arm) {
    MemoryPool<24> pool(4, 2.0f, 64);
    std::vector<std::uint64_t*> blocks;
    blocks.reserve(300);
    arm();
    auto state = [&] {
      pool.check_invariants();
      return std::tuple(pool.chunk_count(), pool.next_chunk_size(), pool.free_count(),
                        static_cast<void const*>(pool.free_list()));
    };
    for (std::uint64_t i = 0; i < 300; ++i) {
      auto const before = state();
      step([&] { blocks.push_back(static_cast<std::uint64_t*>(pool.allocate())); },
           [&] { EXPECT_EQ(state(), before); }); // exactly as before
      *blocks.back() = i;
      if (i % 7 == 0) pool.release(blocks.back()), blocks.pop_back(); // reused first
    }
    pool.check_invariants();
    for (std::size_t j = 0; j < blocks.size(); ++j)
      ASSERT_EQ(*blocks[j], j + j / 6 + 1) << "block " << j;
  });
  EXPECT_EQ(points, 8); // chunks of 4, 8, 16, 32, 64, 64, 64, 64 blocks
}

TEST(AllocationFailure, HashInsertionsWithRehashAndClear) {
  using Map = hsh::HashMap<std::uint64_t, std::string>;
  std::vector<std::pair<std::uint64_t, std::string>> items; // heap-allocated values
  for (std::uint64_t k = 0; k < 240; ++k)
    items.emplace_back(k * 7919, std::string(24 + k % 9, static_cast<char>('a' + k % 26)));
  int const points = failure_points("hash insertions with rehash, clear", [&](auto const& arm) {
    Map m;
    std::vector<std::string const*> where(items.size(), nullptr);
    auto insert = [&](std::size_t k) {
      std::uint64_t const size = m.size(), buckets = m.bucket_count();
      step([&] { m.insert(items[k]); },
           [&] { // not linked: the same entries at the same addresses
             m.check_invariants();
             EXPECT_TRUE(m.size() == size && !m.contains(items[k].first) &&
                         m.bucket_count() >= buckets);
             for (std::size_t j = 0; j < items.size(); ++j)
               if (j != k && where[j]) {
                 ASSERT_EQ(&m.find(items[j].first)->second, where[j]);
               }
           });
      where[k] = &m.find(items[k].first)->second;
    };
    arm();
    for (std::size_t k = 0; k < items.size(); ++k) {
      insert(k);
      if (k == 120) { // a fresh bucket array may fail: the table is empty anyway
        step([&] { m.clear(true); },
             [&] {
               m.check_invariants();
               EXPECT_TRUE(m.empty());
             });
        EXPECT_TRUE(m.empty());
        std::fill(where.begin(), where.end(), nullptr);
        for (std::size_t j = 0; j <= k; ++j)
          insert(j);
      }
    }
    m.check_invariants();
    ASSERT_EQ(m.size(), items.size());
    for (std::size_t k = 0; k < items.size(); ++k)
      ASSERT_EQ(m.find(items[k].first)->second, items[k].second);
    m.clear(false); // allocates nothing
  });
  EXPECT_GT(points, 360); // every value copy, every chunk, every bucket array
}

TEST(AllocationFailure, RationalAssignmentIntoBigForm) {
  mpz_class const huge = mpz_class(1) << 200;
  int const points = failure_points("rational assignment into the big form", [&](auto const& arm) {
    std::vector<QNumber> small{QNumber(3, 4), QNumber(-5, 1), QNumber()};
    QNumber const big(mpz_class(huge + 1).get_mpz_t(), huge.get_mpz_t());
    QNumber const big_small(mpz_class(7).get_mpz_t(), mpz_class(2).get_mpz_t());
    std::vector<QNumber> const before = small;
    QNumber copy = big;
    arm();
    for (std::size_t i = 0; i < small.size(); ++i) {
      QNumber const& src = i == 1 ? big_small : big;
      step([&] { small[i] = src; },
           [&] { // a failed assignment changes nothing
             small[i].check_invariants();
             EXPECT_TRUE(!small[i].is_big() && small[i] == before[i]);
           });
      EXPECT_TRUE(small[i].is_big() && small[i] == src);
    }
    // Copying a big number allocates its block; the destination keeps its value.
    step([&] { copy = QNumber(small[1]); }, [&] { EXPECT_EQ(copy, big); });
    EXPECT_EQ(copy, big_small);
  });
  EXPECT_EQ(points, 4); // three blocks made by assignment, one by a copy
}

// Limit queues drawing on a pool, with wide values (every copy allocates):
// a failed insertion leaves the queue as it was, a failed copy leaves the
// destination empty, and every block ends in the pool or is freed.
TEST(AllocationFailure, LimitQueueWithPool) {
  auto wide = [](unsigned long i) {
    return IEEEFloat::from_bits(mpz_class(mpz_class(i) << 90).get_mpz_t(), {15, 113});
  };
  auto text = [](fp::LimitQueue const& q) {
    std::string out;
    for (fp::Limit const& l : q)
      out += std::to_string(l.first) + l.second.to_str();
    return out;
  };
  int const points = failure_points("limit queue with a pool", [&](auto const& arm) {
    fp::LimitBlockPool pool;
    fp::LimitQueue a(&pool), b(&pool);
    IEEEFloat const front = wide(7);
    arm();
    for (int i = 1; i <= 20; ++i) {
      std::size_t const size = a.size();
      fp::Limit const* first = size ? &a.front() : nullptr;
      step([&] { a.emplace_front(i, wide(static_cast<unsigned long>(i))); },
           [&] { EXPECT_TRUE(a.size() == size && (!size || &a.front() == first)); });
      if (i % 9 == 0) {
        step([&] { b = a; }, [&] { EXPECT_TRUE(b.empty()); });
        step([&] { b.assign_shifted(a, -1, front); }, [&] { EXPECT_TRUE(b.empty()); });
        note([&] { return text(b); });
      }
    }
    note([&] { return text(a); });
  });
  EXPECT_GT(points, 50);
}

// A small search host: wide and narrow variables, decisions asserted on the
// trail until every interval is a single value.
struct SearchHost : fp::fixture::Host {
  FpDecDepManager manager;
  fp::FpIntervalDecisionHeuristic decision{domain, trail, manager};
  fp::FpIntervalChoiceHeuristic choice{domain, trail};
  FpValueElement element;

  SearchHost() {
    IEEEFloat::format const formats[] = {{15, 113}, {5, 11}, {8, 24}, {3, 3}};
    for (int i = 0; i < 44; ++i) { // enough terms to grow the trail's map twice
      Term const* t = var(formats[i % 4]);
      manager.terms.push_back(t);
      if (i % 3 != 2) element.terms.insert(t);
    }
    manager.split = 24;
  }
};

// 44 NaN decisions, then splits down to single values of the small formats;
// on a compacting trail each decision starts a level and the view is brought
// up to date first, both under failure injection too.
void decide_run(bool compact) {
  int const points = failure_points("decide()", [&](auto const& arm) {
    SearchHost h;
    if (compact) h.trail.enable_compaction(&h.domain);
    arm();
    for (int i = 0; i < 100; ++i) {
      if (compact) {
        step([&] { h.trail.update_view(h.manager.terms); }, [&] { h.trail.check_invariants(); });
        unarmed([&] { h.trail.mark(); });
      }
      FpBoundElement last;
      unarmed([&] { last = h.decision.last_decision(); });
      std::uint64_t const live = h.domain.live_elements();
      FpBoundElement* e = nullptr;
      step([&] { e = h.decision.decide(); },
           [&] { // no element stranded, the last decision kept
             h.trail.check_invariants();
             EXPECT_EQ(h.domain.live_elements(), live);
             EXPECT_TRUE(h.decision.last_decision().lit == last.lit &&
                         payload_equal(h.decision.last_decision().value, last.value));
           });
      ASSERT_FALSE(h.domain.is_no_decision(e));
      std::size_t const length = h.trail.size();
      step([&] { h.trail.assert_bound(e); },
           [&] {
             h.trail.check_invariants();
             EXPECT_EQ(h.trail.size(), length);
           });
      // A failed split may have drawn already, so only the NaN decisions must
      // repeat the reference exactly.
      if (i < 44) note([&] { return e->value.to_str(); });
    }
    unarmed([&] { h.trail.check_invariants(); });
  });
  EXPECT_GT(points, 100);
}

TEST(AllocationFailure, Decide) {
  decide_run(false);
}

TEST(AllocationFailure, DecideOnCompactingTrail) {
  decide_run(true);
}

TEST(AllocationFailure, SearchCandidates) {
  int const points = failure_points("get_search_candidates()", [&](auto const& arm) {
    SearchHost h;
    for (int i = 0; i < 70; ++i)
      h.trail.assert_bound(h.decision.decide());
    arm();
    for (std::size_t call = 0; call < 3; ++call) {
      h.choice.trail_mark = std::uint64_t{30} * call;
      step([&] { h.choice.get_search_candidates(h.element); },
           [&] { // partly built, but consistent
             h.choice.frames_by_lit.check_invariants();
             h.choice.lits_with_max_limit.check_invariants();
           });
      note([&] { // sorted: the order follows the addresses of the terms
        std::vector<std::string> out;
        for (auto const& f : h.choice.search_candidates)
          out.push_back(f.to_str());
        std::sort(out.begin(), out.end());
        return out;
      });
    }
  });
  EXPECT_GT(points, 50);
}

} // namespace
} // namespace qorv
