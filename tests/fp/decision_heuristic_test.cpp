#include "fp/fp_test.h"
#include "host/pick_mid.h"

#include <gmpxx.h>

#include <cstdint>
#include <stdexcept>
#include <vector>

namespace qorv::fp {
namespace {

using namespace fixture;

std::uint64_t lcg(std::uint64_t s) {
  return (s * 0x5DEECE66DULL + 11) & ((1ULL << 48) - 1);
}

struct DecisionHeuristicTest : HostTest {
  FpDecDepManager manager;
  FpIntervalDecisionHeuristic h{domain, trail, manager};
  std::vector<FpBoundElement*> made; // decided, not asserted

  ~DecisionHeuristicTest() override {
    for (auto* e : made)
      domain.release_FpBoundElement(e);
  }
  // A new variable at the end of the term list, which is all first segment;
  // a closed one has an interval without NaN.
  Term const* add(Format f = single, bool closed = false) {
    Term const* t = var(f);
    if (closed) set(t, inf(f, true), inf(f, false));
    manager.terms.push_back(t);
    manager.split = manager.terms.size();
    return t;
  }
  void set(Term const* t, IEEEFloat const& lo, IEEEFloat const& hi) {
    trail.interval(t).lower_ends.back() = lo, trail.interval(t).upper_ends.back() = hi;
  }
  FpBoundElement* decide(FpIntervalDecisionHeuristic* d = nullptr) {
    FpBoundElement* e = (d ? d : &h)->decide();
    if (!domain.is_no_decision(e)) made.push_back(e);
    return e;
  }
  // The decision "t is not NaN": a lower bound at -inf of t's format.
  void expect_not_nan(FpBoundElement const* e, Term const* t, Format f) {
    EXPECT_TRUE(e->lit == TheoryLit::make(t, true) && payload_equal(e->value, inf(f, true)))
        << e->value.to_str();
  }
};

TEST_F(DecisionHeuristicTest, DrawsThenWalksRoundRobin) {
  std::vector<Term const*> ts;
  for (int i = 0; i < 5; ++i)
    ts.push_back(add(single, true));
  FpBoundElement* e = decide();
  EXPECT_EQ(lcg(42), 0xF692DDCDEDu);
  EXPECT_EQ(e->lit, TheoryLit::make(ts[3], true)); // 16159453 % 5, then bit 16 set
  EXPECT_TRUE(payload_equal(e->value, utils::pick_mid_avg(inf(single, true), inf(single, false))));
  EXPECT_EQ(h.generator_state(), lcg(lcg(42)));
  EXPECT_TRUE(h.last_decision().lit == e->lit && payload_equal(h.last_decision().value, e->value));
  for (int want : {4, 0, 1}) { // wraps after the last position
    std::uint64_t const s = h.generator_state();
    EXPECT_EQ(decide()->term(), ts[want]);
    EXPECT_EQ(h.generator_state(), lcg(s)) << "round robin draws the flag only";
  }
  set(ts[1], f32(2), f32(2)); // the last decided term is no longer a candidate
  std::uint64_t const s = h.generator_state();
  decide();
  EXPECT_EQ(h.generator_state(), lcg(lcg(s)));
  // ts[3] at positions 1 and 3: the decision after it is on position 2.
  manager.terms = {ts[0], ts[3], ts[2], ts[3], ts[4]};
  FpIntervalDecisionHeuristic fresh{domain, trail, manager};
  EXPECT_EQ(decide(&fresh)->term(), ts[3]);
  EXPECT_EQ(decide(&fresh)->term(), ts[2]);
}

// NaN first in list order, drawing nothing; the second segment only when the
// first has no candidate at all, even if the second admits NaN.
TEST_F(DecisionHeuristicTest, NanFirstWithinTheSegmentLookedAt) {
  Term const *closed = add(single, true), *small = add(half), *wide = add(quad);
  expect_not_nan(decide(), small, half);
  expect_not_nan(decide(), small, half); // not asserted: the same answer again
  trail.assert_bound(made.back());
  made.pop_back();
  expect_not_nan(decide(), wide, quad);
  EXPECT_EQ(h.last_decision().lit, TheoryLit::make(wide, true));
  EXPECT_EQ(h.generator_state(), 42u);
  manager.split = 1; // the closed candidate hides the second segment
  EXPECT_EQ(decide()->term(), closed);
  Term const* unseen = var();
  manager.terms.push_back(unseen);
  decide();
  EXPECT_EQ(trail.intervals.find(unseen), trail.intervals.end()) << "second segment looked at";
  set(closed, f32(1), f32(1));
  for (std::size_t split : {std::size_t{0}, std::size_t{1}, manager.terms.size() + 5}) {
    manager.split = split; // 0: only the second segment; past the end: the end
    expect_not_nan(decide(), wide, quad);
  }
}

// Nothing to decide (no terms, constants only) gives the no-decision element;
// that and an exception from the host leave all state as it was.
TEST_F(DecisionHeuristicTest, NoDecisionOrHostExceptionChangesNothing) {
  EXPECT_TRUE(domain.is_no_decision(decide()));
  add(single, true);
  FpBoundElement* last = decide();
  std::uint64_t const s = h.generator_state();
  manager.terms = {tm.mk_const(f32(1.5)), tm.mk_const(IEEEFloat::from_double(-2.0, quad))};
  for (std::size_t split : {0, 1, 2}) {
    manager.split = split;
    EXPECT_EQ(decide(), &domain.no_decision);
  }
  manager.terms.push_back(tm.mk_var("b", tm.bool_sort())); // has no interval
  EXPECT_THROW(h.decide(), std::invalid_argument);
  EXPECT_EQ(h.generator_state(), s);
  EXPECT_TRUE(h.last_decision().lit == last->lit &&
              payload_equal(h.last_decision().value, last->value));
  EXPECT_EQ(domain.live_elements(), made.size());
}

// Single means one bit pattern: -0 to +0 is not, two equal NaN patterns are.
TEST_F(DecisionHeuristicTest, SingletonByPatternAndInvertedIntervalsSplit) {
  Term const *t = add(), *wide = add(quad);
  EXPECT_FALSE(h.singleton(t)); // fresh
  set(t, f32(-0.0), f32(0.0));
  EXPECT_FALSE(h.singleton(t));
  IEEEFloat nan(quad, IEEEFloat::rm_nearest_even);
  nan.self_nan();
  set(wide, nan, nan);
  EXPECT_TRUE(h.singleton(wide));
  // [-NaN, +NaN]: two patterns, a candidate, and l_True takes the NaN step.
  mpz_class bits;
  nan.get_bits(bits.get_mpz_t());
  set(wide, IEEEFloat::from_bits(mpz_class(bits + (mpz_class(1) << 127)).get_mpz_t(), quad), nan);
  set(t, f32(1), f32(-1)); // inverted: passes the NaN step, yet is still split
  expect_not_nan(decide(), wide, quad);
  manager.terms = {t};
  FpBoundElement* e = decide();
  EXPECT_TRUE(e->term() == t && payload_equal(e->value, h.pick_mid_point(t)));
}

// The last decision is recorded by assignment: once it holds a big-form wide
// value (-inf of Float128 needs more than 63 bits), a later value that would
// fit the small form is assigned into the big form and stays big.
TEST_F(DecisionHeuristicTest, LastDecisionIsAssignedKeepingTheBigForm) {
  Term const* wide = add(quad);
  FpBoundElement* nan_step = decide();
  expect_not_nan(nan_step, wide, quad);
  EXPECT_TRUE(h.last_decision().value.payload_q().is_big());
  set(wide, IEEEFloat::from_bits(std::uint64_t{0}, quad),
      IEEEFloat::from_bits(std::uint64_t{6}, quad));
  FpBoundElement* split = decide();
  ASSERT_EQ(split->term(), wide);
  EXPECT_FALSE(split->value.payload_q().is_big());
  EXPECT_TRUE(payload_equal(h.last_decision().value, split->value));
  EXPECT_TRUE(h.last_decision().value.payload_q().is_big()) << "moved in, not assigned";
}

// Asserting every decision reaches single values: per term one "not NaN",
// then bisection by packed rank (one per bit) and a few flag draws.
TEST_F(DecisionHeuristicTest, SearchReachesSingleValuesInBoundedSteps) {
  std::vector<Format> const formats = {half, single, {11, 53}, quad};
  std::vector<Term const*> ts;
  std::vector<std::uint64_t> per_term(formats.size(), 0);
  for (Format f : formats)
    ts.push_back(add(f));
  std::size_t steps = 0;
  for (FpBoundElement* e; !domain.is_no_decision(e = h.decide()); ++steps) {
    if (steps < ts.size()) expect_not_nan(e, ts[steps], formats[steps]);
    trail.assert_bound(e);
    std::size_t i = 0;
    while (ts[i] != e->term())
      ++i;
    ASSERT_LE(++per_term[i], 4 + formats[i].eb + formats[i].sb) << "term " << i;
  }
  trail.check_invariants();
  for (Term const* t : ts)
    EXPECT_TRUE(h.singleton(t));
}

} // namespace
} // namespace qorv::fp
