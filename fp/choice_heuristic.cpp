#include "fp/interval_heuristics.h"

#include <cstdint>

namespace qorv::fp {

FpIntervalChoiceHeuristic::FpIntervalChoiceHeuristic(FpIntervalDomain& d, FpBoundsTrail& t)
    : domain(d), trail(t) {}

std::vector<FpIntervalSearchFrame> const&
FpIntervalChoiceHeuristic::get_search_candidates(FpValueElement const& element) {
  std::vector<FpBoundElement*> const& bounds = trail.bounds;
  std::uint64_t const n = bounds.size();
  std::uint64_t const mark = trail_mark;
  lits_with_max_limit.clear(false);
  frames_by_lit.clear(false);

  // The literal's frame, made on first meeting (the newest bound of the
  // literal, which gives the frame its value).  Map entries never move.
  auto frame_of = [this](TheoryLit lit, IEEEFloat const& v) -> FpIntervalSearchFrame& {
    auto it = frames_by_lit.find(lit);
    if (it != frames_by_lit.end()) return it->second;
    FpIntervalSearchFrame& f = frames_by_lit[lit];
    f = FpIntervalSearchFrame(lit.flag(), lit.term(), v);
    return f;
  };

  // Newest bound first: each bound after the mark becomes a limit (pushed to
  // the front, so the limits end up ascending) and the first bound met at or
  // before the mark gives the maximum limit; older ones change nothing.
  for (std::uint64_t p = n; p != 0; --p) {
    FpBoundElement const& e = *bounds[p - 1];
    TheoryLit const lit = e.lit;
    if (!element.terms.contains(lit.term())) continue;
    if (p > mark) {
      // Positions reach the frame as 32-bit ints (wrapping past INT32_MAX).
      frame_of(lit, e.value).push_limit(static_cast<std::int32_t>(p), e.value);
      continue;
    }
    // A literal already in the set already has its frame, so a repeated
    // literal at or before the mark costs one set probe and nothing else.
    unsigned long index;
    decltype(lits_with_max_limit)::Bucket* entry;
    if (lits_with_max_limit.do_insert(lit, &index, &entry))
      frame_of(lit, e.value).set_max_limit(e.value);
  }

  // Entries never move, but the vector would copy frames on reallocation
  // (a deque's move may throw), so size it once.
  search_candidates.clear();
  search_candidates.reserve(frames_by_lit.size());
  for (auto const& [lit, frame] : frames_by_lit) {
    FpIntervalSearchFrame& c = search_candidates.emplace_back(frame);
    if (!lits_with_max_limit.contains(lit)) c.set_max_limit_inf();
    c.fix_limits();
  }
  return search_candidates;
}

} // namespace qorv::fp
