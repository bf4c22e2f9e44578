// Search candidates: frames per literal of the element's terms, one result
// array, and no allocation once warmed up.  Limits after the mark, maximum
// limits and infinite limits are checked against a model of the frames by
// the search_candidates fuzz harness, whose corpus replays as a test.
#include "tests/common/host_fixture.h"
#include "tests/common/alloc_failure.h"

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
    for (auto const& entry : h.frames_by_lit) want.push_back(entry.first);
    for (FpIntervalSearchFrame const& f : h.search_candidates) got.push_back(f.lit);
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

} // namespace
} // namespace qorv::fp
