// The two heuristics.  decide(): the seeded generator, a host exception and
// the last decision's form; round robin, random picks, the NaN-first step,
// segments, singletons by pattern, inverted intervals, split points and the
// no-decision answer are checked on every decision of the decide fuzz
// harness.  Search candidates: no allocation once warmed up and the map's
// growth; frame contents (limits after the mark, maximum and infinite
// limits), the order of the map, terms outside the element and the one
// result array are checked against a model of the frames by the
// search_candidates fuzz harness.  Both corpora replay as tests.
#include "tests/common/alloc_failure.h"
#include "tests/common/host_fixture.h"

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
    if (closed) set(t, IEEEFloat::inf(f, true), IEEEFloat::inf(f, false));
    manager.terms.push_back(t);
    manager.split = manager.terms.size();
    return t;
  }
  void set(Term const* t, IEEEFloat const& lo, IEEEFloat const& hi) {
    trail.interval(t).lower_ends.back() = lo, trail.interval(t).upper_ends.back() = hi;
  }
  FpBoundElement* decide() {
    FpBoundElement* e = h.decide();
    if (!domain.is_no_decision(e)) made.push_back(e);
    return e;
  }
};

// The generator is drand48's, seeded with 42: five closed terms, the first
// decision draws the term (16159453 % 5) and then the flag.
TEST_F(DecisionHeuristicTest, FirstDrawsComeFromTheSeededGenerator) {
  std::vector<Term const*> ts;
  for (int i = 0; i < 5; ++i)
    ts.push_back(add(single, true));
  EXPECT_EQ(lcg(42), 0xF692DDCDEDu);
  EXPECT_EQ(decide()->lit, TheoryLit::make(ts[3], true));
  EXPECT_EQ(h.generator_state(), lcg(lcg(42)));
}

// An exception from the host (a term without an interval) leaves the
// generator, the last decision and the domain as they were.  The
// no-decision answers are the decide fuzz harness's.
TEST_F(DecisionHeuristicTest, HostExceptionChangesNothing) {
  add(single, true);
  FpBoundElement* last = decide();
  std::uint64_t const s = h.generator_state();
  manager.terms = {tm.mk_var("b", tm.bool_sort())};
  EXPECT_THROW(h.decide(), std::invalid_argument);
  EXPECT_EQ(h.generator_state(), s);
  EXPECT_TRUE(h.last_decision().lit == last->lit &&
              payload_equal(h.last_decision().value, last->value));
  EXPECT_EQ(domain.live_elements(), made.size());
}

// The last decision is recorded by assignment: once it holds a big-form wide
// value (-inf of Float128 needs more than 63 bits), a later value that would
// fit the small form is assigned into the big form and stays big.
TEST_F(DecisionHeuristicTest, LastDecisionIsAssignedKeepingTheBigForm) {
  Term const* wide = add(quad);
  FpBoundElement* nan_step = decide();
  EXPECT_TRUE(nan_step->lit == TheoryLit::make(wide, true) &&
              payload_equal(nan_step->value, IEEEFloat::inf(quad, true)));
  EXPECT_TRUE(h.last_decision().value.payload_q().is_big());
  set(wide, IEEEFloat::from_bits(std::uint64_t{0}, quad),
      IEEEFloat::from_bits(std::uint64_t{6}, quad));
  FpBoundElement* split = decide();
  ASSERT_EQ(split->term(), wide);
  EXPECT_FALSE(split->value.payload_q().is_big());
  EXPECT_TRUE(payload_equal(h.last_decision().value, split->value));
  EXPECT_TRUE(h.last_decision().value.payload_q().is_big()) << "moved in, not assigned";
}

struct ChoiceHeuristicTest : HostTest {
  FpValueElement element;
  FpIntervalChoiceHeuristic h{domain, trail};

  FpIntervalSearchFrame const* frame(Term const* term, bool flag) const {
    for (FpIntervalSearchFrame const& f : h.search_candidates)
      if (f.lit == TheoryLit::make(term, flag)) return &f;
    return nullptr;
  }
};

// Warmed up, a call that keeps no frame allocates nothing.
TEST_F(ChoiceHeuristicTest, WarmCallWithoutFramesAllocatesNothing) {
  Term const *t = var(), *u = var();
  element.terms.insert(t);
  assert_bound(t, true, f32(1)), assert_bound(t, false, f32(2));
  EXPECT_EQ(h.get_search_candidates(element).size(), 2u);
  FpValueElement others; // u has no bound
  others.terms.insert(u);
  h.get_search_candidates(others);
  test::disarm_allocation_failure();
  EXPECT_TRUE(h.get_search_candidates(others).empty());
  EXPECT_EQ(test::allocations_seen(), 0);
}

// A literal already in the map is reached through find alone, so the bucket
// count depends only on the number of literals: 22 literals fill the map to
// its load limit (22 in 31 buckets) and a further bound of a known literal
// grows nothing, whether it lies after the mark (0) or at it (23).  Frames
// then come in bucket order modulo 31 under both marks.
TEST_F(ChoiceHeuristicTest, KnownLiteralsNeverGrowTheMap) {
  std::vector<Term const*> terms;
  for (int i = 0; i < 11; ++i)
    terms.push_back(var());
  for (Term const* term : terms)
    element.terms.insert(term);
  assert_bound(terms[0], true, f32(-1)); // position 1: met again last
  for (int i = 0; i < 22; ++i)
    assert_bound(terms[i / 2], i % 2 != 0, f32(i));
  std::vector<std::vector<TheoryLit>> orders;
  for (std::uint64_t mark : {0u, 23u}) {
    h.trail_mark = mark;
    std::vector<TheoryLit> order;
    for (FpIntervalSearchFrame const& f : h.get_search_candidates(element))
      order.push_back(f.lit);
    EXPECT_EQ(h.frames_by_lit.bucket_count(), 31u) << "mark " << mark;
    ASSERT_EQ(order.size(), 22u);
    for (std::size_t i = 1; i < order.size(); ++i)
      EXPECT_LE(order[i - 1].word % 31, order[i].word % 31) << "mark " << mark;
    orders.push_back(order);
  }
  EXPECT_EQ(orders[0], orders[1]);
  EXPECT_EQ(seen(*frame(terms[0], true)), (Seen{{-1, s32(1)}})); // mark 23: newest at it
}

} // namespace
} // namespace qorv::fp
