// Search candidates: one frame per literal of a value element, built by one
// walk of the bounds trail from newest to oldest into member tables that are
// emptied, never freed, between calls; the result array is rebuilt in the
// frame map's iteration order, so the order is deterministic.
#include "fp/interval_heuristics.h"

#include <cstddef>
#include <cstdint>
#include <tuple>
#include <utility>

namespace qorv::fp {

namespace {
// `to` becomes a copy of `from` equal to a freshly copy-constructed value.
// A 32/64-bit value is a bit pattern, and assignment gives exactly that;
// wider values are copied afresh and moved in, because assigning onto a wide
// value may keep the destination's rational form.
void assign_fresh(IEEEFloat& to, IEEEFloat const& from) {
  if (from.narrow() && to.narrow())
    to = from;
  else
    to = IEEEFloat(from);
}

// Makes `slot` what the result holds for `frame`: a member-wise copy of the
// frame, then for a literal without a bound at or before the mark the
// infinite maximum limit, then fixed.  The copy is made member by member in
// field order over the slot (the frames of the previous call are reused, as
// they are kept), and the copy of the limits and fix_limits() are made in one
// pass (LimitQueue::assign_shifted): every value that ends up in the slot is
// a fresh copy of the value that the copy-then-fix sequence would put there,
// so the result is the same, also in the rational form of wide values.
void fill(FpIntervalSearchFrame& slot, FpIntervalSearchFrame const& frame, bool has_max_limit) {
  slot.lit = frame.lit;
  assign_fresh(slot.value, frame.value);
  if (has_max_limit)
    assign_fresh(slot.max_limit, frame.max_limit);
  else
    slot.set_max_limit_inf();
  slot.limits.assign_shifted(frame.limits, -1, slot.max_limit);
  slot.counter = frame.counter;
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
  // operator[] and then assigned, without building a second frame.  A
  // default frame allocates nothing and cannot throw, so nothing observable
  // tells the two apart.  The frame's limits draw on the heuristic's pool.
  //
  // Every frame's maximum limit is assigned before anything reads it: by the
  // set insertion of its first bound at or before the mark, or else by the
  // catch-up of its pushes after the walk.  So for a 32/64-bit value, whose
  // assignment leaves no trace of the old value, the frame is built without
  // the infinite limit that would be overwritten anyway.  A wide value is
  // built through the constructor: assigning onto the infinite limit keeps
  // its rational form.
  auto frame_of = [this](TheoryLit lit, IEEEFloat const& v) -> FpIntervalSearchFrame& {
    auto found = frames_by_lit.find(lit);
    if (found != frames_by_lit.end()) return found->second;
    using Entry = std::pair<TheoryLit, FpIntervalSearchFrame>;
    bool const narrow = v.narrow();
    FpIntervalSearchFrame& frame =
        frames_by_lit
            .insert_with(lit,
                         [&] {
                           if (narrow)
                             return Entry(std::piecewise_construct, std::forward_as_tuple(lit),
                                          std::tuple<>());
                           return Entry(std::piecewise_construct, std::forward_as_tuple(lit),
                                        std::forward_as_tuple(lit.flag(), lit.term(), v));
                         })
            ->value.second;
    if (narrow) {
      frame.lit = lit;
      frame.value = v;
    }
    frame.limits.set_pool(&limit_blocks_);
    return frame;
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
      // push_limit, whose assignment of the maximum limit is caught up below
      // (only the last one of a literal's pushes can last).  Positions reach
      // the frame as 32-bit ints (wrapping past INT32_MAX).
      frame.limits.emplace_front(static_cast<std::int32_t>(p), e.value);
      continue;
    }
    unsigned long index;
    decltype(lits_with_max_limit)::Bucket* entry;
    if (lits_with_max_limit.do_insert(lit, &index, &entry)) frame.set_max_limit(e.value);
  }

  // Entries never move, but the vector moves its frames when it grows, so
  // size it once.  The frames of the previous call are assigned over (kept
  // as they are) rather than destroyed and copied anew: the result is the
  // same sequence of member-wise copies, in the same order, and the slots
  // keep drawing their limits' blocks from the heuristic's pool.  A new slot
  // is a default frame (no allocation) bound to the pool, then assigned.
  // Frames left over at the end are dropped, their blocks kept by the pool.
  search_candidates.reserve(frames_by_lit.size());
  std::size_t used = 0;
  for (auto& [lit, frame] : frames_by_lit) {
    bool const has_max_limit = lits_with_max_limit.contains(lit);
    // The maximum limit that the pushes above would have left: the value of
    // the last limit pushed, unless a bound at or before the mark set it
    // afterwards.  One assignment instead of one per push gives the same
    // value, and the same form for wide values (a wide frame starts from the
    // infinite limit, whose rational is big and so stays big either way).
    if (!has_max_limit) frame.max_limit = frame.limits.front().second;
    if (used == search_candidates.size())
      search_candidates.emplace_back().limits.set_pool(&limit_blocks_);
    fill(search_candidates[used++], frame, has_max_limit);
  }
  search_candidates.erase(search_candidates.begin() + static_cast<std::ptrdiff_t>(used),
                          search_candidates.end());
  return search_candidates;
}

} // namespace qorv::fp
