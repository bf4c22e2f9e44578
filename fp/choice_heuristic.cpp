#include "fp/interval_heuristics.h"

#include <cstddef>
#include <cstdint>
#include <tuple>
#include <utility>

namespace qorv::fp {

namespace {
// Makes `slot` a member-wise copy of `frame`.  When every value of the frame
// is a 32/64-bit pattern, assignment gives exactly that and keeps the slot's
// queue blocks.  Wider values are copied afresh and moved in, because
// assigning onto a wide value may keep the destination's rational form.
FpIntervalSearchFrame& reuse(FpIntervalSearchFrame& slot, FpIntervalSearchFrame const& frame) {
  bool narrow = frame.value.narrow() && frame.max_limit.narrow();
  for (auto const& limit : frame.limits)
    narrow = narrow && limit.second.narrow();
  if (narrow)
    slot = frame;
  else
    slot = FpIntervalSearchFrame(frame);
  return slot;
}
} // namespace

FpIntervalChoiceHeuristic::FpIntervalChoiceHeuristic(FpIntervalDomain& d, FpBoundsTrail& t)
    : domain(d), trail(t) {}

std::vector<FpIntervalSearchFrame> const&
FpIntervalChoiceHeuristic::get_search_candidates(FpValueElement const& element) {
  std::vector<FpBoundElement*> const& bounds = trail.bounds;
  std::uint64_t const n = bounds.size();
  std::uint64_t const mark = trail_mark;
  lits_with_max_limit.clear(false);
  frames_by_lit.clear(false);

  // A literal's frame is reached one way, whatever the bound's position:
  // `find` asks whether the map holds the literal; only when it does not is
  // the entry made, through the insertion path of operator[] (its load check
  // included), with the literal's frame.  A literal already present gets the
  // entry that `find` returned: no load check and no second lookup.  So the
  // bucket count, and with it the order of the result, depends only on the
  // number of literals met, never on where the mark lies.
  //
  // The new frame is built once, straight in its entry: the same entry, in
  // the same place and with the same value as a default frame made by
  // operator[] and then assigned, without building a second frame, whose
  // only effect would be allocations that leave nothing behind.
  auto frame_of = [this](TheoryLit lit, IEEEFloat const& v) -> FpIntervalSearchFrame& {
    auto found = frames_by_lit.find(lit);
    if (found != frames_by_lit.end()) return found->second;
    return frames_by_lit
        .insert_with(lit,
                     [&] {
                       return std::pair<TheoryLit, FpIntervalSearchFrame>(
                           std::piecewise_construct, std::forward_as_tuple(lit),
                           std::forward_as_tuple(lit.flag(), lit.term(), v));
                     })
        ->value.second;
  };

  // Newest bound first: each bound after the mark becomes a limit (pushed to
  // the front, so the limits end up ascending) and the first bound met at or
  // before the mark gives the maximum limit; older ones change nothing.
  for (std::uint64_t p = n; p != 0; --p) {
    FpBoundElement const& e = *bounds[p - 1];
    TheoryLit const lit = e.lit;
    if (!element.terms.contains(lit.term())) continue;
    FpIntervalSearchFrame& frame = frame_of(lit, e.value);
    if (p > mark) {
      // Positions reach the frame as 32-bit ints (wrapping past INT32_MAX).
      frame.push_limit(static_cast<std::int32_t>(p), e.value);
      continue;
    }
    unsigned long index;
    decltype(lits_with_max_limit)::Bucket* entry;
    if (lits_with_max_limit.do_insert(lit, &index, &entry)) frame.set_max_limit(e.value);
  }

  // Entries never move, but the vector would copy frames on reallocation
  // (a deque's move may throw), so size it once.  The frames of the previous
  // call are assigned over rather than destroyed and copied anew: the result
  // is the same sequence of member-wise copies, and an assigned queue keeps
  // the blocks it already has, so a warm call allocates no queue storage for
  // the result.  Frames left over at the end are dropped.
  search_candidates.reserve(frames_by_lit.size());
  std::size_t used = 0;
  for (auto const& [lit, frame] : frames_by_lit) {
    FpIntervalSearchFrame& c = used < search_candidates.size()
                                   ? reuse(search_candidates[used], frame)
                                   : search_candidates.emplace_back(frame);
    ++used;
    if (!lits_with_max_limit.contains(lit)) c.set_max_limit_inf();
    c.fix_limits();
  }
  search_candidates.erase(search_candidates.begin() + static_cast<std::ptrdiff_t>(used),
                          search_candidates.end());
  return search_candidates;
}

} // namespace qorv::fp
