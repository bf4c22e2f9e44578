// decide(): round-robin and random picks against a hand-run generator, and
// the cases that must change nothing.  The NaN-first step, segments,
// singletons by pattern, inverted intervals and split points are checked on
// every decision of the decide fuzz harness, whose corpus replays as a test.
#include "tests/common/host_fixture.h"
#include "host/pick_mid.h"


#include <cstdint>
#include <stdexcept>
#include <vector>

namespace qorv::fp {
namespace {

using namespace fixture;

std::uint64_t lcg(std::uint64_t s) { return (s * 0x5DEECE66DULL + 11) & ((1ULL << 48) - 1); }

struct DecisionHeuristicTest : HostTest {
  FpDecDepManager manager;
  FpIntervalDecisionHeuristic h{domain, trail, manager};
  std::vector<FpBoundElement*> made; // decided, not asserted

  ~DecisionHeuristicTest() override { for (auto* e : made) domain.release_FpBoundElement(e); }
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

TEST_F(DecisionHeuristicTest, DrawsThenWalksRoundRobin) {
  std::vector<Term const*> ts;
  for (int i = 0; i < 5; ++i) ts.push_back(add(single, true));
  FpBoundElement* e = decide();
  EXPECT_EQ(lcg(42), 0xF692DDCDEDu);
  EXPECT_EQ(e->lit, TheoryLit::make(ts[3], true)); // 16159453 % 5, then bit 16 set
  EXPECT_TRUE(payload_equal(e->value, utils::pick_mid_avg(IEEEFloat::inf(single, true), IEEEFloat::inf(single, false))));
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
  EXPECT_TRUE(h.last_decision().lit == last->lit && payload_equal(h.last_decision().value, last->value));
  EXPECT_EQ(domain.live_elements(), made.size());
}

} // namespace
} // namespace qorv::fp
