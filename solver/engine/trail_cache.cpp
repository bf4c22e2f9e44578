// The bridge between the bounds trail and the rank cache (see trail_cache.h).
#include "engine/trail_cache.h"

#include "support/invariant.h"

#include <cassert>

namespace fpsolve {

template <class R>
void TrailCache<R>::assert_on_trail(qorv::FpBoundElement* e, int v) {
  bool const lower = e->flag(); // a bound below the first mark is released at once
  trail.assert_bound(e);
  reload_end(v, lower);
}

template <class R>
void TrailCache<R>::reload_end(int v, bool lower) {
  R const r = rank_of<R>(trail.current_end(ctx_.p.vars[v].term, lower));
  Iv& c = ev.cur[v];
  if (lower)
    c.lo = r;
  else
    c.hi = r;
}

template <class R>
void TrailCache<R>::push_bound(int v, bool lower, R const& rank) {
  IEEEFloat const value = value_of(rank, ctx_.p.vars[v].fmt);
  assert_on_trail(domain.new_FpBoundElement(lower, ctx_.p.vars[v].term, value), v);
}

template <class R>
bool TrailCache<R>::narrow(int v, R lo, R hi) {
  Iv const c = ev.cur[v];
  if (lo < c.lo) lo = c.lo;
  if (c.hi < hi) hi = c.hi;
  if (hi < lo) return false;
  // A Boolean known to be true (not NaN) is pinned to one value so that the
  // decision heuristic never splits it.
  if (ctx_.p.vars[v].is_bool && lo > ev.format_of_var(v).nan) hi = lo;
  if (lo == c.lo && hi == c.hi) return true;
  // Compared by a step of one, not by the difference, which overflows for
  // ranks far apart.
  if (lo == R(c.lo + 1) || R(hi + 1) == c.hi) ++single_steps;
  if (lo != c.lo) {
    push_bound(v, true, lo);
    ++ctx_.stats.propagations;
  }
  if (hi != c.hi) {
    push_bound(v, false, hi);
    ++ctx_.stats.propagations;
  }
  // The trail took exactly the narrowed ends, inside the old interval.
  if (ctx_.checking && !(ev.cur[v].lo == lo && ev.cur[v].hi == hi && c.lo <= lo && hi <= c.hi))
    qorv::invariant_violated("fpsolve trail cache", "a narrowing left the interval",
                             ctx_.p.vars[v].term->name());
  queue_.enqueue_watchers(v);
  return true;
}

template <class R>
bool TrailCache<R>::assert_element(qorv::FpBoundElement* e, int v) {
  assert_on_trail(e, v);
  Iv const next = ev.cur[v];
  if (next.hi < next.lo) return false;
  queue_.enqueue_watchers(v);
  return narrow(v, next.lo, next.hi);
}

template <class R>
void TrailCache<R>::backtrack_to(std::size_t length) {
  // A bound rewritten in place may have moved both ends of its entry, so
  // both ends of every variable undone are read back.
  undone_.clear();
  for (std::size_t i = length; i < trail.size(); ++i) {
    int const v = ctx_.var_of(trail.bounds[i]->term());
    assert(v >= 0 && "every bound on the trail is on a search variable");
    undone_.push_back(v);
  }
  // A return to 0 that starts no level undoes the bounds folded below the
  // first mark as well, which left no slot naming their variables.
  bool const to_root = length == 0 && !trail.starts_level(0);
  trail.backtrack(length, &domain);
  if (to_root) {
    undone_.clear();
    for (std::size_t v = 0; v < ctx_.p.vars.size(); ++v)
      undone_.push_back(static_cast<int>(v));
  }
  for (int v : undone_) {
    reload_end(v, true);
    reload_end(v, false);
  }
}

template <class R>
void TrailCache<R>::check_invariants() {
  trail.check_invariants();
  for (std::size_t v = 0; v < ctx_.p.vars.size(); ++v) {
    if (!ctx_.relevant[v]) continue;
    qorv::Term const* t = ctx_.p.vars[v].term;
    if (!(rank_of<R>(trail.current_end(t, true)) == ev.cur[v].lo) ||
        !(rank_of<R>(trail.current_end(t, false)) == ev.cur[v].hi))
      qorv::invariant_violated("fpsolve search", "interval out of step with the trail", t->name());
  }
}

FPSOLVE_INSTANTIATE_FOR_RANKS(TrailCache)

} // namespace fpsolve
