#include "fp/interval_heuristics.h"
#include "host/pick_mid.h"
#include "support/alloc_failure.h"

#include <gmpxx.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <new>
#include <string>
#include <vector>

namespace qorv::fp {
namespace {

std::uint64_t lcg(std::uint64_t s) { return (s * 0x5DEECE66DULL + 11) & ((1ULL << 48) - 1); }
IEEEFloat inf(IEEEFloat::format f, bool negative) {
  IEEEFloat v(f, IEEEFloat::rm_nearest_even);
  v.self_inf(negative);
  return v;
}
IEEEFloat f32(double d) { return IEEEFloat::from_double(d, {8, 24}); }
constexpr IEEEFloat::format quad{15, 113};

struct DecisionHeuristicTest : ::testing::Test {
  TermManager tm;
  FpIntervalDomain domain;
  FpBoundsTrail trail{&tm};
  FpDecDepManager manager;
  FpIntervalDecisionHeuristic h{domain, trail, manager};
  std::vector<FpBoundElement*> made;

  ~DecisionHeuristicTest() override {
    for (FpBoundElement* e : made) domain.release_FpBoundElement(e);
    trail.backtrack(0, &domain);
    EXPECT_EQ(domain.live_elements(), 0u);
  }
  // n variables appended to the term list, all in the first segment; with
  // open = false their intervals exclude NaN.
  std::vector<Term const*> vars(int n, IEEEFloat::format f = {8, 24}, bool open = true) {
    std::vector<Term const*> out;
    for (int i = 0; i < n; ++i) {
      out.push_back(tm.mk_var("v" + std::to_string(tm.term_count()), tm.fp_sort(f)));
      if (!open) set(out.back(), inf(f, true), inf(f, false));
    }
    manager.terms.insert(manager.terms.end(), out.begin(), out.end());
    manager.split = manager.terms.size();
    return out;
  }
  void set(Term const* t, IEEEFloat const& lo, IEEEFloat const& hi) {
    FpValueInterval& iv = trail.interval(t);
    iv.lower_ends.back() = lo;
    iv.upper_ends.back() = hi;
  }
  FpBoundElement* decide(FpIntervalDecisionHeuristic* other = nullptr) {
    FpBoundElement* e = (other ? other : &h)->decide();
    if (!domain.is_no_decision(e)) made.push_back(e);
    return e;
  }
};

TEST_F(DecisionHeuristicTest, DrawsThenWalksRoundRobin) {
  auto ts = vars(5, {8, 24}, false);
  FpBoundElement* e = decide();
  EXPECT_EQ(lcg(42), 0xF692DDCDEDu);
  EXPECT_EQ(e->lit, TheoryLit::make(ts[3], true)); // 16159453 % 5, then bit 16 set
  EXPECT_TRUE(payload_equal(e->value, utils::pick_mid_avg(inf({8, 24}, true), inf({8, 24}, false))));
  EXPECT_EQ(h.generator_state(), lcg(lcg(42)));
  EXPECT_EQ(h.last_decision().lit, e->lit);
  EXPECT_TRUE(payload_equal(h.last_decision().value, e->value));
  for (int want : {4, 0, 1}) { // wraps after the last position
    std::uint64_t s = h.generator_state();
    EXPECT_EQ(decide()->term(), ts[want]);
    EXPECT_EQ(h.generator_state(), lcg(s)) << "round robin draws the flag only";
  }
  set(ts[1], f32(2), f32(2)); // the last decided term is no longer a candidate
  std::uint64_t s = h.generator_state();
  decide();
  EXPECT_EQ(h.generator_state(), lcg(lcg(s)));
  // ts[3] at positions 1 and 3: the decision after it is on position 2.
  manager.terms = {ts[0], ts[3], ts[2], ts[3], ts[4]};
  FpIntervalDecisionHeuristic fresh{domain, trail, manager};
  EXPECT_EQ(decide(&fresh)->term(), ts[3]);
  EXPECT_EQ(decide(&fresh)->term(), ts[2]);
}

TEST_F(DecisionHeuristicTest, NanFirstWithinTheSegmentLookedAt) {
  auto closed = vars(1, {8, 24}, false);
  auto half = vars(1, {5, 11});
  auto wide = vars(1, quad);
  for (int round = 0; round < 2; ++round) { // not asserted: the same answer again
    FpBoundElement* e = decide();
    EXPECT_EQ(e->lit, TheoryLit::make(half[0], true));
    EXPECT_TRUE(payload_equal(e->value, inf({5, 11}, true)));
  }
  trail.assert_bound(made.back());
  made.pop_back();
  FpBoundElement* e = decide();
  EXPECT_EQ(e->lit, TheoryLit::make(wide[0], true));
  EXPECT_TRUE(payload_equal(e->value, inf(quad, true)));
  EXPECT_EQ(h.last_decision().lit, e->lit);
  EXPECT_EQ(h.generator_state(), 42u);
  manager.split = 1; // the closed candidate hides the second segment
  EXPECT_EQ(decide()->term(), closed[0]);
  Term const* unseen = tm.mk_var("unseen", tm.fp_sort(8, 24));
  manager.terms.push_back(unseen);
  decide();
  EXPECT_EQ(trail.intervals.find(unseen), trail.intervals.end()) << "second segment looked at";
  manager.split = 0; // only the second segment
  EXPECT_EQ(decide()->lit, TheoryLit::make(wide[0], true));
  set(closed[0], f32(1), f32(1));
  for (std::size_t split : {std::size_t{1}, manager.terms.size() + 5}) { // first yields nothing
    manager.split = split;
    EXPECT_EQ(decide()->lit, TheoryLit::make(wide[0], true));
  }
}

TEST_F(DecisionHeuristicTest, NoCandidateGivesNoDecisionAndChangesNothing) {
  EXPECT_TRUE(domain.is_no_decision(decide())); // empty term list
  vars(1, {8, 24}, false);
  FpBoundElement* last = decide();
  manager.terms = {tm.mk_const(f32(1.5)), tm.mk_const(IEEEFloat::from_double(-2.0, quad))};
  std::uint64_t s = h.generator_state();
  for (std::size_t split : {0, 1, 2}) {
    manager.split = split;
    EXPECT_EQ(decide(), &domain.no_decision);
  }
  EXPECT_EQ(h.generator_state(), s);
  EXPECT_EQ(h.last_decision().lit, last->lit);
}

TEST_F(DecisionHeuristicTest, SingletonByPatternAndInvertedIntervalsSplit) {
  auto ts = vars(1);
  EXPECT_FALSE(h.singleton(ts[0])); // fresh
  set(ts[0], f32(-0.0), f32(0.0));
  EXPECT_FALSE(h.singleton(ts[0]));
  IEEEFloat nan(quad, IEEEFloat::rm_nearest_even);
  nan.self_nan();
  auto wide = vars(1, quad);
  set(wide[0], nan, nan);
  EXPECT_TRUE(h.singleton(wide[0]));
  // [-NaN, +NaN]: two patterns, a candidate, and l_True takes the NaN step.
  mpz_class bits;
  nan.get_bits(bits.get_mpz_t());
  bits += mpz_class(1) << 127;
  set(wide[0], IEEEFloat::from_bits(bits.get_mpz_t(), quad), nan);
  // [1, -1] is inverted: it passes the NaN step, yet is still split.
  set(ts[0], f32(1), f32(-1));
  FpBoundElement* e = decide();
  EXPECT_EQ(e->lit, TheoryLit::make(wide[0], true));
  EXPECT_TRUE(payload_equal(e->value, inf(quad, true)));
  manager.terms = {ts[0]};
  manager.split = 1;
  e = decide();
  EXPECT_EQ(e->term(), ts[0]);
  EXPECT_TRUE(payload_equal(e->value, h.pick_mid_point(ts[0])));
}

TEST_F(DecisionHeuristicTest, AllocationFailureKeepsLastDecision) {
  auto ts = vars(1, {8, 24}, false);
  FpBoundElement* last = decide();
  while (domain.element_pool.free_count() != 0) // the next element needs a chunk
    made.push_back(domain.new_FpBoundElement(true, ts[0], last->value));
  vars(40, quad); // new intervals, map growth, wide values
  std::int64_t k = 0;
  for (FpBoundElement* e = nullptr; !e; ++k) {
    {
      test::AllocationFailure guard(k);
      try {
        e = h.decide();
      } catch (std::bad_alloc const&) {
      }
    }
    trail.check_invariants();
    if (e) made.push_back(e);
    else {
      EXPECT_EQ(h.last_decision().lit, last->lit);
      EXPECT_TRUE(payload_equal(h.last_decision().value, last->value));
    }
    EXPECT_EQ(domain.live_elements(), made.size());
  }
  EXPECT_GT(k, 5);
}

TEST_F(DecisionHeuristicTest, SearchReachesSingleValuesInBoundedSteps) {
  std::vector<IEEEFloat::format> formats = {{5, 11}, {8, 24}, {11, 53}, quad};
  std::vector<Term const*> ts;
  for (auto f : formats) ts.push_back(vars(1, f)[0]);
  // Per term: one "not NaN", bisection by packed rank (one per bit), then a
  // few flag draws on the last two values.
  std::vector<std::uint64_t> per_term(ts.size(), 0);
  std::uint64_t steps = 0;
  for (FpBoundElement* e; !domain.is_no_decision(e = h.decide()); ++steps) {
    if (steps < ts.size()) {
      EXPECT_EQ(e->lit, TheoryLit::make(ts[steps], true)) << "NaN first";
    }
    trail.assert_bound(e);
    std::size_t i = 0;
    while (ts[i] != e->term()) ++i;
    ASSERT_LE(++per_term[i], 4 + formats[i].eb + formats[i].sb) << "term " << i;
  }
  trail.check_invariants();
  for (Term const* t : ts) EXPECT_TRUE(h.singleton(t));
}

} // namespace
} // namespace qorv::fp
