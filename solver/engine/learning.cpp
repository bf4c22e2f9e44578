// Conflict learning for the search loop: clauses over bound literals, their
// propagation by two watched literals, and the backjump after a conflict.
//
// On a conflict under decisions D0..Dk (each a bound "v >= r" or "v <= r"),
// the assertions, the clauses learned so far and D0..Dk together propagate
// to a contradiction, so "not D0 or ... or not Dk" follows from the
// assertions.  It is generalised by a binary search for the shortest prefix
// D0..Dj-1 that still propagates to a contradiction together with Dk alone;
// every test asserts Dk on top of an earlier level's trail, so each costs
// one bound and its propagation.  A test only ever shortens the clause when
// it has seen the contradiction itself, so the clause is sound whatever the
// shape of the propagators; the full clause is the fallback.  The search
// then undoes every level above j-1 and asserts "not Dk" there, where all
// other literals of the clause are false (the clause is unit).
//
// Termination: each backjump strictly narrows an interval at level j-1 < k,
// and intervals are finite, so the sequence of interval states ordered level
// by level decreases; a conflict with no decision left is unsat.
#include "engine/solver.h"

#include <algorithm>
#include <utility>

namespace fpsolve {

template <class R>
typename Solver<R>::Truth Solver<R>::truth(BoundLit const& l) const {
  Iv const& c = ev_.cur[l.var];
  if (l.lower) return l.rank <= c.lo ? Truth::yes : c.hi < l.rank ? Truth::no : Truth::open;
  return c.hi <= l.rank ? Truth::yes : l.rank < c.lo ? Truth::no : Truth::open;
}

template <class R>
bool Solver<R>::make_true(BoundLit const& l) {
  Iv const c = ev_.cur[l.var];
  return l.lower ? narrow(l.var, l.rank, c.hi) : narrow(l.var, c.lo, l.rank);
}

template <class R>
typename Solver<R>::BoundLit Solver<R>::negation_of(Level const& lv) const {
  R const r = rank_of<R>(lv.value);
  return lv.flag ? BoundLit{lv.var, false, R(r - 1)} : BoundLit{lv.var, true, R(r + 1)};
}

// lits[0] is the literal the clause forces, lits[1] the one false at the
// highest level below: the two watches that stay valid on backtracking.
template <class R>
void Solver<R>::add_clause(std::vector<BoundLit> lits) {
  ++stats_.learned;
  stats_.learned_literals += lits.size();
  if (lits.size() < 2) return; // a unit: asserted at the root, never undone
  int const id = static_cast<int>(clauses_.size());
  clause_watch_[lits[0].var].push_back(id);
  if (lits[1].var != lits[0].var) clause_watch_[lits[1].var].push_back(id);
  clauses_.push_back(Clause{std::move(lits)});
  if (++live_clauses_ > clause_cap_) reduce_clauses();
}

// Deletes the older half of the clauses (every clause is a consequence of
// the assertions, so none is needed for soundness) and lets the cap grow, so
// that only finitely many reductions happen.  Watch lists drop the deleted
// clauses when next visited.
template <class R>
void Solver<R>::reduce_clauses() {
  std::size_t drop = live_clauses_ / 2;
  for (std::size_t c = 0; c + 1 < clauses_.size() && drop > 0; ++c)
    if (!clauses_[c].lits.empty()) {
      std::vector<BoundLit>().swap(clauses_[c].lits);
      --live_clauses_;
      --drop;
    }
  clause_cap_ += clause_cap_ / 2;
}

template <class R>
bool Solver<R>::propagate_clauses(int v) {
  std::vector<int>& ws = clause_watch_[v];
  std::size_t kept = 0, i = 0;
  bool ok = true;
  for (; i < ws.size() && ok; ++i) {
    int const c = ws[i];
    std::vector<BoundLit>& lits = clauses_[c].lits;
    bool stays = false; // a watch of c is still on v
    for (int w = 0; w < 2 && ok && !lits.empty(); ++w) {
      if (lits[w].var != v) continue;
      stays = true;
      if (truth(lits[w]) != Truth::no) continue;
      std::size_t k = 2;
      while (k < lits.size() && truth(lits[k]) == Truth::no)
        ++k;
      if (k < lits.size()) { // a new watch
        std::swap(lits[w], lits[k]);
        int const to = lits[w].var;
        if (to == v) continue;
        if (lits[1 - w].var != to) clause_watch_[to].push_back(c);
        stays = lits[1 - w].var == v;
        continue;
      }
      BoundLit const other = lits[1 - w]; // every other literal is false
      Truth const t = truth(other);
      ok = t == Truth::yes || (t == Truth::open && make_true(other));
    }
    if (stays) ws[kept++] = c;
  }
  for (; i < ws.size(); ++i)
    ws[kept++] = ws[i];
  ws.resize(kept);
  return ok;
}

template <class R>
bool Solver<R>::drain_clauses() {
  while (!clause_vars_.empty()) {
    int const v = clause_vars_.back();
    clause_vars_.pop_back();
    clause_var_queued_[v] = 0;
    if (!propagate_clauses(v)) {
      for (int u : clause_vars_)
        clause_var_queued_[u] = 0;
      clause_vars_.clear();
      return false;
    }
  }
  return true;
}

template <class R>
bool Solver<R>::learn_and_backjump() {
  int const k = static_cast<int>(levels_.size());
  assert(k > 0 && "a conflict above the root");
  Level const top = levels_.back();
  // Whether D0..Dj-1 and Dk alone propagate to a conflict.
  auto conflicts_from = [&](int j) {
    backtrack_to(levels_[j].trail_length);
    if (lost_) enqueue_all();
    auto* e = domain_.new_FpBoundElement(top.flag, p_.vars[top.var].term, top.value);
    return !(assert_element(e, top.var) && deduce() && eval_all() != L::F);
  };
  // Decisions are dropped from the top down, by 1, 2, 4, ... levels, while
  // the conflict stays; the first test that finds none ends the search, and
  // the levels it undid are asserted again.
  int hi = k - 1, lowest = k - 1; // hi: the conflict is known with D0..Dhi-1
  for (int step = 1; hi > 0; step *= 2) {
    lowest = std::max(k - 1 - step, 0);
    if (!conflicts_from(lowest)) break;
    hi = lowest;
  }
  std::vector<BoundLit> lits{negation_of(top)};
  for (int j = hi - 1; j >= 0; --j)
    lits.push_back(negation_of(levels_[j]));
  stats_.levels_skipped += static_cast<std::uint64_t>(k - 1 - hi);
  backtrack_to(levels_[lowest].trail_length);
  if (lost_) enqueue_all();
  for (int j = lowest; j < hi; ++j) {
    Level& lv = levels_[j];
    lv.trail_length = trail_.size();
    auto* e = domain_.new_FpBoundElement(lv.flag, p_.vars[lv.var].term, lv.value);
    if (!(assert_element(e, lv.var) && deduce())) { // clauses learned since bite here
      levels_.resize(static_cast<std::size_t>(j) + 1);
      add_clause(std::move(lits));
      return false;
    }
  }
  levels_.resize(static_cast<std::size_t>(hi));
  BoundLit const forced = lits[0];
  add_clause(std::move(lits));
  return make_true(forced) && deduce();
}

#define FPSOLVE_LEARNING(R)                                                                        \
  template typename Solver<R>::Truth Solver<R>::truth(BoundLit const&) const;                      \
  template bool Solver<R>::make_true(BoundLit const&);                                             \
  template typename Solver<R>::BoundLit Solver<R>::negation_of(Level const&) const;                \
  template void Solver<R>::add_clause(std::vector<BoundLit>);                                      \
  template void Solver<R>::reduce_clauses();                                                       \
  template bool Solver<R>::propagate_clauses(int);                                                 \
  template bool Solver<R>::drain_clauses();                                                        \
  template bool Solver<R>::learn_and_backjump();
FPSOLVE_LEARNING(i128)
FPSOLVE_LEARNING(mpz_class)
#undef FPSOLVE_LEARNING

} // namespace fpsolve
