// Search candidates: frames per literal of the element's terms, one result
// array, and no allocation once warmed up.  Limits after the mark, maximum
// limits and infinite limits are checked against a model of the frames by
// the search_candidates fuzz harness, whose corpus replays as a test.
#include "tests/common/alloc_failure.h"
#include "tests/common/host_fixture.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace qorv::fp {
namespace {

using namespace fixture;

// The infinite limit's literal, written out from the format alone.
std::string inf_text(Format f, bool flag) {
  return "(fp #b0 #b" + std::string(f.eb, '1') + " #b" + (flag ? "1" : "0") +
         std::string(f.sb - 2, '0') + ")";
}

struct ChoiceHeuristicTest : HostTest {
  FpValueElement element;
  FpIntervalChoiceHeuristic h{domain, trail};
  Term const *t = var(), *u = var();
  std::string const nan = inf_text(single, true), inf = inf_text(single, false);

  // The frame of (term, flag).  The result lists the frames in the order of
  // the heuristic's map.
  FpIntervalSearchFrame const* frame(Term const* term, bool flag) const {
    std::vector<TheoryLit> want, got;
    for (auto const& entry : h.frames_by_lit)
      want.push_back(entry.first);
    for (FpIntervalSearchFrame const& f : h.search_candidates)
      got.push_back(f.lit);
    EXPECT_EQ(got, want);
    for (FpIntervalSearchFrame const& f : h.search_candidates)
      if (f.lit == TheoryLit::make(term, flag)) return &f;
    return nullptr;
  }
};

// Both flags of a term give two frames; terms outside the element count for
// nothing; each call refills the same array.
TEST_F(ChoiceHeuristicTest, FramesPerLiteralOfElementTermsThroughOneReference) {
  Term const* outside = var();
  auto const& result = h.get_search_candidates(element);
  EXPECT_TRUE(result.empty()); // empty trail
  assert_bound(t, true, f32(1)), assert_bound(outside, false, f32(9));
  assert_bound(t, false, f32(2)), assert_bound(outside, true, f32(9));
  EXPECT_TRUE(h.get_search_candidates(element).empty()); // element without terms
  element.terms.insert(t);
  h.trail_mark = 1;
  EXPECT_EQ(&h.get_search_candidates(element), &result);
  ASSERT_EQ(result.size(), 2u);
  EXPECT_EQ(seen(*frame(t, true)), (Seen{{-1, s32(1)}}));
  EXPECT_EQ(seen(*frame(t, false)), (Seen{{-1, inf}, {3, inf}}));

  FpValueElement others; // warmed up, a call that keeps no frame allocates nothing
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
