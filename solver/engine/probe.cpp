// The model probe: a dive that fixes the inputs one at a time, each to a
// value of its current interval, with propagation after every step, and
// asks the exact evaluation whether the values it ends with are a model.
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
// from its own conflicts) is the same with or without it; only a sat
// answer may come earlier.  Its values pass the same exact check as every
// other model.
//
// Each input gets up to three values, in this order: the value the node's
// candidate would pick (zero, or the end nearest zero; true for a Boolean;
// the lowest mode), the other end, the middle rank.  An input where all of
// them conflict ends the dive.  Dives are spaced out geometrically in the
// number of decisions (after 0, 1, 2, 4, 8, ... decisions), so they cost
// at most a logarithmic number of dives over a run.
#include "engine/solver.h"

#include <algorithm>
#include <deque>
#include <string>
#include <vector>

namespace fpsolve {

template <class R>
bool Solver<R>::probe_due() {
  if (stats_.decisions < next_probe_) return false;
  next_probe_ = std::max<std::uint64_t>(1, 2 * stats_.decisions);
  return true;
}

template <class R>
bool Solver<R>::probe(std::vector<IEEEFloat>* out) {
  ++stats_.probes;
  // The propagation state of a point of the dive: entries a stalled round
  // left queued, clause visits due, and the lost flag.  A conflict drops
  // them, so they are put back with the trail.
  struct Queues {
    std::deque<int> queue;
    std::vector<int> clause_vars;
    bool lost;
  };
  auto save = [&] { return Queues{queue_, clause_vars_, lost_}; };
  auto restore = [&](std::size_t length, Queues const& q) {
    backtrack_to(length);
    for (int e : queue_)
      queued_[e] = 0;
    for (int u : clause_vars_)
      clause_var_queued_[u] = 0;
    queue_ = q.queue;
    clause_vars_ = q.clause_vars;
    for (int e : queue_)
      queued_[e] = 1;
    for (int u : clause_vars_)
      clause_var_queued_[u] = 1;
    lost_ = q.lost;
  };

  std::size_t const base = trail_.size();
  Queues const at_base = save();
  bool alive = true;
  for (std::size_t i = 0; i < manager_.split && alive && !out_of_resources(); ++i) {
    int const v = var_of_term_[manager_.terms[i]];
    Iv const c = ev_.cur[v];
    if (c.lo == c.hi) continue;
    R const first = pick(v);
    R const other = first == c.lo ? c.hi : c.lo;
    R const mid = mid_rank(c.lo, c.hi);
    // A Boolean has two values, the first two tries; the middle of a
    // Boolean's interval would be "true" again.
    std::size_t const n = p_.vars[v].is_bool ? 2 : 3;
    R const tries[3] = {first, other, mid};
    std::size_t const mark = trail_.size();
    Queues const at_mark = save();
    alive = false;
    for (std::size_t t = 0; t < n && !alive; ++t) {
      if ((t == 1 && other == first) || (t == 2 && (mid == first || mid == other))) continue;
      alive = narrow(v, tries[t], tries[t]) && deduce() && eval_all() != L::F;
      if (!alive) restore(mark, at_mark);
    }
  }
  // The exact check in every case: the dive ends where the assertions are
  // not false over the intervals, which, unlike true, vouches for nothing.
  bool found = false;
  if (alive && !out_of_resources()) {
    *out = model();
    std::string why;
    found = verify_model(p_, *out, &why, &relevant_);
  }
  restore(base, at_base);
  return found;
}

#define FPSOLVE_PROBE(R)                                                                           \
  template bool Solver<R>::probe_due();                                                            \
  template bool Solver<R>::probe(std::vector<IEEEFloat>*);
FPSOLVE_PROBE(i128)
FPSOLVE_PROBE(mpz_class)
#undef FPSOLVE_PROBE

} // namespace fpsolve
