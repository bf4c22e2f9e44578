// The interval heuristics of the floating-point theory.
//
// FpIntervalDecisionHeuristic picks the next bound decision: among the terms
// of the decision-dependency manager whose interval is not a single value
// (first segment of the term list, else the second), the first whose interval
// still admits NaN is decided "not NaN" (flag set, -inf); otherwise one
// candidate, the one after the last decided term or a drawn one, is split at
// the host's mid point with a drawn flag.  The generator is the drand48 linear
// congruential generator seeded with 42, so runs are reproducible bit for bit.
//
// FpIntervalSearchFrame is the search state of one literal: its bound element,
// a maximum limit and a queue of (trail position, value) limits.
//
// FpIntervalChoiceHeuristic sums up the bounds trail as one search frame per
// literal of a value element's terms, against the trail mark.
//
// None of these classes owns the host objects it is given; those must outlive
// it.  Results are references to member containers, valid until the next call.
// Elements returned by decide() belong to the domain.  Everything runs on one
// thread; the packed order and rational comparisons write process-wide state.
#pragma once

#include "../host/fp_host.h"
#include "../host/ieee_float.h"
#include "../host/terms.h"
#include "../host/theory_lit.h"
#include "../support/hashtable.h"
#include "fp_value_interval.h"
#include "limit_queue.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace qorv::fp {

class FpIntervalDecisionHeuristic {
public:
  FpIntervalDecisionHeuristic(FpIntervalDomain& domain, FpBoundsTrail& trail,
                              FpDecDepManager& manager);

  // The next decision: a new element of the domain, or the address of the
  // domain's no-decision element when no term is left to decide (generator
  // and last decision then untouched).  Never null.  Exceptions from the
  // host, IEEEFloat or allocation pass through and leave the last decision
  // unchanged.  Once the candidate list has grown, gathering allocates
  // nothing and costs one hash lookup per term looked at.  A split position
  // past the end of the term list counts as the end.
  FpBoundElement* decide();
  // Whether t's current interval is a single bit pattern.
  bool singleton(Term const* t);
  // The split point of t's current interval (the host's mid-point rule).
  IEEEFloat pick_mid_point(Term const* t);

  // Read-only views for hosts and tests.
  std::uint64_t generator_state() const noexcept { return generator_state_; }
  FpBoundElement const& last_decision() const noexcept { return last_decision_; }

private:
  FpValueInterval& interval_of(Term const* t);
  void init_interval(FpValueInterval& iv, Term const* t);
  bool is_single(Term const* t);    // singleton(), inline for decide()
  std::uint64_t advance() noexcept; // one drand48 step; returns the new state

  FpIntervalDomain& domain_;
  FpBoundsTrail& trail_;
  FpDecDepManager& manager_;
  std::uint64_t generator_state_;
  std::vector<Term const*> candidates_;
  FpBoundElement last_decision_;
};

// A plain value: copies are deep (limits copied one by one) and member-wise in
// field order, so a copy and its source change independently.  The limits
// are a double-ended queue that grows at the front (LimitQueue): insertion
// there is constant time and never moves a stored limit, and an empty queue
// owns no memory, so building, copying or destroying a frame without limits
// allocates nothing and cannot fail.  The infinite limit is NaN when the
// flag is set and +inf when clear, in the value's format.
// Once fixed (as the choice heuristic hands frames out) the front limit is
// (-1, max_limit) and the other positions ascend toward the back.
class FpIntervalSearchFrame : public FpBoundElement {
public:
  using Limit = fp::Limit; // (position, value)

  // tlit_Undef, default values, no limits, counter 0.
  FpIntervalSearchFrame();
  // The literal (term, flag), a copy of v, no limits, counter 0, and the
  // infinite limit of v's format as the maximum limit.
  FpIntervalSearchFrame(bool flag, Term const* term, IEEEFloat const& v);

  // Puts (position, v) at the front and makes v the maximum limit.  Any
  // position is accepted, in any order.
  void push_limit(int position, IEEEFloat const& v) {
    limits.emplace_front(position, v);
    max_limit = v;
  }
  void set_max_limit(IEEEFloat const& v) { max_limit = v; }
  void set_max_limit_inf();
  // Whether the front limit's value (not max_limit) is the infinite limit.
  // Reading the front limit is deliberate: hosts call it after fix_limits.
  // Requires at least one limit (asserted); without one it answers false.
  bool max_limit_inf() const;
  // Prepends (-1, max_limit) and moves every value one place toward the back,
  // dropping the last: (p1,x1)..(pk,xk) becomes (-1,M),(p1,M),(p2,x1)..(pk,x(k-1)).
  // Not idempotent.  Strong guarantee: on bad_alloc the frame is unchanged.
  void fix_limits();
  // "S[" element [", " back value ", " back position] ", " count ", " counter "]";
  // the bracketed pieces only when there is a limit.
  std::string to_str() const;

  IEEEFloat max_limit;
  LimitQueue limits;
  std::int32_t counter = 0; // never changed here: the host's, kept and printed deliberately

private:
  IEEEFloat infinite_limit() const;
};

// The working tables and the result array are emptied, not freed, at every
// call, and the limits of every frame the heuristic holds (in its map and in
// its result) take their blocks from a pool that it keeps, so once warmed up
// on a trail of one shape a call makes no heap allocation (for values of
// 32/64-bit formats; a wider value owns a rational, allocated by every copy).
class FpIntervalChoiceHeuristic {
public:
  FpIntervalChoiceHeuristic(FpIntervalDomain& domain, FpBoundsTrail& trail);

  // One fixed frame per literal whose term is in the element's term set and
  // that has a bound on the trail, in the frame map's iteration order.  A
  // frame's value is its literal's newest bound; its maximum limit is the
  // newest bound at or before trail_mark (else the infinite limit); each bound
  // after the mark is a limit at its 1-based trail position.  One pass over
  // the trail, a fixed few hash operations per bound.  The same reference
  // every call; the next call replaces its contents.
  std::vector<FpIntervalSearchFrame> const& get_search_candidates(FpValueElement const& element);

  FpIntervalDomain& domain;
  FpBoundsTrail& trail;
  std::uint64_t trail_mark = 0; // bounds at positions 1..trail_mark form the base

private:
  // Declared before the frames that draw on it, so that it outlives them.
  LimitBlockPool limit_blocks_;

public:
  std::vector<FpIntervalSearchFrame> search_candidates;
  hsh::HashMap<TheoryLit, FpIntervalSearchFrame> frames_by_lit;
  hsh::HashSet<TheoryLit> lits_with_max_limit;
};

} // namespace qorv::fp
