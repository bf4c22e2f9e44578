// The model probe (see probe.h).
//
// Bisection reaches a model only when the splits happen to isolate one, and
// the candidate of a search node (every input at the end of its interval
// nearest zero, all picked at once) ignores how the inputs constrain each
// other: x <= y < x + z is met by no such pick unless z is large.  Fixing
// one input and propagating before the next is picked lets the earlier
// values narrow the later intervals, so the dive walks around such
// relations.  It is a probe, not a branch of the search: it runs on top of
// the current node, every step it made is undone before the search goes on,
// and the propagation queues are restored as they were, so the search
// (every split of it chosen by the decision heuristic, every clause learned
// from its own conflicts) is the same with or without it.  Its values pass
// the same exact check as every other model.
//
// Each input gets up to three values, in this order: the value the node's
// candidate would pick (zero, or the end nearest zero; true for a Boolean;
// the lowest mode), the other end, the middle rank.  An input where all of
// them conflict ends the dive.  Dives are spaced out geometrically in the
// number of decisions, so they cost at most a logarithmic number of dives
// over a run.
#include "engine/probe.h"

#include <algorithm>

namespace fpsolve {

template <class R>
bool Prober<R>::due() {
  std::uint64_t const decisions = ctx_.stats.decisions;
  if (decisions < next_) return false;
  next_ = std::max<std::uint64_t>(1, ctx_.opt.probe_growth * decisions);
  return true;
}

template <class R>
bool Prober<R>::probe(std::vector<IEEEFloat>* out) {
  PhaseTimer const timer(ctx_.stats.probe_time);
  ++ctx_.stats.probes;
  // A conflict drops what a stalled round left queued and the clause visits
  // due, so they are put back with the trail.
  // Each place it returns to is a level of the trail, and stays one after a
  // return, for the next try.
  auto restore = [&](std::size_t length, PropagationQueue::Snapshot const& q) {
    tc_.backtrack_to(length);
    tc_.mark();
    queue_.restore(q);
  };
  std::size_t const base = tc_.mark();
  PropagationQueue::Snapshot const at_base = queue_.save();
  bool alive = true;
  for (std::size_t i = 0; i < manager_.split && alive && !ctx_.out_of_resources(); ++i) {
    int const v = ctx_.var_of(manager_.terms[i]);
    auto const c = tc_.ev.cur[v];
    if (c.lo == c.hi) continue;
    R const first = candidates_.pick(v);
    R const other = first == c.lo ? c.hi : c.lo;
    R const mid = mid_rank(c.lo, c.hi);
    // A Boolean has two values, the first two tries; the middle of a
    // Boolean's interval would be "true" again.
    std::size_t const n = ctx_.p.vars[v].is_bool ? 2 : 3;
    R const tries[3] = {first, other, mid};
    std::size_t const mark = tc_.mark();
    PropagationQueue::Snapshot const at_mark = queue_.save();
    alive = false;
    for (std::size_t t = 0; t < n && !alive; ++t) {
      if ((t == 1 && other == first) || (t == 2 && (mid == first || mid == other))) continue;
      // A round that reached its fixpoint visited every assertion after its
      // last change and fails on a false one, so only a stalled round needs
      // the evaluation of all of them (linear in the problem, every step).
      alive = tc_.narrow(v, tries[t], tries[t]) && propagation_.deduce() &&
              (queue_.entries_empty() || tc_.ev.eval_all(ctx_.roots) != l_False);
      if (!alive) restore(mark, at_mark);
    }
    // The dive never returns to this input's level, only to the base, so a
    // kept value's level joins the one below: the dive holds one slot per
    // term, not one per input that narrowed it.  The intervals stay as
    // they are.
    if (alive && mark > base && tc_.trail.compacting()) tc_.merge_last_level();
  }
  // The exact check in every case: the dive ends where the assertions are
  // not false over the intervals, which, unlike true, vouches for nothing.
  bool found = false;
  if (alive && !ctx_.out_of_resources()) {
    candidates_.model_into(out); // into the caller's room: no second copy
    found = candidates_.verify(*out);
  }
  restore(base, at_base);
  return found;
}

FPSOLVE_INSTANTIATE_FOR_RANKS(Prober)

} // namespace fpsolve
