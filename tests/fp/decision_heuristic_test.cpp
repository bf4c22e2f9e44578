// decide(): the seeded generator and the cases that must change nothing.
// Round robin, random picks, the NaN-first step, segments,
// singletons by pattern, inverted intervals and split points are checked on
// every decision of the decide fuzz harness, whose corpus replays as a test.
#include "host/pick_mid.h"
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
  FpBoundElement* decide(FpIntervalDecisionHeuristic* d = nullptr) {
    FpBoundElement* e = (d ? d : &h)->decide();
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

} // namespace
} // namespace qorv::fp
